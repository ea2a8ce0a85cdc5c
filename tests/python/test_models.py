"""Opening networks."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

import numpy as np

import nebulex
from images import MODELS, network, star_field

FORKED = """
import os, sys
import numpy as np
import nebulex

image = np.linspace(0, 1, 512 * 512, dtype=np.float32).reshape(512, 512)
model = nebulex.Model(sys.argv[1])
expected = nebulex.remove_stars(image, model=model).starless
child = os.fork()
if child == 0:
    try:
        nebulex.remove_stars(image, model=model)
        os._exit(3)
    except nebulex.ModelError as error:
        assert "forked" in str(error), error
    del model
    again = nebulex.remove_stars(image, model=nebulex.Model(sys.argv[1])).starless
    os._exit(0 if np.array_equal(again, expected) else 4)
assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0
assert np.array_equal(nebulex.remove_stars(image, model=model).starless, expected)
"""


class Models(unittest.TestCase):
    def refuse(self, error, message, *arguments, **options):
        with self.assertRaises(error) as caught:
            nebulex.Model(*arguments, **options)
        self.assertRegex(str(caught.exception), message)
        return caught.exception

    def test_the_network_that_comes_with_the_package(self):
        model = nebulex.Model()
        self.assertEqual(pathlib.Path(model.path).name, "Nebulex2_weights.onnx")
        self.assertTrue(pathlib.Path(model.path).is_file())
        self.assertRegex(model.provider, "execution provider$")
        self.assertIn(model.path, repr(model))

    def test_the_first_call_without_a_model_opens_it_and_keeps_it(self):
        from nebulex import _model

        image = star_field(dtype=np.uint8)
        nebulex.remove_stars(image, stride=512)
        kept = _model.model_or_default(None)
        nebulex.remove_stars(image, stride=512)
        self.assertIs(_model.model_or_default(None), kept)

    def test_paths_of_every_kind(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder, "a b \N{PAW PRINTS} [1].onnx")
            path.write_bytes(network("identity").read_bytes())
            for given in (path, str(path), os.fsencode(path)):
                self.assertEqual(nebulex.Model(given).path, str(path))

    def test_files_that_are_no_networks(self):
        for path in (MODELS / "missing.onnx", MODELS, MODELS / "empty.onnx", MODELS / "no_graph.onnx",
                     MODELS / "raw_data_length.onnx", MODELS / "two_inputs.onnx",
                     MODELS / "wrong_shape.onnx", MODELS / "pattern.npy"):
            with self.subTest(path=path.name):
                error = self.refuse(nebulex.ModelError, ".", path)
                self.assertIsInstance(error, RuntimeError)
        self.refuse(nebulex.ModelError, "missing.onnx", MODELS / "missing.onnx")

    def test_options(self):
        for threads in (1, 2):
            self.assertEqual(nebulex.Model(network("identity"), threads=threads).threads, threads)
        self.assertRegex(nebulex.Model(network("identity"), provider="cpu").provider, "^CPU")
        self.refuse(ValueError, "threads", network("identity"), threads=-1)
        self.refuse(ValueError, "threads", network("identity"), threads=2**40)
        self.refuse(ValueError, '"auto" or "cpu"', network("identity"), provider="gpu")
        self.refuse(TypeError, ".", network("identity"), threads=1.5)
        self.refuse(TypeError, ".", 5)

    def test_threads_change_no_sample_of_a_simple_network(self):
        image = star_field(600, 700)
        one, two = (nebulex.remove_stars(image, model=nebulex.Model(network("pattern"), threads=n))
                    for n in (1, 2))
        np.testing.assert_array_equal(one.starless, two.starless)

    def test_a_forked_process_needs_a_model_of_its_own(self):
        subprocess.run([sys.executable, "-c", FORKED, network("identity")], check=True, timeout=120)

    def test_the_version_is_the_projects(self):
        self.assertEqual(nebulex.__version__, os.environ["NEBULEX_VERSION"])


if __name__ == "__main__":
    unittest.main()
