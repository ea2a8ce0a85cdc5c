"""pip builds a package that needs nothing of the tree."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

from images import SOURCE

TRY = """
import pathlib, sys
import numpy as np
import nebulex

folder = pathlib.Path(sys.argv[1]).resolve()
assert pathlib.Path(nebulex.__file__).is_relative_to(folder), nebulex.__file__
model = nebulex.Model()
assert pathlib.Path(model.path).is_relative_to(folder), model.path
libraries = {line.split()[-1] for line in open("/proc/self/maps") if "/lib" in line}
for name in ("libnebulex", "libonnxruntime"):
    places = {place for place in libraries if name in place}
    assert places and all(place.startswith(str(folder)) for place in places), places
image = np.random.default_rng(1).random((512, 512), np.float32)
assert nebulex.remove_stars(image, model=model, stride=512).starless.shape == image.shape
print(nebulex.__version__)
"""


class Install(unittest.TestCase):
    def test_pip_installs_a_package_that_works_by_itself(self):
        environment = {**os.environ, "PYTHONPATH": ""}
        with tempfile.TemporaryDirectory() as folder:
            done = subprocess.run(
                [sys.executable, "-m", "pip", "install", "--no-build-isolation", "--no-deps",
                 "--no-index", "--target", folder, SOURCE],
                capture_output=True, text=True, env=environment, check=False)
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
            tried = subprocess.run([sys.executable, "-c", TRY, folder], capture_output=True,
                                   text=True, cwd="/", env={**environment, "PYTHONPATH": folder},
                                   check=False)
            self.assertEqual(tried.returncode, 0, tried.stderr)
            self.assertEqual(tried.stdout.strip(), os.environ["NEBULEX_VERSION"])
            metadata = list(pathlib.Path(folder).glob("nebulex-*.dist-info/METADATA"))
            self.assertIn(f"Version: {tried.stdout.strip()}", metadata[0].read_text())


if __name__ == "__main__":
    unittest.main()
