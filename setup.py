"""Lets pip build the Python package, for the machine it runs on:

    pip install --no-build-isolation .

CMake compiles it, in a build folder of its own; scripts/setup python installs what that needs. The
package then holds the library, ONNX Runtime and the network; OpenCV stays the system's.
"""

import pathlib
import re
import shutil
import subprocess
import sys

import setuptools
from setuptools.command.build_ext import build_ext

ROOT = pathlib.Path(__file__).resolve().parent


def version():
    """It stands in CMakeLists.txt alone."""
    text = (ROOT / "CMakeLists.txt").read_text(encoding="utf-8")
    return re.search(r"^project\(nebulex2 VERSION ([0-9.]+)", text, re.MULTILINE)[1]


class BuildWithCMake(build_ext):
    """Compiles everything and copies what the package needs to run."""

    def build_extension(self, extension):
        build = pathlib.Path(self.build_temp, "cmake").resolve()
        staged = pathlib.Path(self.build_temp, "staged").resolve()
        self._cmake("-G", "Ninja", "-S", ROOT, "-B", build, f"-DPython_EXECUTABLE={sys.executable}",
                    "-DNEBULEX_LAYOUT=wheel", "-DNEBULEX_BUILD_PYTHON=ON",
                    "-DNEBULEX_BUILD_TESTS=OFF", "-DCMAKE_BUILD_TYPE=Release")
        self._cmake("--build", build, "--target", "nebulex_python")
        for component in ("Library", "Python"):
            self._cmake("--install", build, "--prefix", staged, "--component", component, "--strip")
        package = pathlib.Path(self.get_ext_fullpath(extension.name)).parent
        package.mkdir(parents=True, exist_ok=True)
        for file in (staged / "nebulex").iterdir():
            # Of a library and the links to it, the name by which it is asked for.
            if not re.search(r"\.so\.\d+\.", file.name):
                shutil.copyfile(file, package / file.name)

    @staticmethod
    def _cmake(*arguments):
        subprocess.run(["cmake", *map(str, arguments)], check=True)


setuptools.setup(
    version=version(),
    packages=["nebulex"],
    package_dir={"nebulex": "python/nebulex"},
    package_data={"nebulex": ["py.typed", "*.pyi"]},
    ext_modules=[setuptools.Extension("nebulex._nebulex", sources=[])],
    cmdclass={"build_ext": BuildWithCMake},
    zip_safe=False,
)
