"""Disks that are full, or fail, while results are written."""

import shutil
import subprocess
import unittest

from faults import ALWAYS, EIO, ENOSPC, MOST_FAULTS, SANITIZED, FaultTest, spread, write_astro_tiff
from program import run
from test_outputs import limit_file_size

WRITE_FAILED = (
    r"^(Unable to (write|append|activate|replace|open|inspect) .*"
    r"|(Creating image|Writing .*|Reading quantized output extrema|Closing|Compressing|"
    r"Preserving header metadata) failed for FITS image .+)$"
)

ASTRO_HEADER = "\n".join(
    ["SIMPLE  =                    T", "BITPIX  =                   16", "OBJECT  = 'M 31'"]
    + [f"COMMENT {number:04d}" for number in range(300)]
    + ["END"]
)

MOST_SIZES = MOST_FAULTS // 2

# Every format that is written, each as main result, mask and star layer somewhere.
FORMATS = (
    ("in.tif", ("out.tif", "mask.png", "stars.jpg")),
    ("in.png", ("out.jp2", "mask.pfm", "stars.webp")),
    ("in.fits", ("out.fits", "mask.fits.gz", "stars.fits")),
    ("in.fits", ("out.fits.gz", "mask.bmp", "stars.tif")),
    ("astro.tif", ("out.tif", "mask.tif", "stars.fits.gz")),
)

CAN_MOUNT = (
    subprocess.run(
        ["unshare", "-rm", "mount", "-t", "tmpfs", "none", "/mnt"],
        capture_output=True,
        check=False,
    ).returncode
    == 0
)


class FullDisk(FaultTest):
    def input(self, name="in.tif"):
        if name == "astro.tif":
            return write_astro_tiff(self.path(name), self.stored, ASTRO_HEADER)
        return super().input(name)

    def each_format(self):
        # Under the sanitizers, which are slow, one set for either kind of writer.
        for name, outputs in FORMATS[::3] if SANITIZED else FORMATS:
            with self.subTest(outputs=outputs):
                yield self.input(name), self.outputs(*outputs)

    def fails_for_good(self, call, error):
        for source, outputs in self.each_format():
            failures = self.sweep(call, WRITE_FAILED, source, outputs, path=self.results,
                                  error=error, times=ALWAYS)
            self.assertGreaterEqual(failures, len(outputs))

    def test_no_write_succeeds_from_some_moment_on(self):
        self.fails_for_good("write", ENOSPC)

    def test_no_file_can_be_opened_from_some_moment_on(self):
        self.fails_for_good("open", ENOSPC)

    def test_no_flush_succeeds_from_some_moment_on(self):
        self.fails_for_good("flush", EIO)

    def test_no_rename_succeeds_from_some_moment_on(self):
        self.fails_for_good("rename", EIO)

    def test_errors_may_show_on_closing_only(self):
        self.fails_for_good("close", EIO)

    def test_a_single_failing_write_is_enough(self):
        for source, outputs in self.each_format():
            self.sweep("write", WRITE_FAILED, source, outputs, path=self.results, error=EIO)

    def test_files_that_cannot_grow_beyond_a_size(self):
        for source, outputs in self.each_format():
            complete = self.complete(source, outputs)
            largest = max(path.stat().st_size for path in outputs)
            for size in spread(largest, MOST_SIZES):
                with self.subTest(size=size):
                    self.restore(outputs)
                    result = run(*self.arguments(source, outputs),
                                 preexec=limit_file_size(size - 1))
                    self.failed(result, WRITE_FAILED)
                    self.judge(result, outputs, complete)

    @unittest.skipUnless(CAN_MOUNT, "mounting a file system in a name space is not permitted")
    def test_a_file_system_that_is_full(self):
        # The file system is gone with its name space, so what it held is copied out of it.
        script = (
            'mount -t tmpfs -o "size=$((16 + $1))k" none "$2" && cp "$3"/* "$2" || exit 99; '
            'results=$2; seen=$4; shift 4; "$@"; status=$?; cp -RT "$results" "$seen"; exit $status'
        )
        old, seen = self.path("old"), self.path("seen")
        for source, outputs in self.each_format():
            complete = self.complete(source, outputs)
            # Three plain images, the one that is compressed last included.
            needed = 3 * 12 * 512 * 512 // 1024 + 64
            shutil.rmtree(old, ignore_errors=True)
            self.restore([old / path.name for path in outputs])
            for size in spread(needed, MOST_SIZES):
                with self.subTest(size=size):
                    shutil.rmtree(seen, ignore_errors=True)
                    result = run(*self.arguments(source, outputs), inside=(
                        "unshare", "-rm", "sh", "-c", script, "sh", size, self.results, old, seen))
                    if result.status != 0:
                        self.failed(result, WRITE_FAILED)
                    self.judge(result, [seen / path.name for path in outputs], complete)
            self.assertEqual(result.status, 0, result.err)


if __name__ == "__main__":
    unittest.main()
