/* Takes the stars out of astronomical images with a neural network: the C interface of libnebulex.
 *
 *     nebulex_model* model = NULL;
 *     nebulex_results results;
 *     nebulex_view image = {samples, width, height, 3, NEBULEX_U16, 0, 0, 0};
 *     nebulex_results_init(&results, sizeof results);
 *     if (nebulex_model_open(NULL, NULL, &model) == NEBULEX_OK &&
 *         nebulex_remove_stars(model, &image, NULL, NULL, &results) == NEBULEX_OK) {
 *       use(results.starless.data);
 *     } else {
 *       fprintf(stderr, "%s\n", nebulex_last_error());
 *     }
 *     nebulex_results_free(&results);
 *     nebulex_model_close(model);
 *
 * Pixels. The results are those of the program nebulex2 for the same samples, bit for bit.
 *
 * Errors. Functions that can fail return a nebulex_status. The sentence for people that belongs to
 * it is kept for the calling thread, see nebulex_last_error. No exception leaves the library, it
 * prints nothing, sets no signal handler, never ends the process and changes nothing that other
 * parts of the process could notice.
 *
 * Threads. Every function may be called from any thread. One model may be used by several threads
 * at once: their calls take turns, a tile each, and get the same results as alone. Several models
 * run side by side. The callbacks of a call run on the thread that made the call, while the library
 * holds no lock, and may themselves call every function, also with the same model. They must return
 * in the ordinary way: no exception and no longjmp may leave them.
 *
 * Ownership. Whatever the caller gives stays the caller's, and nothing of it is kept after a
 * function has returned. What nebulex_*_open gives goes back to nebulex_*_close, and what
 * nebulex_remove_stars allocates to nebulex_results_free; both take NULL, too.
 *
 * Growth. Structures whose first member is a size may get further members at their end. Their init
 * functions set the defaults, and members that the caller's size does not reach have them. A
 * size beyond what the library knows is NEBULEX_BAD_ARGUMENT: the program was compiled with a newer
 * header. Numbers of constants never change their meaning.
 */
#ifndef NEBULEX_NEBULEX_H
#define NEBULEX_NEBULEX_H

#include <stddef.h>
#include <stdint.h>

#include <nebulex/version.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define NEBULEX_API __attribute__((visibility("default")))
#else
#define NEBULEX_API
#endif

/* --- Status --- */

typedef int32_t nebulex_status;

enum {
  NEBULEX_OK = 0,
  NEBULEX_BAD_ARGUMENT = 1,  /* a pointer, a setting, strides, a buffer: the call is wrong */
  NEBULEX_BAD_MODEL = 2,     /* the network cannot be found or read, or does not run */
  NEBULEX_BAD_IMAGE = 3,     /* too small, too large, samples out of range or not finite */
  NEBULEX_OUT_OF_MEMORY = 4, /* the model stays usable */
  NEBULEX_STOPPED = 5,       /* the stop callback said so; the model stays usable */
  NEBULEX_INTERNAL = 6       /* the network failed on a tile, or a fault of the library */
};

/* What went wrong in this thread's last call that returns a status: the sentence that the program
 * would print, in UTF-8, without a line feed at its end. "" after NEBULEX_OK. Valid until this
 * thread's next such call. */
NEBULEX_API const char* nebulex_last_error(void);

/* "bad argument", "stopped", ...; "unknown" for numbers that are no status. Never NULL. */
NEBULEX_API const char* nebulex_status_name(nebulex_status status);

/* The library's version at run time, such as "2.6.2"; NEBULEX_VERSION is the header's. */
NEBULEX_API const char* nebulex_version(void);

/* --- Messages --- */

enum {
  NEBULEX_INFO = 0,   /* a fact about the run */
  NEBULEX_WARNING = 1 /* something is lost or not as asked for */
};

/* Takes a message for people. `code` says what it is about and is meant for programs: the codes are
 * those of the program's diagnostics ("linear_mtf", "data_loss", "inference_backend", ...). Both
 * texts are UTF-8 and valid during the call. */
typedef void (*nebulex_message_fn)(void* context, int32_t severity, const char* code,
                                   const char* message);

/* --- Models --- */

/* A network that is ready to run. */
typedef struct nebulex_model nebulex_model;

enum {
  NEBULEX_PROVIDER_AUTO = 0, /* a graphics card where one can be used, else the processor */
  NEBULEX_PROVIDER_CPU = 1   /* the processor, whatever else there is */
};

typedef struct nebulex_model_options {
  size_t size;            /* sizeof(nebulex_model_options) of the caller */
  int32_t provider;       /* NEBULEX_PROVIDER_AUTO by default */
  int32_t threads;        /* threads that compute a tile, 1..1024; 0, the default, for as many as
                             there are processors that the process may use */
  nebulex_message_fn log; /* gets messages while the model is opened; NULL by default */
  void* log_context;      /* handed to `log` */
} nebulex_model_options;

/* Sets the defaults of the first `size` bytes, and `size` itself. NEBULEX_BAD_ARGUMENT for NULL and
 * for a size that is unknown. */
NEBULEX_API nebulex_status nebulex_model_options_init(nebulex_model_options* options, size_t size);

/* Opens a network and runs it once, which takes about as long as two tiles. `path` is the file, in
 * UTF-8; NULL for the network that comes with the library, which is looked for
 *
 *     beside the shared library libnebulex,
 *     in the folder nebulex2/ beside it,
 *     in the folder nebulex2/ beside the library's own folder.
 *
 * `options` may be NULL for the defaults. `*model` is set on success only; it may be closed by
 * nebulex_model_close. NEBULEX_BAD_ARGUMENT, NEBULEX_BAD_MODEL, NEBULEX_OUT_OF_MEMORY.
 *
 * A process has one environment of ONNX Runtime. Where other code of the process made it first,
 * what ONNX Runtime logs goes there. */
NEBULEX_API nebulex_status nebulex_model_open(const char* path,
                                              const nebulex_model_options* options,
                                              nebulex_model** model);

/* Lets go of a model that no call uses any more. NULL is fine. */
NEBULEX_API void nebulex_model_close(nebulex_model* model);

/* What computes the tiles: "CPU execution provider", "CUDA execution provider" or "DirectML
 * execution provider". Valid until the model is closed; "" for NULL. */
NEBULEX_API const char* nebulex_model_provider(const nebulex_model* model);

/* The file of the network, in UTF-8. Valid until the model is closed; "" for NULL. */
NEBULEX_API const char* nebulex_model_path(const nebulex_model* model);

/* --- Images --- */

/* Sample types, in the byte order of the machine. Integers are divided by their greatest value, 255
 * or 65535, floating samples by `white` of the settings; 1 is white after that. */
enum {
  NEBULEX_U8 = 1,  /* uint8_t */
  NEBULEX_U16 = 2, /* uint16_t */
  NEBULEX_F32 = 3, /* float */
  NEBULEX_F64 = 4  /* double */
};

/* An image to look at: rows from top to bottom, pixels from left to right, one channel (grey) or
 * three (red, green, blue). The sample of row r, column c and channel k lies at the address
 *
 *     (const char*)data + r * row_stride + c * pixel_stride + k * channel_stride
 *
 * which needs no alignment. Strides are in bytes and may be negative (an image stored from bottom
 * to top, for example). 0 stands for packed, from the last line of the following to the first:
 *
 *     row_stride      width * pixel_stride
 *     pixel_stride    channels * size of a sample
 *     channel_stride  size of a sample
 *
 * so that interleaved samples without gaps have three zeros, and planar ones {size * width, size,
 * size * width * height}. No two samples may share a byte. */
typedef struct nebulex_view {
  const void* data;
  int64_t width;          /* pixels */
  int64_t height;         /* pixels */
  int32_t channels;       /* 1 or 3 */
  int32_t sample_type;    /* NEBULEX_U8 ... NEBULEX_F64 */
  int64_t row_stride;     /* bytes; 0 is packed */
  int64_t pixel_stride;   /* bytes; 0 is packed */
  int64_t channel_stride; /* bytes; 0 is packed */
} nebulex_view;

/* Room for an image, laid out like a nebulex_view. */
typedef struct nebulex_buffer {
  void* data;
  int64_t width;
  int64_t height;
  int32_t channels;
  int32_t sample_type;
  int64_t row_stride;
  int64_t pixel_stride;
  int64_t channel_stride;
} nebulex_buffer;

/* --- Star removal --- */

/* Layers beside the starless image, to be joined with |. */
enum {
  NEBULEX_MASK = 1,    /* image - starless, within [0, white]: where the stars were */
  NEBULEX_UNSCREEN = 2 /* the stars as a layer from which the image can be rebuilt:
                          image = starless + unscreen * (1 - starless), white being 1 */
};

typedef struct nebulex_settings {
  size_t size;      /* sizeof(nebulex_settings) of the caller */
  int32_t stride;   /* pixels between tiles: even, 2..512; 256 by default */
  int32_t layers;   /* NEBULEX_MASK | NEBULEX_UNSCREEN; 0 by default */
  int32_t linear;   /* not 0 for data that has not been stretched */
  int32_t upsample; /* not 0 to work on a doubled grid, for small or undersampled images */
  int32_t protect_highlights; /* not 0, the default, to put back near-white highlights that
                                 hardly changed */
  int32_t reserved;           /* 0 */
  double shadows_clipping;  /* with `linear`: finite, negative, a multiple of the normalised median
                               absolute deviation; -2.8 by default */
  double target_background; /* with `linear`: the level that the stretch gives to the median, within
                               (0, 1); 0.25 by default */
  double white;             /* of floating samples: the number that stands for white, finite and
                               above 0; 1 by default. Integers need 1 here */
} nebulex_settings;

/* As nebulex_model_options_init. */
NEBULEX_API nebulex_status nebulex_settings_init(nebulex_settings* settings, size_t size);

/* What a call tells and asks. Each function may be NULL. */
typedef struct nebulex_callbacks {
  size_t size;   /* sizeof(nebulex_callbacks) of the caller */
  void* context; /* handed to each function */
  /* Tells how many tiles are done, of how many: 0 first, then rising by one to `total`, which comes
   * last. Not called any more once the run is stopped. */
  void (*progress)(void* context, int64_t done, int64_t total);
  /* Asked about twenty times a second while tiles are computed, and between the steps of a run;
   * anything but 0 stops it. The tile at hand is broken off, and the call returns NEBULEX_STOPPED
   * within a second. */
  int32_t (*stop_requested)(void* context);
  nebulex_message_fn message;
} nebulex_callbacks;

/* As nebulex_model_options_init; no callback is set. */
NEBULEX_API nebulex_status nebulex_callbacks_init(nebulex_callbacks* callbacks, size_t size);

/* Where the results of a call go. Each buffer is either the caller's, which then has the image's
 * width, height, channels and sample type, and strides of its own; or its data is NULL, and the
 * library allocates it, packed, and fills in all members. A layer that is not asked for is left
 * alone. */
typedef struct nebulex_results {
  size_t size;             /* sizeof(nebulex_results) of the caller */
  nebulex_buffer starless; /* the image without its stars */
  nebulex_buffer mask;     /* in units of the image */
  nebulex_buffer unscreen; /* integers: of their greatest value; floating samples: a fraction within
                              [0, 1], whatever `white` is */
  void* allocations;       /* the library's own; NULL at first */
} nebulex_results;

/* As nebulex_model_options_init: all buffers are to be allocated. */
NEBULEX_API nebulex_status nebulex_results_init(nebulex_results* results, size_t size);

/* Frees what the library allocated in these results and makes those buffers empty again; the
 * caller's own are left alone. NULL is fine, and so is calling it twice. */
NEBULEX_API void nebulex_results_free(nebulex_results* results);

/* Takes the stars out of an image of at least 512 x 512 pixels, or 256 x 256 with `upsample`.
 * Results have the image's size, channels and sample type. `settings` and `callbacks` may be NULL
 * for the defaults.
 *
 * An image of three equal channels is processed as the grey one that it is, and its results have
 * three equal channels. Floating samples lie within [0, white]; with `linear` those below 0 are
 * welcome, too. Nothing is rescaled by what is found. The layers are made from the starless image
 * as it is stored, rounding and all.
 *
 * The results' buffers must neither overlap each other nor the image, each taken from its first
 * byte to its last. They are written when everything is computed, and stay as they were after any
 * failure; but for NEBULEX_OUT_OF_MEMORY, after which they may be written in part.
 *
 * NEBULEX_BAD_ARGUMENT, NEBULEX_BAD_IMAGE, NEBULEX_OUT_OF_MEMORY, NEBULEX_STOPPED,
 * NEBULEX_INTERNAL. */
NEBULEX_API nebulex_status nebulex_remove_stars(nebulex_model* model, const nebulex_view* image,
                                                const nebulex_settings* settings,
                                                const nebulex_callbacks* callbacks,
                                                nebulex_results* results);

#ifdef __cplusplus
}
#endif

#endif /* NEBULEX_NEBULEX_H */
