"""Bars and functions."""

import contextlib
import io
import sys
import unittest
import unittest.mock

import numpy as np

import nebulex
from images import network, star_field


class Progress(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.model = nebulex.Model(network("identity"))
        cls.image = star_field(600, 700, dtype=np.uint8)  # 3 x 3 tiles

    def remove(self, progress):
        errors = io.StringIO()
        with contextlib.redirect_stderr(errors):
            nebulex.remove_stars(self.image, model=self.model, progress=progress)
        return errors.getvalue()

    def test_a_function_gets_all_numbers_in_order(self):
        calls = []
        self.remove(lambda done, total: calls.append((done, total)))
        self.assertEqual(calls, [(done, 9) for done in range(10)])

    def test_true_shows_a_bar(self):
        shown = self.remove(True)
        self.assertIn("9/9", shown)
        self.assertTrue(shown.endswith("\n"))

    def test_nothing_is_shown_unasked(self):
        self.assertEqual(self.remove(None), "")
        self.assertEqual(self.remove(False), "")

    def test_without_tqdm_a_warning_says_so(self):
        with unittest.mock.patch.dict(sys.modules, {"tqdm.auto": None}):
            with self.assertWarnsRegex(nebulex.NebulexWarning, "^tqdm is not installed") as caught:
                self.remove(True)
        self.assertEqual(caught.filename, __file__)

    def test_an_error_closes_the_bar(self):
        errors = io.StringIO()
        with contextlib.redirect_stderr(errors), self.assertRaises(nebulex.ImageError):
            nebulex.remove_stars(np.full((512, 512), np.nan), model=self.model, progress=True)
        import tqdm

        self.assertEqual(len(tqdm.tqdm._instances), 0)


if __name__ == "__main__":
    unittest.main()
