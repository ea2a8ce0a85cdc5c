"""Many images through one model hold the memory flat."""

import resource
import unittest

import numpy as np

import nebulex
from images import network, star_field

IMAGES = 1000
WARM = 100
PAGE = resource.getpagesize()


def resident_bytes():
    with open("/proc/self/statm", encoding="ascii") as numbers:
        return int(numbers.read().split()[1]) * PAGE


class Memory(unittest.TestCase):
    def test_1000_images_hold_it_flat(self):
        images = [star_field(512, 512, channels, dtype)
                  for channels in (1, 3) for dtype in (np.uint8, ">u2", np.float32, np.float64)]
        model = nebulex.Model(network("identity"), threads=1)
        sizes = []
        for number in range(IMAGES):
            nebulex.remove_stars(images[number % len(images)], stride=512, mask=True,
                                 model=model, progress=lambda done, total: None)
            sizes.append(resident_bytes())
        # One image of the smallest kind left behind each time would be 225 MiB.
        self.assertLess(max(sizes[-WARM:]) - max(sizes[:WARM]), 16 * 2**20)

    def test_errors_leave_nothing_behind(self):
        image = star_field(512, 512, 3, np.float64)
        image[3, 4, 0] = np.nan
        model = nebulex.Model(network("identity"), threads=1)
        sizes = []
        for _ in range(300):
            with self.assertRaises(nebulex.ImageError):
                nebulex.remove_stars(image, unscreen=True, model=model)
            sizes.append(resident_bytes())
        self.assertLess(max(sizes[-50:]) - max(sizes[:50]), 16 * 2**20)

    def test_a_model_that_nobody_holds_is_closed(self):
        sizes = []
        for _ in range(60):
            nebulex.Model(network("pattern"), threads=1)
            sizes.append(resident_bytes())
        # Each holds the 3 MB of its network and the arena of its warm-up.
        self.assertLess(max(sizes[-10:]) - max(sizes[:20]), 32 * 2**20)


if __name__ == "__main__":
    unittest.main()
