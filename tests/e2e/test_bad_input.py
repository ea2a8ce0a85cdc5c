"""Inputs and models that cannot be used: the message, the status, and nothing written."""

import unittest
import zlib

import cv2
import numpy
import tifffile

from program import FAILURE, ProgramTest, model, run, star_field, write_image

UNREADABLE = (
    "Unable to read input image: {}. Check that the file is a readable TIFF/TIF, PNG, or supported "
    "FITS image."
)


class BadInput(ProgramTest):
    def refused(self, message, path):
        result = self.fail_with(message, "-i", path, "-o", self.path("out.tif"), "-w",
                                model("identity"))
        self.assertFalse(self.path("out.tif").exists())
        return result

    def unreadable(self, path):
        return self.refused(UNREADABLE.format(path), path)

    def test_missing_file(self):
        path = self.path("none.tif")
        self.refused(f"Input image does not exist: {path}", path)

    def test_directory(self):
        for name in ("dir.tif", "dir.fits"):
            path = self.path(name)
            path.mkdir()
            self.refused(f"Input path is not a regular file: {path}", path)

    def test_device(self):
        self.refused("Input path is not a regular file: /dev/null", "/dev/null")

    def test_link_loop_cannot_be_checked(self):
        path = self.path("loop.tif")
        path.symlink_to(path)
        self.refused(
            f"Unable to check input image path: {path} (Too many levels of symbolic links)", path
        )

    def test_zero_byte_files(self):
        for name in ("empty.tif", "empty.png", "empty.jpg", "empty"):
            with self.subTest(name=name):
                path = self.path(name)
                path.touch()
                self.unreadable(path)

    def test_text_and_noise(self):
        for name, content in (("a.tif", b"hello"), ("a.png", b"\x89PNG\r\n\x1a\n"),
                              ("b.tif", b"II*\0\x08\0\0\0"), ("b.png", bytes(range(256)) * 40)):
            with self.subTest(name=name):
                path = self.path(name)
                path.write_bytes(content)
                self.unreadable(path)

    def test_truncated_images_are_refused_wherever_they_are_cut(self):
        stored = star_field(512, 512)
        for name, options in (("plain.tif", {}), ("zip.tif", {"compression": "zlib"}),
                              ("png.png", None)):
            path = self.path(name)
            if options is None:
                write_image(path, stored)
            else:
                tifffile.imwrite(path, stored, photometric="rgb", **options)
            whole = path.read_bytes()
            for share in (0.001, 0.1, 0.5, 0.9, 0.999):
                with self.subTest(name=name, share=share):
                    path.write_bytes(whole[: int(len(whole) * share)])
                    self.unreadable(path)

    def test_own_lzw_outputs_are_refused_when_truncated(self):
        source = self.image("in.png")
        path = self.path("lzw.tif")
        self.succeed("-i", source, "-o", path, "-w", model("identity"))
        whole = path.read_bytes()
        for size in (len(whole) // 3, len(whole) - 200):
            with self.subTest(size=size):
                path.write_bytes(whole[:size])
                self.unreadable(path)

    def test_alpha_channels(self):
        for name, channels in (("rgba.png", 4), ("rgba.tif", 4)):
            with self.subTest(name=name):
                path = self.path(name)
                assert cv2.imwrite(str(path), numpy.full((512, 512, channels), 9, numpy.uint8))
                self.refused(f"Unsupported number of image channels: {channels}", path)

    def test_float_tiff_is_described_then_refused(self):
        path = self.path("float.tif")
        tifffile.imwrite(path, star_field(512, 512).astype(numpy.float32) / 65535)
        result = self.refused(
            "Unsupported image bit depth. Only 8-bit and 16-bit integer inputs are supported.",
            path,
        )
        self.assertEqual(
            result.messages("input_format"),
            ["format=TIFF stored=float32 width=512 height=512 channels=3"],
        )
        self.assertIn("fixed divisor K=1; ", result.messages("input_conversion")[0])

    def test_claims_beyond_all_memory_are_refused(self):
        # A PNG header that claims 2^31 - 1 pixels each way.
        body = b"IHDR" + (2**31 - 1).to_bytes(4, "big") * 2 + bytes([16, 2, 0, 0, 0])
        path = self.path("huge.png")
        path.write_bytes(
            b"\x89PNG\r\n\x1a\n" + (13).to_bytes(4, "big") + body
            + zlib.crc32(body).to_bytes(4, "big")
        )
        self.unreadable(path)


class BadModel(ProgramTest):
    def setUp(self):
        super().setUp()
        self.source = self.image("in.tif")

    def failed(self, weights):
        result = run("-i", self.source, "-o", self.path("out.tif"), "-w", weights, "-q")
        self.assertEqual(result.status, FAILURE)
        self.assertEqual(result.out, "")
        self.assertEqual(self.files(), ["in.tif"])
        return result.err.splitlines()

    def context(self, path, kind):
        return (f"Model context: backend=ONNX Runtime; expected=ONNX model; source=backend caller; "
                f"resolved path='{path}'; path kind={kind}")

    def test_missing_model(self):
        path = self.path("none.onnx")
        lines = self.failed(path)
        self.assertEqual(lines[0], f"Unable to open ONNX model file: {path}")
        self.assertEqual(lines[1], self.context(path, "missing"))
        self.assertTrue(lines[2].startswith("Executable='"))
        self.assertEqual(len(lines), 3)

    def test_model_is_a_directory(self):
        lines = self.failed(self.folder)
        self.assertTrue(lines[0].startswith("Unable to "), lines)
        self.assertTrue(lines[0].endswith(f" ONNX model file: {self.folder}"), lines)
        self.assertEqual(
            lines[1],
            self.context(self.folder,
                         "directory (CoreML .mlpackage/.mlmodelc models are directory bundles)"),
        )

    def test_models_that_the_runtime_refuses(self):
        for name in ("empty", "truncated_varint", "two_inputs"):
            with self.subTest(name=name):
                lines = self.failed(model(name))
                self.assertIn(self.context(model(name), "regular file"), lines)

    def test_models_with_a_wrong_output(self):
        for name in ("wrong_shape", "extra_dim", "one_channel"):
            with self.subTest(name=name):
                lines = self.failed(model(name))
                self.assertEqual(
                    lines[0],
                    "ONNX Runtime CPU fallback initialization failed. Detail: ONNX Runtime warmup "
                    "failed using CPU execution provider for tensor 1x512x512x3. ONNX Runtime "
                    "returned an unexpected output shape.",
                )

    def test_model_that_returns_nan(self):
        self.assertEqual(self.failed(model("nan_output"))[0],
                         "Inference returned non-finite samples.")


if __name__ == "__main__":
    unittest.main()
