"""Results on their way to their places."""

import errno
import os
import pathlib
import shutil
import tempfile
import unittest
import unittest.mock

import batches  # noqa: F401 # makes the package known

from nebulex_batch.records import read_record, stamp, write_record
from nebulex_batch.results import ForeignFile, check_place, is_same, put_in_place


class Places(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="nebulex2-results-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.staged, self.target = self.folder / "staged.tif", self.folder / "out" / "a.tif"
        self.staged.write_bytes(b"result")

    def others(self, content=b"other"):
        self.target.parent.mkdir()
        self.target.write_bytes(content)
        return stamp(self.target)

    def test_a_free_place_is_taken(self):
        put_in_place(self.staged, self.target, [])
        self.assertEqual(self.target.read_bytes(), b"result")
        self.assertFalse(self.staged.exists())

    def test_an_own_result_is_replaced(self):
        own = self.others()
        put_in_place(self.staged, self.target, [own])
        self.assertEqual(self.target.read_bytes(), b"result")

    def test_another_file_is_not_replaced(self):
        own = self.others()
        self.target.write_bytes(b"edited")
        with self.assertRaisesRegex(ForeignFile, "has appeared"):
            put_in_place(self.staged, self.target, [own])
        self.assertEqual(self.target.read_bytes(), b"edited")
        self.assertEqual(self.staged.read_bytes(), b"result")

    def test_a_file_that_comes_at_the_last_moment_is_not_replaced(self):
        # It is not there when looked for, and there when the result is moved.
        self.others()
        with unittest.mock.patch("os.path.lexists", return_value=False):
            with self.assertRaises(ForeignFile):
                put_in_place(self.staged, self.target, [])
        self.assertEqual(self.target.read_bytes(), b"other")

    def test_a_file_system_without_hard_links_will_do(self):
        refusal = OSError(errno.EPERM, "Operation not permitted")
        with unittest.mock.patch("os.link", side_effect=refusal):
            put_in_place(self.staged, self.target, [])
        self.assertEqual(self.target.read_bytes(), b"result")

    @unittest.skipUnless(os.path.isdir("/dev/shm") and
                         os.stat("/dev/shm").st_dev != os.stat(tempfile.gettempdir()).st_dev,
                         "there is one file system only")
    def test_a_result_goes_to_another_file_system_with_its_time(self):
        with tempfile.TemporaryDirectory(dir="/dev/shm") as other:
            before = stamp(self.staged)
            put_in_place(self.staged, pathlib.Path(other, "a.tif"), [])
            self.assertEqual(os.listdir(other), ["a.tif"])
            self.assertEqual(stamp(pathlib.Path(other, "a.tif")), before)
        self.assertFalse(self.staged.exists())

    def test_a_place_within_the_frames_is_refused_whatever_leads_there(self):
        frames = self.folder / "in"
        frames.mkdir()
        (self.folder / "link").symlink_to(frames)
        with self.assertRaises(ForeignFile):
            check_place(self.folder / "link" / "a.tif", frames)
        with self.assertRaises(ForeignFile):
            check_place(self.folder / "link" / "not there yet" / "a.tif", frames)
        check_place(self.target, frames)

    def test_stamps_are_the_same_within_what_a_file_system_keeps(self):
        self.assertTrue(is_same([5, 10**18], [5, 10**18 + 2 * 10**9]))
        self.assertFalse(is_same([5, 10**18], [5, 10**18 + 3 * 10**9]))
        self.assertFalse(is_same([5, 10**18], [6, 10**18]))
        self.assertFalse(is_same(None, None))


class Records(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="nebulex2-records-"))
        self.addCleanup(shutil.rmtree, self.folder)

    def test_come_back_with_names_that_are_no_utf8(self):
        record = {"frame": os.fsdecode(b"latin-\xfc.tif"), "seconds": 1.5}
        write_record(self.folder / "deep" / "a.json", record)
        self.assertEqual(read_record(self.folder / "deep" / "a.json"), record)

    def test_a_damaged_one_counts_as_none(self):
        for content in (b"", b"\0" * 100, b'{"frame": "a', b"[1]", b"\xff"):
            with self.subTest(content=content):
                (self.folder / "a.json").write_bytes(content)
                self.assertIsNone(read_record(self.folder / "a.json"))
        self.assertIsNone(read_record(self.folder / "missing.json"))

    def test_a_failed_write_leaves_the_old_one_and_nothing_else(self):
        write_record(self.folder / "a.json", {"number": 1})
        with unittest.mock.patch("os.fsync", side_effect=OSError(errno.ENOSPC, "full")):
            with self.assertRaises(OSError):
                write_record(self.folder / "a.json", {"number": 2})
        self.assertEqual(read_record(self.folder / "a.json"), {"number": 1})
        self.assertEqual(os.listdir(self.folder), ["a.json"])


if __name__ == "__main__":
    unittest.main()
