"""The page by keyboard alone, for screen readers, in two sizes, and without its server."""

import os
import pathlib
import unittest

import numpy
from selenium.webdriver.common.keys import Keys

from scenes import own_results, read_image, write_linear_fits, write_network, write_scene
from page import LARGE, SMALL, BrowserTest, Studio, set_size

AXE = pathlib.Path(os.environ["NEBULEX2_TEST_AXE"])
SCAN = """
const done = arguments[0];
axe.run(document, {resultTypes: ["violations"]}).then((result) => done(result.violations.map(
  ({impact, id, help, nodes}) => [impact, id, help, ...nodes.map((node) => node.target.join(" "))])));
"""


class KeyboardTest(BrowserTest):
    def focused(self):
        return self.driver.switch_to.active_element

    def tab_to(self, page, identifier):
        """Presses Tab until a control has the focus."""
        for _ in range(120):
            if self.focused().get_attribute("id") == identifier:
                return
            page.press(Keys.TAB)
        raise AssertionError(f"Tab never reached {identifier}.")

    def test_everything_from_opening_to_saving_works_without_a_mouse(self):
        write_scene(self.folder)
        write_network(self.folder)
        page = self.start()
        page.press("o")
        page.entry("field.tif")
        page.wait(lambda: "entry" in (self.focused().get_attribute("class") or ""), "a focused file")
        page.press(Keys.ENTER)
        page.wait_for_image("field.tif")
        self.tab_to(page, "tab-view")
        page.press(Keys.ARROW_RIGHT)
        self.tab_to(page, "option-weights")
        page.press(Keys.ENTER)
        page.entry("dimmer.onnx")
        page.wait(lambda: "entry" in (self.focused().get_attribute("class") or ""), "a focused file")
        page.press(Keys.ENTER)
        page.wait(lambda: "dimmer.onnx" in page("options").text, "the network")
        page.press("R")
        page.wait_for_text("run-text", "^Done$")
        page.press("3", "]")
        page.wait(lambda: page("split").get_attribute("value") == "520", "a slider that has moved")
        page.press("1", "b")
        page.wait(lambda: page.text("label-first") == "Starless", "the other image")
        page.press(",")
        page.wait(lambda: page.text("amount-value") == "45 %", "fewer stars")
        self.tab_to(page, "tab-remove")
        page.press(Keys.ARROW_RIGHT)
        self.tab_to(page, "amount")
        page.press(Keys.HOME)
        self.tab_to(page, "save")
        page.press(Keys.SPACE)
        page.wait_for_text("saved", "field_blend.tif")
        own = own_results(self.folder / "field.tif", self.home / "own")
        numpy.testing.assert_array_equal(read_image(self.folder / "field_blend.tif"), own["starless"])

    def test_every_control_that_has_the_focus_shows_it(self):
        write_scene(self.folder)
        page = self.start(self.folder / "field.tif")
        page.wait_for_image("field.tif")
        seen = set()
        for tab in ("view", "remove", "blend", "queue"):
            page.tab(tab)
            for _ in range(60):
                page.press(Keys.TAB)
                found = self.driver.execute_script(
                    """const own = document.activeElement;
                    const drawn = own.matches(".segment input") ? own.nextElementSibling : own;
                    const style = getComputedStyle(drawn);
                    return [own.id || own.className || own.value || own.tagName, style.outlineStyle,
                      parseFloat(style.outlineWidth)];""")
                name, style, width = found
                if name != "BODY" and name != "split":  # the handle of the slider has a ring of its own
                    self.assertNotEqual(style, "none", name)
                    self.assertGreaterEqual(width, 2, name)
                seen.add(name)
        for name in ("open", "zoom-in", "stretch", "run", "option-stride", "shortcuts-open"):
            self.assertIn(name, seen)

    def test_arrows_move_in_the_image_and_tell_the_value(self):
        write_scene(self.folder)
        page = self.start(self.folder / "field.tif")
        page.wait_for_image("field.tif")
        page.press("z", "+", "+")
        canvas = page.all("#pane-first .openseadragon-canvas")[0]
        canvas.send_keys(Keys.ARROW_RIGHT)
        page.wait(lambda: page.text("announcements").startswith("Column "), "a value that is said")
        before = page.text("position")
        canvas.send_keys(Keys.ARROW_RIGHT)
        page.wait(lambda: page.text("position") not in ("", before), "another position")

    def test_single_keys_can_be_switched_off(self):
        page = self.start()
        page.press("?")
        page.wait(lambda: page("shortcuts").is_displayed(), "the list of keys")
        page.click("letter-keys")
        page.press(Keys.ESCAPE)
        page.press("o")
        self.assertFalse(page("open-dialog").is_displayed())
        page.press("?")
        page.wait(lambda: page("shortcuts").is_displayed(), "the list of keys")

    def test_keys_count_for_nothing_where_text_is_typed(self):
        page = self.start()
        page.tab("remove")
        page("pattern").send_keys("o?p")
        self.assertFalse(page("open-dialog").is_displayed())
        self.assertTrue(page("pattern").get_attribute("value").endswith("o?p"))


class ScreenReaderTest(BrowserTest):
    def scan(self, page, where):
        self.driver.execute_script(AXE.read_text("utf-8"))
        for impact, *what in self.driver.execute_async_script(SCAN):
            with self.subTest(where):
                self.assertNotIn(impact, ("serious", "critical"), what)

    def test_axe_finds_nothing_serious_anywhere(self):
        write_linear_fits(self.folder)
        write_network(self.folder)
        page = self.start()
        self.scan(page, "empty")
        page.click("open")
        page.entry("linear.fits")
        self.scan(page, "open dialog")
        page.entry("linear.fits").click()
        page.wait_for_image("linear.fits")
        self.choose_network(page, "dimmer.onnx")
        self.scan(page, "options and suggestion")
        page.click("option-linear")
        page("option-stride").send_keys("3")
        self.scan(page, "a wrong option")
        page("option-stride").send_keys(Keys.BACKSPACE)
        page.click("run")
        page.wait_for_text("run-text", "^Done$")
        for tab in ("view", "remove", "blend", "queue"):
            page.tab(tab)
            self.scan(page, tab)
        for mode in ("slider", "side", "blend"):
            page.mode(mode)
            self.scan(page, mode)
        page.press("?")
        self.scan(page, "keys")

    def test_progress_is_said(self):
        write_scene(self.folder)
        write_network(self.folder)
        page = self.start()
        page.open_from_folder("field.tif")
        self.choose_network(page, "dimmer.onnx")
        self.driver.execute_script(
            """window.said = [];
            const region = document.getElementById("announcements");
            new MutationObserver(() => window.said.push(region.textContent))
              .observe(region, {childList: true, characterData: true, subtree: true});""")
        page.click("run")
        page.wait(lambda: "field.tif: done" in self.driver.execute_script("return window.said"), "an end that is said")
        self.assertIn("Queued.", self.driver.execute_script("return window.said"))


class SizesTest(BrowserTest):
    def boxes(self, selector):
        return self.driver.execute_script(
            """return [...document.querySelectorAll(arguments[0])].filter((one) => one.offsetParent)
            .map((one) => { const {left, right, top, bottom} = one.getBoundingClientRect();
              return [one.id || one.textContent, left, top, right, bottom]; });""", selector)

    def assert_fits(self, page, size):
        width, height = size
        scroll = self.driver.execute_script(
            "return [document.documentElement.scrollWidth, document.documentElement.scrollHeight]")
        self.assertLessEqual(scroll[0], width)
        self.assertLessEqual(scroll[1], height)
        controls = self.boxes(".head > *, .toolbar > *, [role=tab], .readout, aside")
        for name, left, top, right, bottom in controls:
            self.assertTrue(0 <= left < right <= width and 0 <= top < bottom <= height, name)
        row = self.boxes(".toolbar > fieldset, .toolbar > button, .zoom > *")
        for (name, *one), (other, *two) in ((a, b) for a in row for b in row if a is not b):
            apart = one[2] <= two[0] or two[2] <= one[0] or one[3] <= two[1] or two[3] <= one[1]
            self.assertTrue(apart, f"{name} and {other}")
        _, left, top, right, bottom = self.boxes("#stage")[0]
        self.assertGreater((right - left) * (bottom - top), 0.55 * width * height)

    def test_it_fits_small_and_large_windows(self):
        write_scene(self.folder)
        page = self.start(self.folder / "field.tif")
        page.wait_for_image("field.tif")
        self.addCleanup(set_size, self.driver, SMALL)
        for size in (SMALL, LARGE):
            set_size(self.driver, size)
            for tab in ("view", "remove", "blend", "queue"):
                with self.subTest(size=size, tab=tab):
                    page.tab(tab)
                    self.assert_fits(page, size)


class LostServerTest(BrowserTest):
    def test_the_page_says_that_the_studio_is_gone_and_goes_on_with_a_new_one(self):
        write_scene(self.folder)
        page = self.start(self.folder / "field.tif")
        page.wait_for_image("field.tif")
        self.expected_log = ["ERR_CONNECTION_REFUSED", "ERR_EMPTY_RESPONSE", "ERR_INCOMPLETE_CHUNKED",
                             "403 ", "ERR_CONNECTION_RESET"]
        self.studio.kill()
        page.wait_for_text("connection-text", "does not answer")
        page.tab("remove")
        page.click("preview")
        page.wait_for_text("error-text", "does not answer")
        page.click("error-close")
        port = self.studio.port
        self.studio = Studio(self.folder, "--port", port, home=self.home)
        self.addCleanup(self.studio.kill)
        page.wait_for_text("connection-text", "was started again")
        self.driver.get(self.studio.address)
        page.wait(lambda: not page("connection").is_displayed(), "a connection")

    def test_settings_are_remembered(self):
        write_scene(self.folder)
        page = self.start()
        page.tab("remove")
        page("option-stride").send_keys("128")
        page.click("keep-mask")
        page.wait(lambda: any(self.home.rglob("*.json")), "settings that are kept")
        page.wait(lambda: any("128" in one.read_text() and "mask" in one.read_text()
                              for one in self.home.rglob("*.json")), "these settings")
        self.driver.get("about:blank")
        self.studio.stop()
        page = self.start()
        page.wait(lambda: page("option-stride").get_attribute("value") == "128", "the remembered stride")
        self.assertTrue(page("keep-mask").is_selected())
        self.assertEqual(page("tab-remove").get_attribute("aria-selected"), "true")


if __name__ == "__main__":
    unittest.main()
