"""What a batch is told, in files and by the program about itself."""

import pathlib
import shutil
import subprocess
import tempfile
import unittest

import tifffile
import yaml
from batches import BATCH, MODELS, PROGRAM, star_field  # also makes the package known

from nebulex_batch import BatchError
from nebulex_batch.configuration import check_values, read_file, resolve

DEFAULTS = BATCH / "config" / "config.yaml"


class Configuration(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="nebulex2-configuration-"))
        self.addCleanup(shutil.rmtree, self.folder)

    def file(self, text):
        path = self.folder / "night.yaml"
        path.write_text(text)
        return path

    def refuse(self, text, message):
        path = self.file(text)
        with self.assertRaises(BatchError) as caught:
            read_file(path)
        self.assertEqual(str(caught.exception), f"{path}: {message}")

    def test_the_defaults_are_complete_but_for_the_folders(self):
        check_values({**read_file(DEFAULTS), "in": "a", "out": "b"})
        with self.assertRaises(BatchError) as caught:
            check_values(read_file(DEFAULTS))
        self.assertEqual(str(caught.exception),
                         "configuration: key 'in' is missing; key 'out' is missing")

    def test_messages_name_file_and_key(self):
        self.refuse("strde: 4", "unknown key 'strde'")
        self.refuse("threads: 0", "threads: 0 is less than the minimum of 1")
        self.refuse("options: --linear", "options: '--linear' is not of type 'array'")
        self.refuse("layers: [mask, stars]", "layers[1]: 'stars' is not one of mask, unscreen")
        self.refuse("suffix: tif", "suffix: 'tif' is not one of .tif, .tiff, .png, .fit, .fits, .fts, "
                    ".fit.gz, .fits.gz, .fts.gz")
        self.refuse("exceptions: [{pattern: x, options: [1]}]",
                    "exceptions[0].options[0]: 1 is not of type 'string'")
        self.refuse("[a, b]", "['a', 'b'] is not of type 'object'")

    def test_files_that_cannot_be_read(self):
        for path in (self.file("a: [b"), self.folder / "missing.yaml", self.folder):
            with self.subTest(path=path), self.assertRaises(BatchError) as caught:
                read_file(path)
            self.assertTrue(str(caught.exception).startswith(f"{path} cannot be read: "))
        self.assertNotIn("Errno", str(caught.exception))

    def resolve(self, **values):
        return resolve({**yaml.safe_load(DEFAULTS.read_text()), "in": "in", "out": "../out",
                        "program": str(PROGRAM), **values}, str(self.folder))

    def test_paths_start_in_the_given_folder(self):
        model, other = self.folder / "models" / "other.onnx", self.folder / "a.onnx"
        model.parent.mkdir()
        model.touch()
        other.touch()
        batch = self.resolve(options=["-w", "models/other.onnx", "--stride", "128"], exceptions=[
            {"pattern": "x", "options": ["--weights", str(other), "--linear"]}])
        self.assertEqual((batch["in"], batch["out"]),
                         (str(self.folder / "in"), str(self.folder.parent / "out")))
        self.assertEqual(batch["options"], ["-w", str(model), "--stride", "128"])
        self.assertEqual(batch["exceptions"][0]["options"], ["--weights", str(other), "--linear"])

    def test_a_value_may_begin_with_a_dash(self):
        options = ["--linear", "--shadows-clipping", "-3.1"]
        self.assertEqual(self.resolve(options=options)["options"], options)

    def test_options_with_which_no_frame_could_be_run_are_refused(self):
        # What the program itself says to each, for every frame: stride is an even whole number from 2
        # to 512, shadows-clipping is below 0, target-background between 0 and 1.
        for words, message in (
                ("--stride", "--stride needs a value."),
                ("--stride abc", "--stride has to be a whole number, not 'abc'."),
                ("--stride 64.0", "--stride has to be a whole number, not '64.0'."),
                ("--stride 0", "--stride has to be at least 2, not 0."),
                ("--stride 514", "--stride has to be at most 512, not 514."),
                ("-s 3", "-s has to be even, not 3."),
                ("--linear --shadows-clipping 0", "--shadows-clipping has to be below 0, not 0."),
                ("--linear --target-background 0", "--target-background has to be above 0, not 0."),
                ("--linear --target-background nan", "--target-background has to be a number, not 'nan'."),
                ("--target-background 0.2", "--target-background needs --linear beside it."),
                ("--upsample -u", "-u is given twice."),
                ("Night", "'Night' is no option. Names with spaces need quotes."),
                ("--weights x.onnx", f"--weights: there is no file {self.folder / 'x.onnx'}."),
        ):
            with self.subTest(words=words), self.assertRaises(BatchError) as caught:
                self.resolve(options=words.split())
            self.assertEqual(str(caught.exception), "options: " + message)
            self.assertNotEqual(self.run_program(*words.split()), 0)
        self.assertEqual(self.run_program("-w", str(MODELS / "identity.onnx"), "--stride", "512"), 0)

    def run_program(self, *options):
        """The program's status on a frame that has nothing wrong."""
        frame = self.folder / "frame.tif"
        tifffile.imwrite(frame, star_field())
        return subprocess.run([PROGRAM, *options, "-i", frame, "-o", self.folder / "result.tif"],
                              cwd=self.folder, check=False, capture_output=True).returncode

    def test_options_of_exceptions_are_checked_too(self):
        with self.assertRaisesRegex(BatchError, r"exceptions\[0\]\.options: the program has no option"):
            self.resolve(exceptions=[{"pattern": "x", "options": ["--frob"]}])

    def test_a_program_that_is_another_one_is_refused(self):
        with self.assertRaisesRegex(BatchError, "does not say what it can do"):
            self.resolve(program="true")


if __name__ == "__main__":
    unittest.main()
