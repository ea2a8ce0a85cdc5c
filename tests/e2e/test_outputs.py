"""What is on the disk after a run, also after one that failed."""

import os
import resource
import signal
import unittest

from program import FAILURE, ProgramTest, model, read_image, run


def limit_file_size(size):
    """For the child: files cannot grow beyond `size` bytes, as on a disk that fills up."""

    def limit():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (size, size))

    return limit


class Outputs(ProgramTest):
    def setUp(self):
        super().setUp()
        self.source = self.image("in.tif")

    def arguments(self, output, *more):
        return ["-i", self.source, "-o", output, "-w", model("identity"), *more]

    def test_an_existing_file_is_replaced(self):
        output = self.path("out.png")
        output.write_bytes(b"old")
        self.succeed(*self.arguments(output))
        self.assertEqual(read_image(output).shape, (512, 512, 3))
        self.assertEqual(self.files(), ["in.tif", "out.png"])

    def test_a_directory_as_output_is_refused_before_inference(self):
        for name in ("d.tif", "d.png", "d.jpg"):
            with self.subTest(name=name):
                output = self.path(name)
                output.mkdir()
                result = self.fail_with(
                    f"Unable to write output image: {output} (not a regular file)",
                    *self.arguments(output),
                )
                self.assertEqual(result.messages("inference_backend"), [])
                self.assertEqual(list(output.iterdir()), [])

    def test_a_missing_folder_is_refused_before_inference(self):
        output = self.path("no/such/out.tif")
        result = self.fail_with(
            f"Unable to write output image: {output} (No such file or directory)",
            *self.arguments(output),
        )
        self.assertEqual(result.messages("inference_backend"), [])

    def test_a_bad_layer_path_is_refused_before_anything_is_written(self):
        for option in ("-m", "-n"):
            layer = self.path("no/layer.png")
            self.fail_with(
                f"Unable to write output image: {layer} (No such file or directory)",
                *self.arguments(self.path("out.png"), option, layer),
            )
            self.assertEqual(self.files(), ["in.tif"])

    def test_devices_are_never_replaced(self):
        link = self.path("null.png")
        link.symlink_to("/dev/null")
        self.fail_with(f"Unable to write output image: {link} (not a regular file)",
                       *self.arguments(link))

    def test_a_path_shorter_than_the_suffix(self):
        self.fail_with("invalid string position", *self.arguments("abc"), cwd=self.folder)
        self.assertEqual(self.files(), ["in.tif"])

    def test_an_unknown_extension_is_opencvs_own_error(self):
        result = run(*self.arguments(self.path("out.unknown")))
        self.assertEqual(result.status, FAILURE)
        self.assertIn("could not find a writer for the specified extension", result.err)
        self.assertEqual(self.files(), ["in.tif"])

    def test_a_full_disk_is_reported_and_the_old_file_survives(self):
        full = self.path("full.tif")
        self.succeed(*self.arguments(full))
        size = full.stat().st_size
        for extension in (".tif", ".png", ".jpg", ".bmp"):
            output = self.path("out" + extension)
            self.succeed(*self.arguments(output))
            whole = output.read_bytes()
            for limit in (0, 1, 1000, len(whole) // 2, len(whole) - 4096, len(whole) - 1):
                with self.subTest(extension=extension, limit=limit):
                    self.fail_with(
                        f"Unable to write output image: {output} (File too large)",
                        *self.arguments(output), preexec=limit_file_size(limit),
                    )
                    self.assertEqual(output.read_bytes(), whole)
        self.assertEqual(full.stat().st_size, size)
        self.assertEqual(self.files(), ["full.tif", "in.tif", "out.bmp", "out.jpg", "out.png",
                                        "out.tif"])

    def test_a_new_file_on_a_full_disk_leaves_nothing(self):
        output = self.path("out.tif")
        self.fail_with(f"Unable to write output image: {output} (File too large)",
                       *self.arguments(output), preexec=limit_file_size(5000))
        self.assertEqual(self.files(), ["in.tif"])

    def test_the_input_may_be_the_output(self):
        before = read_image(self.source)
        self.succeed("-i", self.source, "-o", self.source, "-w", model("scaling"))
        after = read_image(self.source)
        self.assertLessEqual(abs(after.astype(int) - before.astype(int) / 2).max(), 0.51)

    def test_a_failed_run_keeps_an_input_that_was_to_be_replaced(self):
        before = self.source.read_bytes()
        result = run("-i", self.source, "-o", self.source, "-w", model("nan_output"))
        self.assertEqual(result.status, FAILURE)
        self.assertEqual(self.source.read_bytes(), before)

    def test_a_read_only_folder_is_reported(self):
        if os.geteuid() == 0:
            # Root ignores permissions; a folder of the kernel refuses even root.
            output = "/proc/out.png"
        else:
            self.path("locked").mkdir(mode=0o555)
            output = self.path("locked/out.png")
        result = run(*self.arguments(output))
        self.assertEqual(result.status, FAILURE)
        self.assertRegex(result.err, rf"(?m)^Unable to write output image: {output} \(.+\)$")

    def test_a_link_is_written_through(self):
        self.path("store").mkdir()
        self.path("store/real.tif").write_bytes(b"old")
        self.path("link.tif").symlink_to("store/real.tif")
        self.succeed(*self.arguments(self.path("link.tif")))
        self.assertTrue(self.path("link.tif").is_symlink())
        self.assertEqual(read_image(self.path("store/real.tif")).shape, (512, 512, 3))


if __name__ == "__main__":
    unittest.main()
