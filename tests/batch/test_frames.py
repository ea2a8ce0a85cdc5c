"""Names of frames and of their results."""

import os
import pathlib
import shutil
import tempfile
import unittest

import batches  # noqa: F401 # makes the package known

from nebulex_batch import BatchError
from nebulex_batch.frames import (check_names, find_frames, fits_pattern, frame_id, frame_name,
                                  result_names)

# Names and what the engine and the shell see of them.
NAMES = {
    "light_001.fits": "light_001.fits",
    "night 1/a.tif": "night%201/a.tif",
    "{frame}.tif": "%7Bframe%7D.tif",
    "100%.tif": "100%25.tif",
    "a'b\"c$(d)`e`.tif": "a%27b%22c%24%28d%29%60e%60.tif",
    "*?[x].tif": "%2A%3F%5Bx%5D.tif",
    "line\nend\ttab.tif": "line%0Aend%09tab.tif",
    "ü星.tif": "ü星.tif",
    os.fsdecode(b"latin-\xfc.tif"): "latin-%FC.tif",
}


class Identifiers(unittest.TestCase):
    def test_hold_plain_characters_only(self):
        for name, identifier in NAMES.items():
            with self.subTest(name=name):
                self.assertEqual(frame_id(name), identifier)

    def test_lead_back_to_the_name(self):
        for name in NAMES:
            with self.subTest(name=name):
                self.assertEqual(frame_name(frame_id(name)), name)


class ResultNames(unittest.TestCase):
    def test_keep_folder_and_format(self):
        self.assertEqual(result_names("night.1/a.b.tif", "", []), {"--output": "night.1/a.b.tif"})

    def test_layers_stand_beside(self):
        self.assertEqual(
            result_names("n/a.fits.gz", "", ["mask", "unscreen"]),
            {"--output": "n/a.fits.gz", "--mask": "n/a_mask.fits.gz",
             "--unscreen": "n/a_unscreen.fits.gz"})

    def test_another_suffix_takes_the_place_of_both_parts(self):
        self.assertEqual(result_names("a.b.fits.gz", ".tif", []), {"--output": "a.b.tif"})

    def test_a_folder_with_a_dot_is_no_suffix(self):
        self.assertEqual(result_names("n.gz/a", ".tif", []), {"--output": "n.gz/a.tif"})

    def test_a_layer_that_another_frame_would_replace_is_refused(self):
        with self.assertRaisesRegex(BatchError, "a_mask.tif: a.tif and a_mask.tif"):
            check_names(["a.tif", "a_mask.tif"], "", ["mask"])

    def test_a_name_too_long_for_its_records_is_refused(self):
        check_names(["x" * 236 + ".tif"], "", [])
        with self.assertRaisesRegex(BatchError, "too long"):
            check_names([" " * 100 + ".tif"], "", [])


class Patterns(unittest.TestCase):
    def test_without_a_slash_fit_the_last_part(self):
        self.assertTrue(fits_pattern("night/Light_1.FITS", "light_*.fits"))
        self.assertFalse(fits_pattern("light_1/dark.fits", "light_*"))

    def test_with_a_slash_fit_the_whole_path(self):
        self.assertTrue(fits_pattern("night/a.tif", "night/*"))
        self.assertFalse(fits_pattern("other/night.tif", "night/*"))


class FindFrames(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="nebulex2-frames-"))
        self.addCleanup(shutil.rmtree, self.folder)

    def file(self, name):
        path = self.folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.touch()
        return path

    def test_looks_into_folders_and_leaves_hidden_names_aside(self):
        for name in ("b.tif", "a.TIF", "n/m/c.tif", "n/notes.txt", ".x.tif", ".trash/d.tif"):
            self.file(name)
        self.assertEqual(find_frames(self.folder, ["*.tif"]), ["a.TIF", "b.tif", "n/m/c.tif"])

    def test_takes_links_to_files_and_follows_none_to_folders(self):
        self.file("n/a.tif")
        (self.folder / "b.tif").symlink_to("n/a.tif")
        (self.folder / "n" / "up").symlink_to("..")
        self.assertEqual(find_frames(self.folder, ["*.tif"]), ["b.tif", "n/a.tif"])

    def test_a_folder_that_cannot_be_read_is_an_error(self):
        missing = self.folder / "missing"
        with self.assertRaisesRegex(BatchError, rf"{missing} cannot be read \(No such file.*missing"):
            find_frames(missing, ["*.tif"])


if __name__ == "__main__":
    unittest.main()
