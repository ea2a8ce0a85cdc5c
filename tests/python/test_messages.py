"""Warnings and facts that the library tells."""

import unittest
import warnings

import numpy as np

import nebulex
from images import network, star_field


class Messages(unittest.TestCase):
    def test_warnings_are_pythons_and_point_at_the_call(self):
        # 1 becomes 0.9999, a difference that the unscreen layer leaves out near white.
        model = nebulex.Model(network("slightly_dimmer"))
        image = star_field(dtype=np.float32)
        image[10:20, 10:20] = 1
        with warnings.catch_warnings(record=True) as caught:
            warnings.simplefilter("always")
            nebulex.remove_stars(image, stride=512, model=model, unscreen=True,
                                 protect_highlights=False)
        self.assertEqual([warning.category for warning in caught], [nebulex.NebulexWarning])
        self.assertEqual(caught[0].filename, __file__)
        self.assertRegex(str(caught[0].message), "300")
        self.assertEqual(caught[0].message.code, "data_loss")

    def test_facts_go_to_the_logger(self):
        model = nebulex.Model(network("identity"))
        with self.assertLogs("nebulex", "INFO") as logs:
            nebulex.remove_stars(star_field(), stride=512, model=model, linear=True)
        self.assertTrue(any(line.startswith("INFO:nebulex:[linear_mtf]") for line in logs.output),
                        logs.output)

    def test_an_ordinary_run_warns_of_nothing(self):
        with warnings.catch_warnings():
            warnings.simplefilter("error")
            model = nebulex.Model(network("pattern"))
            nebulex.remove_stars(star_field(), model=model, mask=True, unscreen=True)


if __name__ == "__main__":
    unittest.main()
