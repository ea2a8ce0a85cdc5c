"""What a batch is told, in files and by the program about itself."""

import pathlib
import shutil
import tempfile
import unittest

import batches  # noqa: F401 # makes the package known
import yaml
from batches import BATCH, PROGRAM

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
        self.refuse("layers: [mask, stars]", "layers[1]: 'stars' is not one of ['mask', 'unscreen']")
        self.refuse("exceptions: [{pattern: x, options: [1]}]",
                    "exceptions[0].options[0]: 1 is not of type 'string'")
        self.refuse("[a, b]", "['a', 'b'] is not of type 'object'")

    def test_files_that_cannot_be_read(self):
        for path in (self.file("a: [b"), self.folder / "missing.yaml", self.folder):
            with self.subTest(path=path), self.assertRaises(BatchError) as caught:
                read_file(path)
            self.assertTrue(str(caught.exception).startswith(f"{path} cannot be read: "))

    def resolve(self, **values):
        return resolve({**yaml.safe_load(DEFAULTS.read_text()), "in": "in", "out": "../out",
                        "program": str(PROGRAM), **values}, "/night")

    def test_paths_start_in_the_given_folder(self):
        batch = self.resolve(options=["-w", "models/other.onnx", "--stride", "128"], exceptions=[
            {"pattern": "x", "options": ["--weights", "/a.onnx", "--linear"]}])
        self.assertEqual((batch["in"], batch["out"]), ("/night/in", "/out"))
        self.assertEqual(batch["options"], ["-w", "/night/models/other.onnx", "--stride", "128"])
        self.assertEqual(batch["exceptions"][0]["options"], ["--weights", "/a.onnx", "--linear"])

    def test_a_value_may_begin_with_a_dash(self):
        options = ["--linear", "--shadows-clipping", "-3.1"]
        self.assertEqual(self.resolve(options=options)["options"], options)

    def test_options_of_exceptions_are_checked_too(self):
        with self.assertRaisesRegex(BatchError, r"exceptions\[0\]\.options: the program has no option"):
            self.resolve(exceptions=[{"pattern": "x", "options": ["--frob"]}])

    def test_a_program_that_is_another_one_is_refused(self):
        with self.assertRaisesRegex(BatchError, "does not say what it can do"):
            self.resolve(program="true")


if __name__ == "__main__":
    unittest.main()
