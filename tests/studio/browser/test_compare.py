"""Opening, previewing, running, comparing: what the page shows, pixel by pixel."""

import unittest

import numpy
from astropy.io import fits
from astropy.wcs import WCS
from selenium.webdriver.common.keys import Keys

from scenes import (COLUMNS, ROWS, own_results, read_image, write_linear_fits, write_network,
                    write_scene)
from page import BrowserTest, to_8_bits

PART = (0.5, 0.5, 300)
LEFT, RIGHT = (0.3, 0.5, 120), (0.7, 0.5, 120)


class OpeningTest(BrowserTest):
    def test_an_image_of_the_folder_is_shown_with_its_pixels_and_values(self):
        samples = write_scene(self.folder)
        page = self.start()
        page.open_from_folder("field.tif")
        page.one_to_one()
        self.assert_shown(page, to_8_bits(samples), PART)
        (column, row), _ = page.point_at(0.4, 0.6)
        red, green, blue = samples[row, column]
        self.assertEqual(page.text("value"), f"R {red}  G {green}  B {blue}")
        self.assertIn(f"{COLUMNS} × {ROWS} pixels", page.text("fact-size"))

    def test_images_of_the_command_line_are_open_at_once(self):
        write_scene(self.folder, "first.tif", seed=3)
        write_scene(self.folder, "second.tif", seed=4)
        page = self.start(self.folder / "first.tif", self.folder / "second.tif")
        names = page.wait(lambda: [one.text for one in page.all(".image-name")], "open images")
        self.assertEqual(names, ["first.tif", "second.tif"])

    def test_a_file_that_is_handed_over_is_shown(self):
        elsewhere = self.home / "elsewhere.tif"
        samples = write_scene(self.home, elsewhere.name)
        page = self.start()
        page("upload").send_keys(str(elsewhere))
        page.wait_for_image("elsewhere.tif")
        page.one_to_one()
        self.assert_shown(page, to_8_bits(samples), PART)

    def test_a_damaged_image_is_told_in_words_and_others_open_after_it(self):
        samples = write_scene(self.folder)
        whole = (self.folder / "field.tif").read_bytes()
        (self.folder / "damaged.tif").write_bytes(whole[: len(whole) // 3])
        page = self.start()
        page.click("open")
        page.entry("damaged.tif").click()
        page.wait_for_text("damaged-text", "damaged.tif|read|damaged|truncated")
        page.click("damaged-close")
        page.open_from_folder("field.tif")
        page.one_to_one()
        self.assert_shown(page, to_8_bits(samples), PART)

    def test_a_linear_fits_is_stretched_for_the_eye_and_tells_its_sky(self):
        samples = write_linear_fits(self.folder)
        page = self.start()
        page.open_from_folder("linear.fits")
        self.assertTrue(page("stretch").is_selected())
        page.one_to_one()
        stretched = page.screenshot()
        page.click("stretch")
        page.settle()
        unstretched = page.screenshot()
        self.assertLess(unstretched[300, 400].mean() + 20, stretched[300, 400].mean())
        grey = numpy.repeat(to_8_bits(samples)[:, :, None], 3, axis=2)
        self.assert_shown(page, grey, PART)
        (column, row), _ = page.point_at(0.45, 0.55)
        self.assertEqual(page.text("value").split()[0], str(samples[row, column]))
        with fits.open(self.folder / "linear.fits") as file:
            expected = WCS(file[0].header).pixel_to_world(column, row)
        hours = expected.ra.to_string("hourangle", sep=":", pad=True, precision=2)
        self.assertIn(hours, page.text("sky"))

    def test_linear_data_is_suggested_and_not_decided(self):
        write_linear_fits(self.folder)
        page = self.start()
        page.open_from_folder("linear.fits")
        page.tab("remove")
        self.assertFalse(page("option-linear").is_selected())
        page.wait_for_text("suggestion-text", "linear")
        page.click("suggestion-use")
        page.wait(lambda: page("option-linear").is_selected(), "the chosen option")
        self.assertFalse(page("suggestion").is_displayed())
        self.assertTrue(page("option-target_background").is_displayed())


class RunTest(BrowserTest):
    def start_with_scene(self, network="dimmer"):
        self.samples = write_scene(self.folder)
        name = write_network(self.folder, network)
        page = self.start()
        page.open_from_folder("field.tif")
        self.choose_network(page, name)
        return page

    def test_a_preview_is_shown_in_place(self):
        page = self.start_with_scene()
        page.one_to_one()
        page.click("preview")
        page.wait_for_text("preview-text", r"shown in place")
        page.mode("starless")
        own = own_results(self.folder / "field.tif", self.home / "own")
        self.assert_shown(page, to_8_bits(own["starless"]), PART)
        page.mode("source")
        self.assert_shown(page, to_8_bits(self.samples), PART)
        self.assertEqual(sorted(path.name for path in self.folder.iterdir()), ["dimmer.onnx", "field.tif"])
        page.click("preview-drop")
        page.wait(lambda: not page("preview-state").is_displayed(), "no preview")

    def test_a_run_writes_the_programs_own_pixels(self):
        page = self.start_with_scene()
        page.click("keep-unscreen")
        page.click("run")
        page.wait_for_text("run-text", "^Done$")
        own = own_results(self.folder / "field.tif", self.home / "own")
        for role in ("starless", "unscreen"):
            numpy.testing.assert_array_equal(read_image(self.folder / f"field_{role}.tif"), own[role])
        self.assertFalse((self.folder / "field_mask.tif").exists())
        page.tab("queue")
        self.assertIn("field_starless.tif", page("jobs").text)

    def test_every_way_to_compare_shows_its_pixels(self):
        page = self.start_with_scene()
        page.click("run")
        page.wait_for_text("run-text", "^Done$")
        own = own_results(self.folder / "field.tif", self.home / "own")
        source, starless, mask = map(to_8_bits, (self.samples, own["starless"], own["mask"]))
        page.one_to_one()
        with self.subTest("slider"):
            page.mode("slider")
            self.assert_shown(page, source, LEFT)
            self.assert_shown(page, starless, RIGHT)
        with self.subTest("slider by keyboard"):
            page("split").send_keys(Keys.HOME)
            page.settle()
            self.assert_shown(page, starless, LEFT)
            page("split").send_keys(Keys.END)
            page.settle()
            self.assert_shown(page, source, RIGHT)
        with self.subTest("blink"):
            page.mode("starless")
            self.assert_shown(page, starless, PART)
            page.press("b")
            page.settle()
            self.assert_shown(page, source, PART)
            page.press("b")
            page.settle()
            self.assert_shown(page, starless, PART)
        with self.subTest("side by side"):
            page.mode("side")
            self.assert_shown(page, source, (0.5, 0.5, 200), "pane-first")
            self.assert_shown(page, starless, (0.5, 0.5, 200), "pane-second")
            first, _ = page.point_at(0.5, 0.5, "pane-first")
            second, _ = page.point_at(0.5, 0.5, "pane-second")
            self.assertLessEqual(max(abs(a - b) for a, b in zip(first, second)), 1)
        with self.subTest("mask"):
            page.mode("mask")
            self.assert_shown(page, mask, PART)
        with self.subTest("difference"):
            page.mode("difference")
            brightened = numpy.rint(numpy.minimum(own["mask"] * 8.0, 65535) / 257).astype(int)
            self.assert_shown(page, brightened, PART)

    def test_a_run_can_be_stopped_and_leaves_nothing(self):
        self.samples = write_scene(self.folder)
        write_network(self.folder)
        before = sorted(path.name for path in self.folder.iterdir())
        page = self.start()
        page.open_from_folder("field.tif")
        self.choose_network(page, "dimmer.onnx")
        page("option-stride").send_keys("2")
        page.click("run")
        page.wait_for_text("activity-text", r"\d+ of \d+ tiles, \d+ %")
        self.assertGreater(float(page("activity-bar").get_attribute("value")), -1)
        page.click("activity-stop")
        page.wait_for_text("run-text", "^Stopped$")
        self.assertFalse(page("activity").is_displayed())
        self.assertEqual(sorted(path.name for path in self.folder.iterdir()), before)

    def test_runs_wait_in_the_queue(self):
        for number in range(3):
            write_scene(self.folder, f"light_{number}.tif", seed=number)
        write_network(self.folder)
        page = self.start()
        self.choose_network(page, "dimmer.onnx")
        page.click("open")
        page.entry("light_0.tif")
        for box in page.all("#entries input"):
            box.click()
        page.click("queue-chosen")
        page.tab("queue")
        page.wait(lambda: len(page.all(".job[data-state=done]")) == 3, "three runs that are done")
        for number in range(3):
            self.assertTrue((self.folder / f"light_{number}_starless.tif").exists())

    def test_a_closed_page_stops_nothing(self):
        page = self.start_with_scene()
        page.click("run")
        page.wait(lambda: page("activity").is_displayed() or "Done" in page.text("run-text"), "a run")
        self.driver.get("about:blank")
        self.driver.get(self.studio.address.split("?")[0])
        page.wait_for_image("field.tif")
        page.tab("remove")
        page.wait_for_text("run-text", "^Done$")

    def test_warnings_are_shown_word_for_word_with_what_they_mean(self):
        samples = write_scene(self.folder).astype(numpy.float32) / 40000
        fits.PrimaryHDU(numpy.moveaxis(samples, 2, 0)).writeto(self.folder / "bright.fits")
        write_network(self.folder)
        page = self.start()
        page.open_from_folder("bright.fits")
        self.choose_network(page, "dimmer.onnx")
        page.click("option-linear")
        page.click("run")
        page.wait_for_text("run-text", "^Done$")
        warning = page.wait(lambda: page.all("#run-messages .message-text"), "a warning")[0].text
        self.assertRegex(warning, r"^--linear clips \d+ of \d+ samples")
        page.all("#run-messages button")[0].click()
        page.wait_for_text("guide-rows", "Divide it by its white")
        self.assertEqual(page.text("guide-message"), warning)

    def test_a_run_that_fails_says_why_and_the_next_one_works(self):
        page = self.start_with_scene("nan_output")
        page.click("run")
        page.wait_for_text("run-text", "non-finite|finite|NaN")
        self.assertTrue(page("error").is_displayed())
        page.click("error-close")
        write_network(self.folder)
        self.choose_network(page, "dimmer.onnx")
        page.click("run")
        page.wait_for_text("run-text", "^Done$")

    def test_a_wrong_option_is_told_beside_it_and_not_run(self):
        page = self.start_with_scene()
        page("option-stride").send_keys("255")
        page.wait_for_text("option-stride-fault", "even")
        page.click("run")
        page.wait_for_text("error-text", "even")
        self.assertEqual(self.driver.switch_to.active_element.get_attribute("id"), "option-stride")
        self.assertFalse(page("run-state").is_displayed())


if __name__ == "__main__":
    unittest.main()
