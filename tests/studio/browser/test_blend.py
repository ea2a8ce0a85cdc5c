"""Putting stars back, and saving what is seen."""

import unittest

import numpy
from astropy.io import fits

from scenes import own_results, read_image, write_network, write_scene
from page import BrowserTest, to_8_bits

PART = (0.5, 0.5, 300)


class BlendTest(BrowserTest):
    def start_with_result(self):
        self.samples = write_scene(self.folder)
        write_network(self.folder)
        page = self.start()
        page.open_from_folder("field.tif")
        self.choose_network(page, "dimmer.onnx")
        page.click("run")
        page.wait_for_text("run-text", "^Done$")
        self.own = own_results(self.folder / "field.tif", self.home / "own")
        page.tab("blend")
        return page

    def blended(self, amount, curve=1.0):
        """The blend of the program's own files, in 16 bits without rounding."""
        starless, unscreen = (self.own[role] / 65535.0 for role in ("starless", "unscreen"))
        return 65535 * (starless + amount * unscreen**curve * (1 - starless))

    def save(self, page, name, form="tif"):
        page("save-name").clear()
        page("save-name").send_keys(name)
        page("save-format").send_keys({"tif": "TIFF", "png": "PNG", "fits": "FITS"}[form])
        page.click("save")

    def wait_until_saved(self, page, name):
        page.wait_for_text("saved", name)
        return self.folder / name

    def test_the_blend_is_shown_and_saved_as_it_is_seen(self):
        page = self.start_with_result()
        page.one_to_one()
        page.set_range("amount", 60)
        page.settle()
        page.wait_for_text("blend-note", "What you see is what is saved")
        page.settle()
        self.assert_shown(page, to_8_bits(self.blended(0.6)), PART)
        self.save(page, "sixty")
        saved = read_image(self.wait_until_saved(page, "sixty.tif"))
        self.assertEqual(saved.dtype, numpy.uint16)
        self.assertLessEqual(numpy.abs(saved - self.blended(0.6)).max(), 0.5 + 1e-6)

    def test_without_stars_the_starless_image_is_saved(self):
        page = self.start_with_result()
        page.set_range("amount", 0)
        self.save(page, "none")
        saved = read_image(self.wait_until_saved(page, "none.tif"))
        numpy.testing.assert_array_equal(saved, self.own["starless"])

    def test_with_all_stars_the_source_comes_back(self):
        page = self.start_with_result()
        page.set_range("amount", 100)
        self.save(page, "all", "png")
        saved = read_image(self.wait_until_saved(page, "all.png")).astype(int)
        self.assertLessEqual(numpy.abs(saved - self.samples).max(), 1)

    def test_a_curve_holds_faint_stars_back(self):
        page = self.start_with_result()
        page.one_to_one()
        page.set_range("amount", 100)
        page.set_range("curve", -1)  # the exponent 2
        page.wait_for_text("curve-value", "held back, exponent 2.00")
        page.settle()
        self.save(page, "curved")
        saved = read_image(self.wait_until_saved(page, "curved.tif"))
        self.assertLessEqual(numpy.abs(saved - self.blended(1, 2)).max(), 0.5 + 1e-6)
        self.assert_shown(page, to_8_bits(self.blended(1, 2)), PART)

    def test_fits_can_be_saved_from_a_fits(self):
        samples = numpy.moveaxis(write_scene(self.folder), 2, 0)
        (self.folder / "field.tif").unlink()
        header = fits.Header({"OBJECT": "M 31"})
        fits.PrimaryHDU(samples, header).writeto(self.folder / "field.fits")
        write_network(self.folder)
        page = self.start()
        page.open_from_folder("field.fits")
        self.choose_network(page, "dimmer.onnx")
        page.click("run")
        page.wait_for_text("run-text", "^Done$")
        page.tab("blend")
        page.set_range("amount", 0)
        self.save(page, "none", "fits")
        path = self.wait_until_saved(page, "none.fits")
        with fits.open(path) as saved, fits.open(self.folder / "field_starless.fits") as own:
            numpy.testing.assert_array_equal(saved[0].data, own[0].data)
            self.assertEqual(saved[0].header["OBJECT"], "M 31")

    def test_nothing_is_replaced_without_asking(self):
        page = self.start_with_result()
        self.expected_log = [r"/save .* 409"]
        there = self.folder / "there.tif"
        there.write_bytes(b"precious")
        self.save(page, "there")
        page.wait(lambda: page("replace").is_displayed(), "a question")
        self.assertIn("there.tif", page.text("replace-names"))
        page.click("replace-no")
        self.assertEqual(there.read_bytes(), b"precious")
        self.save(page, "there")
        page.wait(lambda: page("replace").is_displayed(), "a question")
        page.click("replace-yes")
        self.wait_until_saved(page, "there.tif")
        self.assertEqual(read_image(there).shape, self.samples.shape)

    def test_a_run_asks_before_it_replaces_its_older_result(self):
        page = self.start_with_result()
        self.expected_log = [r"/api/jobs .* 409"]
        page.tab("remove")
        page.click("run")
        page.wait(lambda: page("replace").is_displayed(), "a question")
        self.assertIn("field_starless.tif", page.text("replace-names"))
        page.click("replace-no")
        page.wait(lambda: not page("replace").is_displayed(), "no question")
        self.assertFalse(page("activity").is_displayed())


if __name__ == "__main__":
    unittest.main()
