"""Memory that is refused: a message and an exit status, never an abort."""

import unittest

from faults import ALWAYS, ENOMEM, FaultTest

# Smaller blocks than those of an image's rows or planes are not the image's size.
LARGE = 200_000

NO_MEMORY = (
    r"^(Not enough memory to process the image\."
    r"|Unable to (read|write) .*"  # decoders and encoders that say no more
    r"|.+ failed for FITS image .*"
    r"|ONNX Runtime .+(bad_alloc|Failed to allocate memory).*)$"
)


class Memory(FaultTest):
    def test_every_large_allocation_of_a_run_may_fail(self):
        for source, outputs, options in (
            ("in.tif", ("out.tif", "mask.png", "stars.jpg"), ()),
            ("in.fits", ("out.fits", "mask.fits.gz", "stars.png"), ("--linear",)),
            ("in.png", ("out.png", "mask.fits"), ("--upsample",)),
        ):
            with self.subTest(source=source):
                source, outputs = self.input(source), self.outputs(*outputs)
                self.sweep("allocate", NO_MEMORY, source, outputs, *options, size=LARGE,
                           error=ENOMEM, most=24)

    def test_no_large_allocation_succeeds_from_some_moment_on(self):
        self.sweep("allocate", NO_MEMORY, self.input("in.tif"), self.outputs("out.tif", "mask.tif"),
                   size=LARGE, error=ENOMEM, times=ALWAYS, most=12)

    def test_a_run_that_is_out_of_memory_says_so(self):
        self.sweep("allocate", r"^Not enough memory to process the image\.$", self.input("in.tif"),
                   self.outputs("out.tif"), size=LARGE, error=ENOMEM, times=ALWAYS, most=1)


if __name__ == "__main__":
    unittest.main()
