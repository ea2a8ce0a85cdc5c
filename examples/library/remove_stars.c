/* Takes the stars out of an image with libnebulex: remove_stars IN.ppm OUT.ppm [MODEL.onnx]
 *
 * The images are binary PPM files (P6) of 8 bits a sample. Without a model the one that comes with
 * the library is used. */
#include <nebulex/nebulex.h>

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

struct picture {
  unsigned width;
  unsigned height;
  uint8_t* samples; /* red, green, blue; pixel after pixel */
};

static int read_ppm(const char* path, struct picture* picture) {
  FILE* file = fopen(path, "rb");
  unsigned white = 0;
  size_t count = 0;
  int is_read = 0;
  if (file == NULL) {
    return 0;
  }
  if (fscanf(file, "P6 %5u %5u %3u", &picture->width, &picture->height, &white) == 3 &&
      white == 255 && fgetc(file) != EOF) {
    count = (size_t)picture->width * picture->height * 3;
    picture->samples = malloc(count);
    is_read = picture->samples != NULL && fread(picture->samples, 1, count, file) == count;
  }
  fclose(file);
  return is_read;
}

static int write_ppm(const char* path, const struct picture* picture) {
  const size_t count = (size_t)picture->width * picture->height * 3;
  FILE* file = fopen(path, "wb");
  int is_written = 0;
  if (file == NULL) {
    return 0;
  }
  is_written = fprintf(file, "P6\n%u %u\n255\n", picture->width, picture->height) > 0 &&
               fwrite(picture->samples, 1, count, file) == count;
  return fclose(file) == 0 && is_written;
}

static void show_progress(void* context, int64_t done, int64_t total) {
  (void)context;
  printf("tile %ld of %ld\n", (long)done, (long)total);
}

/* The samples of `picture` are replaced. */
static nebulex_status remove_stars(const char* model_path, struct picture* picture) {
  nebulex_model* model = NULL;
  nebulex_callbacks callbacks;
  nebulex_results results;
  nebulex_view image = {NULL, 0, 0, 3, NEBULEX_U8, 0, 0, 0};
  nebulex_status status = nebulex_model_open(model_path, NULL, &model);
  if (status != NEBULEX_OK) {
    return status;
  }
  image.data = picture->samples;
  image.width = picture->width;
  image.height = picture->height;
  nebulex_callbacks_init(&callbacks, sizeof callbacks);
  callbacks.progress = show_progress;
  nebulex_results_init(&results, sizeof results);
  status = nebulex_remove_stars(model, &image, NULL, &callbacks, &results);
  if (status == NEBULEX_OK) {
    const uint8_t* starless = results.starless.data;
    const size_t count = (size_t)picture->width * picture->height * 3;
    size_t i = 0;
    for (i = 0; i < count; ++i) {
      picture->samples[i] = starless[i];
    }
  }
  nebulex_results_free(&results);
  nebulex_model_close(model);
  return status;
}

int main(int argc, char** argv) {
  struct picture picture = {0, 0, NULL};
  int status = EXIT_FAILURE;
  if (argc < 3) {
    fprintf(stderr, "Usage: remove_stars IN.ppm OUT.ppm [MODEL.onnx]\n");
  } else if (!read_ppm(argv[1], &picture)) {
    fprintf(stderr, "This is no PPM image of 8 bits a sample: %s\n", argv[1]);
  } else if (remove_stars(argc > 3 ? argv[3] : NULL, &picture) != NEBULEX_OK) {
    fprintf(stderr, "%s\n", nebulex_last_error());
  } else if (!write_ppm(argv[2], &picture)) {
    fprintf(stderr, "Unable to write: %s\n", argv[2]);
  } else {
    status = EXIT_SUCCESS;
  }
  free(picture.samples);
  return status;
}
