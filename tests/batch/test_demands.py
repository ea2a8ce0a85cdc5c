"""The memory and time that a frame is given, beside what whole runs were measured to take."""

import unittest

import batches  # noqa: F401 # makes the package known

from nebulex_batch.demands import memory_mb, runtime_minutes, stride

# Measured peaks in MB (docs/performance.md): pixels, name, options.
MEASURED = (
    (6e6, "a.tif", [], 267),
    (24e6, "a.tif", [], 807),
    (100e6, "a.tif", [], 3087),
    (24e6, "a.tif", ["--linear"], 1527),
    (100e6, "a.tif", ["--linear"], 6087),
    (6e6, "a.tif", ["--upsample"], 748),
    (100e6, "a.fits", [], 4897),
    (100e6, "a.fits.gz", ["--linear"], 7297),
)


class Memory(unittest.TestCase):
    def test_is_more_than_was_measured_and_at_most_half_as_much_again_over_the_base(self):
        for pixels, name, options, measured in MEASURED:
            with self.subTest(pixels=pixels, name=name, options=options):
                given = memory_mb(pixels, name, options, 1, 10**6)
                self.assertGreater(given, 1.1 * measured)
                self.assertLess(given, 1.5 * measured + 600)

    def test_an_unreadable_frame_gets_the_base(self):
        self.assertEqual(memory_mb(0, "a.tif", [], 1, 10**6), 600)

    def test_grows_with_each_attempt_up_to_the_largest_machine(self):
        first = memory_mb(24e6, "a.tif", [], 1, 10**6)
        self.assertEqual(memory_mb(24e6, "a.tif", [], 3, 10**6), 3 * first)
        self.assertEqual(memory_mb(24e6, "a.tif", [], 3, 2000), 2000)
        self.assertEqual(memory_mb(10**15, "a.tif", [], 1, 64000), 64000)


class Runtime(unittest.TestCase):
    def test_follows_from_the_tiles(self):
        # 6144 x 4096 pixels are 24 x 16 tiles of stride 256. 384 tiles at 0.6 s and 25.2 megapixels
        # at 0.5 s are 243 s; a quarter more and two minutes make 7.06 minutes.
        self.assertEqual(runtime_minutes(6144 * 4096, [], 1, 0.6, 1), 8)
        self.assertEqual(runtime_minutes(6144 * 4096, [], 2, 0.6, 1), 16)

    def test_shrinks_with_processors_and_grows_with_smaller_strides(self):
        # Two processors: 384 * 0.3 + 12.6 = 127.8 s. Stride 128: 1536 * 0.6 + 12.6 = 934.2 s.
        self.assertEqual(runtime_minutes(6144 * 4096, [], 1, 0.6, 2), 5)
        self.assertEqual(runtime_minutes(6144 * 4096, ["-s", "128"], 1, 0.6, 1), 22)

    def test_strides_that_make_no_sense_are_left_to_the_program(self):
        for options, expected in ((["--stride", "64"], 64), (["-s"], 256), (["-s", "x"], 256),
                                  (["-s", "0"], 256), (["-s", "100000"], 256)):
            with self.subTest(options=options):
                self.assertEqual(stride(options), expected)


if __name__ == "__main__":
    unittest.main()
