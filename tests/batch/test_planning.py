"""The lock of a batch."""

import errno
import pathlib
import tempfile
import unittest
import unittest.mock

import batches  # noqa: F401 # makes the package known

from nebulex_batch import BatchError
from nebulex_batch.planning import lock


class Lock(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="nebulex2-lock-")
        self.addCleanup(folder.cleanup)
        self.state = pathlib.Path(folder.name, "out", ".state")
        self.state.mkdir(parents=True)

    def test_one_at_a_time_has_it(self):
        with lock(self.state):
            with self.assertRaisesRegex(BatchError, r"Another run is at work on .*/out \(process \d+ on "):
                lock(self.state)
        lock(self.state).close()

    def test_a_file_system_without_locks_is_refused(self):
        refusal = OSError(errno.ENOSYS, "Function not implemented")
        with unittest.mock.patch("fcntl.flock", side_effect=refusal):
            with self.assertRaisesRegex(BatchError, r"/out is on a file system without locks \(Function"):
                lock(self.state)

    def test_a_folder_that_cannot_be_written_to_is_refused(self):
        place = self.state.parent / "a file"
        place.touch()
        with self.assertRaisesRegex(
                BatchError, r"The folder of the results cannot be written to: .*/a file \(Not a directory"):
            lock(place / ".state")


if __name__ == "__main__":
    unittest.main()
