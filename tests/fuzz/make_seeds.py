#!/usr/bin/env python3
"""Writes the files that the fuzz targets start from: make_seeds.py FOLDER

Each target gets a folder of its own name. The files are small and right, or nearly so; the same
ones each time.
"""

import gzip
import io
import os
import pathlib
import sys

os.environ["OPENCV_IO_ENABLE_OPENEXR"] = "1"

import cv2
import numpy as np
import PIL.Image
import tifffile
from astropy.io import fits
from onnx import TensorProto, helper, numpy_helper

SEED = 20250117
ROWS, COLUMNS = 12, 16

HEADERS = {
    "short": "SIMPLE  =                    T\nBITPIX  =                   16\nEND",
    "without_depth": "SIMPLE  =                    T\nOBJECT  = 'M 31    '\nEND",
    "crlf": "SIMPLE  =                    T\r\nBITPIX  =                    8\r\nEND\r\n\0",
    "blank_lines": "SIMPLE  = T\n\n\nBITPIX  =\nBITPIX  = 1\nEND   \n\n",
    "no_header": "made with a camera",
}


def random(shape, dtype):
    """Noise over a ramp, so that compression and prediction have something to do."""
    numbers = np.random.RandomState(SEED)
    ramp = np.linspace(0, 0.8, int(np.prod(shape))).reshape(shape)
    values = ramp + numbers.uniform(0, 0.2, shape)
    if np.issubdtype(dtype, np.integer):
        return (values * np.iinfo(dtype).max).astype(dtype)
    return values.astype(dtype)


def half_tensor(name, count, packed_dims=False):
    """A tensor declared as FLOAT that holds two bytes an element."""
    tensor = TensorProto()
    tensor.name = name
    tensor.data_type = TensorProto.FLOAT
    tensor.dims.extend([count, 1] if not packed_dims else [])
    tensor.raw_data = random((count,), np.float16).tobytes()
    if not packed_dims:
        return tensor.SerializeToString()
    return tensor.SerializeToString() + b"\x0a\x02" + bytes([count, 1])


def field(number, payload):
    """A length-delimited protobuf field."""
    length = len(payload)
    encoded = b""
    while length > 127:
        encoded += bytes([length % 128 + 128])
        length //= 128
    return bytes([number * 8 + 2]) + encoded + bytes([length]) + payload


def models():
    image = helper.make_tensor_value_info("input", TensorProto.FLOAT, [1, 4, 4, 3])
    result = helper.make_tensor_value_info("output", TensorProto.FLOAT, [1, 4, 4, 3])
    weights = [numpy_helper.from_array(random((4, 4), np.float32), "single"),
               numpy_helper.from_array(np.array([1, -1], np.int64), "shape"),
               numpy_helper.from_array(random((3,), np.float16), "half")]
    graph = helper.make_graph([helper.make_node("Add", ["input", "single"], ["output"])], "test",
                              [image], [result], weights)
    plain = helper.make_model(graph).SerializeToString()
    half = field(7, field(5, half_tensor("a", 3)) + field(5, half_tensor("b", 63)))
    packed = field(7, field(5, half_tensor("c", 5, packed_dims=True)))
    return {"plain": plain, "half": half, "packed": packed, "both": plain + half,
            "two_payloads": field(7, field(5, half_tensor("d", 2) + field(9, b"\0\x3c\0\xbc"))),
            "no_elements": field(7, field(5, b"\x08\x00\x10\x01\x4a\x00"))}


def halves():
    edges = [0x0000, 0x8000, 0x0001, 0x83FF, 0x0400, 0x3C00, 0x7BFF, 0x7C00, 0xFC00, 0x7C01, 0xFE00]
    return {"edges": np.array(edges, np.uint16).tobytes(), "odd": b"\0\x3c\0",
            "ramp": np.arange(0, 65536, 257, dtype=np.uint16).tobytes()}


def tiffs(description):
    """Small files of every form: byte orders, BigTIFF, several pages."""
    made = {}
    for order in "<", ">":
        for is_big in False, True:
            for pages in 1, 2:
                stream = io.BytesIO()
                with tifffile.TiffWriter(stream, bigtiff=is_big, byteorder=order) as writer:
                    for _ in range(pages):
                        writer.write(random((4, 5), np.uint16), description=description,
                                     metadata=None, software=None)
                name = f"{'little' if order == '<' else 'big'}_{'bigtiff' if is_big else 'tiff'}_{pages}"
                made[name] = stream.getvalue()
    return made


def described_tiffs():
    return {f"{form}_{name}": data for name, text in HEADERS.items()
            for form, data in tiffs(text.encode()).items()}


def appendices():
    """The length of a header, the header, a file."""
    made = {}
    for name, text in HEADERS.items():
        header = text.encode()
        for form, data in tiffs(b"before").items():
            made[f"{form}_{name}"] = len(header).to_bytes(2, "little") + header + data
    return made


def headers():
    return {f"{name}_{depth}": bytes([depth]) + text.encode()
            for name, text in HEADERS.items() for depth in (8, 16, 32)}


def fits_bytes(*hdus):
    stream = io.BytesIO()
    fits.HDUList(list(hdus)).writeto(stream, output_verify="silentfix")
    return stream.getvalue()


def random_groups():
    """Four groups of a parameter and three samples, and an image behind them."""
    cards = ["SIMPLE  = T", "BITPIX  = 16", "NAXIS   = 2", "NAXIS1  = 0", "NAXIS2  = 3", "EXTEND  = T",
             "GROUPS  = T", "PCOUNT  = 1", "GCOUNT  = 4", "END"]
    header = "".join(card.ljust(80) for card in cards).ljust(2880).encode()
    image = fits_bytes(fits.PrimaryHDU(), fits.ImageHDU(random((ROWS, COLUMNS), np.uint16)))
    return header + random((4, 4), np.int16).tobytes().ljust(2880, b"\0") + image[2880:]


def fits_files():
    made = {}
    for dtype in np.uint8, np.int16, np.uint16, np.int32, np.uint32, np.int64, np.float32, np.float64:
        name = np.dtype(dtype).name
        made[name] = fits_bytes(fits.PrimaryHDU(random((ROWS, COLUMNS), dtype)))
        made[f"cube_{name}"] = fits_bytes(fits.PrimaryHDU(random((3, 5, 4), dtype)))
    interleaved = fits.PrimaryHDU(random((5, 4, 3), np.uint16))
    interleaved.header["CTYPE1"] = "RGB"
    made["interleaved"] = fits_bytes(interleaved)
    scaled = fits.PrimaryHDU(random((ROWS, COLUMNS), np.int16))
    scaled.header.update({"BSCALE": 0.5, "BZERO": 100.0, "BLANK": -32768, "DATAMIN": 0.0,
                          "DATAMAX": 1e5})
    made["scaled"] = fits_bytes(scaled)
    long_text = fits.PrimaryHDU(random((ROWS, COLUMNS), np.int16))
    long_text.header["LONGTEXT"] = "x" * 200
    long_text.header["HIERARCH some long keyword"] = 1.5
    long_text.header.add_history("made from a seed")
    made["long_text"] = fits_bytes(long_text)
    undefined = random((ROWS, COLUMNS), np.float32)
    undefined[0, 0] = np.nan
    made["undefined"] = fits_bytes(fits.PrimaryHDU(undefined))
    extension = fits.ImageHDU(random((ROWS, COLUMNS), np.uint16))
    table = fits.BinTableHDU.from_columns([fits.Column("a", "J", array=np.arange(3)),
                                           fits.Column("b", "PE()", array=[[1, 2], [3], []])])
    ascii_table = fits.TableHDU.from_columns([fits.Column("c", "I6", array=np.arange(3))])
    made["extension"] = fits_bytes(fits.PrimaryHDU(), extension)
    made["behind_tables"] = fits_bytes(fits.PrimaryHDU(), table, ascii_table, extension)
    made["groups"] = random_groups()
    for method in "RICE_1", "GZIP_1", "GZIP_2", "PLIO_1", "HCOMPRESS_1":
        for dtype in np.uint8, np.int16, np.int32, np.float32:
            if method == "PLIO_1" and dtype == np.float32:
                continue
            image = random((ROWS, COLUMNS), dtype)
            image = image % 1000 if method == "PLIO_1" else image
            hdu = fits.CompImageHDU(image, compression_type=method)
            made[f"{method}_{np.dtype(dtype).name}"] = fits_bytes(fits.PrimaryHDU(), hdu)
    for name in "int16", "RICE_1_int16":
        made[f"{name}_gz"] = gzip.compress(made[name], mtime=0)
    return made


def encoded(suffix, image, *parameters):
    succeeded, data = cv2.imencode(suffix, image, list(parameters))
    return data.tobytes() if succeeded else None


def with_pillow(image, form, **options):
    stream = io.BytesIO()
    image.save(stream, form, **options)
    return stream.getvalue()


def raster_tiffs():
    made = {}
    compressions = {"none": 1, "lzw": 5, "deflate": 8, "packbits": 32773, "lzma": 34925,
                    "zstd": 50000}
    for name, number in compressions.items():
        for dtype in np.uint8, np.uint16:
            for shape in (ROWS, COLUMNS), (ROWS, COLUMNS, 3):
                made[f"{name}_{np.dtype(dtype).name}_{len(shape)}"] = encoded(
                    ".tif", random(shape, dtype), cv2.IMWRITE_TIFF_COMPRESSION, number)
    for dtype in np.int8, np.int16, np.int32, np.float32, np.float64:
        made[f"tiff_{np.dtype(dtype).name}"] = tiff(random((ROWS, COLUMNS), dtype))
    colour = random((ROWS, COLUMNS, 3), np.uint8)
    made["planar"] = tiff(np.moveaxis(colour, 2, 0).copy(), photometric="rgb",
                          planarconfig="separate")
    made["tiled"] = tiff(random((40, 40), np.uint16), tile=(16, 16))
    made["tiled_colour"] = tiff(random((40, 40, 3), np.uint8), tile=(16, 32), photometric="rgb")
    made["strips"] = tiff(random((ROWS, COLUMNS), np.uint16), rowsperstrip=3)
    made["alpha"] = tiff(random((ROWS, COLUMNS, 4), np.uint16), photometric="rgb")
    made["big_endian"] = tiff(random((ROWS, COLUMNS), np.uint16), byteorder=">")
    made["white_is_zero"] = tiff(random((ROWS, COLUMNS), np.uint8), photometric="miniswhite")
    made["palette"] = with_pillow(PIL.Image.fromarray(colour).quantize(16), "TIFF")
    bilevel = PIL.Image.fromarray(colour).convert("1")
    for compression in "group3", "group4", "tiff_ccitt":
        made[compression] = with_pillow(bilevel, "TIFF", compression=compression)
    for compression in "jpeg", "webp":
        made[f"tiff_{compression}"] = with_pillow(PIL.Image.fromarray(colour), "TIFF",
                                                  compression=compression)
    made["lab"] = with_pillow(PIL.Image.fromarray(colour).convert("LAB"), "TIFF")
    made["cmyk"] = with_pillow(PIL.Image.fromarray(colour).convert("CMYK"), "TIFF")
    return made


def tiff(image, byteorder="<", **options):
    stream = io.BytesIO()
    tifffile.imwrite(stream, image, byteorder=byteorder, metadata=None, **options)
    return stream.getvalue()


def other_pictures():
    made = {}
    colour = random((ROWS, COLUMNS, 3), np.uint8)
    grey = colour[:, :, 0].copy()
    for dtype in np.uint8, np.uint16:
        for channels in 1, 3, 4:
            image = random((ROWS, COLUMNS, channels), dtype)
            made[f"png_{np.dtype(dtype).name}_{channels}"] = encoded(".png", image)
    picture = PIL.Image.fromarray(colour)
    made["png_palette"] = with_pillow(picture.quantize(16), "PNG")
    made["png_bits"] = with_pillow(picture.convert("1"), "PNG")
    made["jpeg"] = with_pillow(picture, "JPEG")
    made["jpeg_grey"] = encoded(".jpg", grey)
    made["jpeg_progressive"] = with_pillow(picture, "JPEG", progressive=True)
    made["jpeg_cmyk"] = with_pillow(picture.convert("CMYK"), "JPEG")
    made["jpeg_restarts"] = encoded(".jpg", colour, cv2.IMWRITE_JPEG_RST_INTERVAL, 1)
    made["bmp"] = encoded(".bmp", colour)
    made["bmp_grey"] = encoded(".bmp", grey)
    made["bmp_palette"] = with_pillow(picture.quantize(16), "BMP")
    made["bmp_bits"] = with_pillow(picture.convert("1"), "BMP")
    made["jp2"] = encoded(".jp2", random((64, 64, 3), np.uint8))
    made["jp2_grey"] = encoded(".jp2", random((64, 64), np.uint16))
    for suffix in ".webp", ".ppm", ".pam", ".ras", ".sr":
        made[suffix[1:]] = encoded(suffix, colour)
    made["j2k"] = with_pillow(picture, "JPEG2000", no_jp2=True)
    made["webp_lossless"] = with_pillow(picture, "WEBP", lossless=True)
    made["pgm"] = encoded(".pgm", random((ROWS, COLUMNS), np.uint16))
    made["ppm_text"] = encoded(".ppm", colour, cv2.IMWRITE_PXM_BINARY, 0)
    made["pbm"] = encoded(".pbm", grey, cv2.IMWRITE_PXM_BINARY, 1)
    for suffix in ".hdr", ".pfm", ".exr":
        made[suffix[1:]] = encoded(suffix, random((ROWS, COLUMNS, 3), np.float32))
    made["gif"] = with_pillow(picture.quantize(16), "GIF")
    made["dicom"] = dicom(grey)
    made["fits"] = fits_bytes(fits.PrimaryHDU(grey))
    return {name: data for name, data in made.items() if data is not None}


def dicom(grey):
    """An uncompressed picture (DICOM PS3.5, explicit value representations)."""

    def element(group, number, kind, value):
        value += b"\0" * (len(value) % 2)
        start = group.to_bytes(2, "little") + number.to_bytes(2, "little") + kind
        if kind in (b"OB", b"OW"):
            return start + b"\0\0" + len(value).to_bytes(4, "little") + value
        return start + len(value).to_bytes(2, "little") + value

    def short(group, number, value):
        return element(group, number, b"US", value.to_bytes(2, "little"))

    meta = element(2, 0x10, b"UI", b"1.2.840.10008.1.2.1")
    rows, columns = grey.shape
    return (b"\0" * 128 + b"DICM" + element(2, 0, b"UL", len(meta).to_bytes(4, "little")) + meta +
            short(0x28, 2, 1) + element(0x28, 4, b"CS", b"MONOCHROME2 ") + short(0x28, 0x10, rows) +
            short(0x28, 0x11, columns) + short(0x28, 0x100, 8) + short(0x28, 0x101, 8) +
            short(0x28, 0x102, 7) + short(0x28, 0x103, 0) +
            element(0x7FE0, 0x10, b"OB", grey.tobytes()))


def command_lines():
    lines = {
        "usual": ["-i", "in.tif", "-o", "out.tif", "-m", "mask.png", "-n", "stars.tif"],
        "long": ["--input", "a b.fits", "--output=x.fits", "--mask", "m.tif", "--unscreen", "u.tif",
                 "--weights", "w.onnx", "--stride", "128", "--quiet", "--upsample"],
        "linear": ["-i", "in.fits", "--linear", "--shadows-clipping", "-2.5",
                   "--target-background", "0.2", "-d", "-q", "-u"],
        "tuning_alone": ["-i", "in.fits", "--target-background", "1e-3"],
        "machine": ["--machine-progress", "--machine-info", "--check-updates", "-i", "x"],
        "help": ["-h"],
        "version": ["--version"],
        "ignored": ["-i", "x", "--", "--ignore_rest", "-s", "8"],
        "joined": ["-ix", "-s8", "-qud"],
        "bad": ["-i", "-o", "-s", "12abc", "--nothing", ""],
    }
    return {name: b"".join(argument.encode() + b"\0" for argument in line)
            for name, line in lines.items()}


def texts():
    return {"plain": b"Reading image.tif", "quotes": b'a "b" \\c\\ /d',
            "control": bytes(range(33)) + b"\x7f", "letters": "é☃🐾\u2028".encode(),
            "not_utf8": b"\xff\xc0\x80\xed\xa0\x80\xf5", "long": b"x\n" * 300}


def studio_requests():
    """Numbers, names, bodies and lines as the studio's server meets them."""
    bodies = {
        "options": b'{"stride": 64, "linear": true, "target": 0.25, "weights": "f1"}',
        "area": b'{"x": 10.5, "y": -3, "width": 800, "height": 600, "options": {}}',
        "files": b'{"files": ["f1", "f2"], "pattern": "{name}_{role}", "replace": false}',
        "progress": b'{"schema":"nebulexastro.cli.progress.v1","event":"progress",'
                    b'"stage":"inference","current":3,"total":8,"percent":37.5}',
        "diagnostic": b'{"schema":"nebulexastro.cli.diagnostic.v1","severity":"warning",'
                      b'"code":"data_loss","message":"3 samples"}',
        "error": b'{"schema":"nebulexastro.cli.progress.v1","event":"error",'
                 b'"stage":"processing","ok":false,"message":"No."}',
    }
    words = [b"-2.8", b"1e-9", b"1000000000", b"{name}_{role}", b"{name} stars", b"../x", b".x",
             b"a=b; nebulex2-studio-4711=0; c", b"http://127.0.0.1:4711"]
    return {**bodies, **{f"word{n}": word for n, word in enumerate(words)}}


SEEDS = {
    "AstroTiffHeaderFuzz": headers,
    "AstroTiffReaderFuzz": described_tiffs,
    "AstroTiffWriterFuzz": appendices,
    "CommandLineFuzz": command_lines,
    "RasterReaderFuzz": lambda: {**raster_tiffs(), **other_pictures()},
    "FitsReaderFuzz": fits_files,
    "HalfFloatFuzz": halves,
    "JsonStringFuzz": texts,
    "ModelPrescanFuzz": models,
    "StudioRequestFuzz": studio_requests,
}


def main():
    folder = pathlib.Path(sys.argv[1])
    for target, make in SEEDS.items():
        (folder / target).mkdir(parents=True, exist_ok=True)
        for name, data in make().items():
            (folder / target / name).write_bytes(data)


if __name__ == "__main__":
    main()
