"""What the documents show runs, and says what they say."""

import doctest
import inspect
import pathlib
import subprocess
import sys
import tempfile
import unittest

import nebulex
import nebulex.astropy
from images import SOURCE

PACKAGE = SOURCE / "python" / "nebulex"
PUBLIC = [getattr(nebulex, name) for name in nebulex.__all__] + [nebulex.astropy.remove_stars]


class Docstrings(unittest.TestCase):
    def test_examples_give_what_they_show(self):
        for module, least in ((nebulex, 20), (nebulex.astropy, 5)):
            results = doctest.testmod(
                module, extraglobs={"nebulex": nebulex},
                optionflags=doctest.ELLIPSIS | doctest.IGNORE_EXCEPTION_DETAIL)
            self.assertEqual(results.failed, 0, module.__name__)
            self.assertGreaterEqual(results.attempted, least)

    def test_everything_public_has_one_with_its_parameters(self):
        for thing in PUBLIC:
            with self.subTest(thing=thing.__name__):
                self.assertTrue(thing.__doc__)
                self.assertEqual(thing.__module__.partition("._")[0], thing.__module__)
                if inspect.isfunction(thing):
                    self.assertIn("Parameters\n", thing.__doc__)
                    self.assertIn("Returns\n", thing.__doc__)
                    for name in inspect.signature(thing).parameters:
                        self.assertRegex(thing.__doc__, rf"\b{name}\b")


class Types(unittest.TestCase):
    def test_the_marker_and_the_stub_lie_in_the_package(self):
        placed = pathlib.Path(nebulex.__file__).parent
        for name in ("py.typed", "_nebulex.pyi"):
            self.assertEqual((placed / name).read_bytes(), (PACKAGE / name).read_bytes())

    def test_every_public_parameter_has_a_type(self):
        for thing in PUBLIC:
            if inspect.isfunction(thing):
                for parameter in inspect.signature(thing).parameters.values():
                    self.assertIsNot(parameter.annotation, inspect.Parameter.empty, parameter)

    def test_the_stub_has_the_names_of_the_compiled_module(self):
        stub = {}
        exec(compile((PACKAGE / "_nebulex.pyi").read_text(), "stub", "exec"), stub)
        compiled = nebulex._nebulex
        names = {name for name in vars(compiled) if not name.startswith("_")}
        told = {name for name in {*stub, *stub["__annotations__"]} if not name.startswith("_")}
        self.assertEqual(told - {"Callable", "Any", "np", "Messages"}, names)
        for name in ("Model", "Settings"):
            members = {member for member in vars(getattr(compiled, name))
                       if not member.startswith("_")}
            told = {member for member in vars(stub[name]) if not member.startswith("_")}
            told |= set(stub[name].__dict__.get("__annotations__", {}))
            self.assertEqual(told, members)


class Tutorial(unittest.TestCase):
    def test_its_code_runs_and_makes_its_pictures(self):
        with tempfile.TemporaryDirectory() as folder:
            done = subprocess.run([sys.executable, SOURCE / "scripts" / "run-tutorial", folder],
                                  capture_output=True, text=True, check=False)
            self.assertEqual(done.returncode, 0, done.stderr)
            made = {path.name for path in pathlib.Path(folder).glob("*.jpg")}
        page = (SOURCE / "docs" / "python.md").read_text(encoding="utf-8")
        shown = {path.name for path in (SOURCE / "docs" / "images").glob("python-*.jpg")}
        self.assertEqual(made, shown)
        for name in shown:
            self.assertIn(f"](images/{name})", page)


if __name__ == "__main__":
    unittest.main()
