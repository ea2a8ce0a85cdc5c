"""Tiling and blending of the whole program against an independent computation."""

import unittest

import numpy
from astropy.io import fits

from program import MODELS, ProgramTest, model, read_image, run, star_field, write_image

WINDOW = 512


def factor(length, origin, last, stride):
    """Blend factors of one tile along one axis, straight from the definition of the ramps."""
    overlap = length - stride
    half = length // 2
    values = numpy.empty(length)
    for t in range(length):
        d = min(t, length - t)
        if stride == length:
            values[t] = 1
        elif (origin == 0 and t <= half) or (origin == last and t >= half):
            values[t] = 1
        elif stride >= half:
            values[t] = min(d, overlap) / overlap
        else:
            values[t] = (d - (half - stride)) / stride
    return values


def tiled(image, stride, infer):
    """Mirror, cut, infer, weight and add, in double precision."""
    rows, columns = image.shape[:2]
    margin = (WINDOW - stride) // 2
    inner_rows = -(-rows // stride) * stride
    inner_columns = -(-columns // stride) * stride
    padded = numpy.pad(
        image,
        ((margin, inner_rows + margin - rows), (margin, inner_columns + margin - columns), (0, 0)),
        mode="reflect",
    )
    total = numpy.zeros_like(padded)
    start = max(0, margin - stride // 2)
    kept = slice(start, start + min(WINDOW, 2 * (stride // 2 - margin) + WINDOW))
    last_y, last_x = padded.shape[0] - WINDOW, padded.shape[1] - WINDOW
    for x in range(0, last_x + 1, stride):
        for y in range(0, last_y + 1, stride):
            tile = infer(padded[y : y + WINDOW, x : x + WINDOW])
            weights = numpy.outer(
                factor(WINDOW, y, last_y, stride), factor(WINDOW, x, last_x, stride)
            )
            square = total[y : y + WINDOW, x : x + WINDOW]
            square[kept, kept] += (tile * weights[:, :, None])[kept, kept]
    return total[margin : margin + rows, margin : margin + columns]


class Tiling(ProgramTest):
    def test_strides_agree_with_the_independent_computation(self):
        stored = star_field(530, 600, seed=7)
        source = write_image(self.path("in.tif"), stored)
        image = stored / 65535.0
        pattern = numpy.load(MODELS / "pattern.npy").reshape(WINDOW, WINDOW, 1).astype(float)
        for stride in (64, 128, 256, 384, 512):
            with self.subTest(stride=stride):
                output = self.path(f"out{stride}.fits")
                self.succeed("-i", source, "-o", output, "-s", stride, "-d", "-q",
                             "-w", model("pattern"))
                expected = tiled(image, stride, lambda tile: tile * pattern)
                got = numpy.moveaxis(fits.getdata(output), 0, 2)
                self.assertLess(numpy.abs(got - expected).max(), 1e-6)
                # The pattern shows: another stride gives another image.
                self.assertGreater(numpy.abs(got - image).max(), 0.01)

    def test_an_identity_model_returns_the_input_at_every_stride(self):
        source = self.image("in.tif", 512, 700, seed=3)
        for stride in (128, 256, 384, 512):
            with self.subTest(stride=stride):
                output = self.path(f"out{stride}.tif")
                self.succeed("-i", source, "-o", output, "-s", stride, "-q",
                             "-w", model("identity"))
                self.assertTrue((read_image(output) == read_image(source)).all())

    def test_a_constant_image_needs_no_model(self):
        flat = numpy.full((600, 700, 3), (1000, 2000, 3000), numpy.uint16)
        source = write_image(self.path("flat.tif"), flat)
        result = self.succeed("-i", source, "-o", self.path("out.tif"), "-w",
                              self.path("no-model.onnx"))
        self.assertTrue((read_image(self.path("out.tif")) == flat).all())
        self.assertEqual(result.messages("inference_backend"), [])

    def test_images_below_the_window_are_refused(self):
        for rows, columns in ((511, 600), (600, 511), (1, 1)):
            with self.subTest(rows=rows, columns=columns):
                source = self.image("small.png", rows, columns)
                result = self.fail_with("Image size is too small for the window!", "-i", source,
                                        "-o", self.path("out.png"), "-w", model("identity"))
                self.assertEqual(len(result.messages("input_geometry")), 1)
                self.assertEqual(self.files(), ["small.png"])
                self.path("small.png").unlink()

    def test_the_smallest_image_passes(self):
        source = self.image("in.png", 512, 512, channels=1)
        result = run("-i", source, "-o", self.path("out.png"), "-s", 512, "-q", "-w",
                     model("identity"))
        self.assertEqual(result.status, 0, result.err)


if __name__ == "__main__":
    unittest.main()
