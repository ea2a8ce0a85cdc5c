"""Starts the real studio on a folder of its own and drives its page in a real browser."""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import time
import unittest

import cv2
import numpy
from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By

STUDIO = pathlib.Path(os.environ["NEBULEX2_STUDIO"])
CHROMIUM = os.environ.get("NEBULEX2_TEST_CHROMIUM", "chromium")
CHROMEDRIVER = os.environ.get("NEBULEX2_TEST_CHROMEDRIVER", "chromedriver")

# The machine may be busy with other tests.
PATIENCE_S = 60
DRAWING_S = 10
SMALL, LARGE = (1280, 720), (2560, 1440)


class Studio:
    """A running studio with folders, settings and cache of its own."""

    def __init__(self, folder, *arguments, home):
        self.home = home
        environment = {
            **os.environ,
            "HOME": str(home),
            "XDG_CONFIG_HOME": str(home / "config"),
            "XDG_CACHE_HOME": str(home / "cache"),
        }
        command = [STUDIO, "--no-browser", "--folder", folder, *arguments]
        # A file, not a pipe: what the studio prints must never make it wait.
        self.log_path = pathlib.Path(tempfile.mkstemp(dir=home, suffix=".log")[1])
        with open(self.log_path, "wb") as log:
            self.process = subprocess.Popen(
                list(map(str, command)), stdin=subprocess.DEVNULL, stdout=log,
                stderr=subprocess.STDOUT, env=environment)
        self.address = self.wait_for_address()

    def wait_for_address(self):
        end = time.monotonic() + PATIENCE_S
        while time.monotonic() < end:
            found = re.search(r"http://127\.0\.0\.1:\d+/\?token=\S+", self.log_path.read_text("utf-8"))
            if found:
                return found.group()
            if self.process.poll() is not None:
                break
            time.sleep(0.02)
        raise AssertionError(f"The studio printed no address: {self.log_path.read_text('utf-8')}")

    @property
    def port(self):
        return re.search(r":(\d+)/", self.address).group(1)

    def stop(self):
        """Ends the studio as Ctrl-C does; its exit status."""
        if self.process.poll() is None:
            self.process.send_signal(2)
        return self.process.wait(PATIENCE_S)

    def kill(self):
        self.process.kill()
        self.process.wait(PATIENCE_S)


def open_browser(size=SMALL):
    options = webdriver.ChromeOptions()
    options.binary_location = shutil.which(CHROMIUM)
    # Without moving pictures in between, what is shown is either the old or the new.
    for argument in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                     "--force-device-scale-factor=1", "--force-prefers-reduced-motion",
                     "--force-color-profile=srgb", f"--window-size={size[0]},{size[1]}"):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service(shutil.which(CHROMEDRIVER)), options=options)
    set_size(driver, size)
    return driver


def set_size(driver, size):
    """Makes the page itself this large, whatever the window's frame takes."""
    driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                           {"width": size[0], "height": size[1], "deviceScaleFactor": 1,
                            "mobile": False})


class Page:
    """What a person sees and does; controls go by the names that screen readers say, or by id."""

    def __init__(self, driver):
        self.driver = driver

    def __call__(self, identifier):
        return self.driver.find_element(By.ID, identifier)

    def all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def wait(self, condition, what):
        """Waits until `condition()` is true, and gives what it gave."""
        end = time.monotonic() + PATIENCE_S
        while True:
            value = condition()
            if value:
                return value
            if time.monotonic() > end:
                raise AssertionError(f"In {PATIENCE_S} s there was never: {what}. {self.said()}")
            time.sleep(0.05)

    def wait_until_live(self):
        self.wait(lambda: self.driver.execute_script("return document.body?.dataset.connection") == "live",
                  "a connection to the studio")

    def said(self):
        words = [one.get_attribute("textContent") for one in self.all("#error-text, #damaged-text")]
        return f"The page says: {words}"

    def text(self, identifier):
        return self(identifier).get_attribute("textContent")

    def wait_for_text(self, identifier, pattern):
        self.wait(lambda: self(identifier).is_displayed() and re.search(pattern, self.text(identifier)),
                  f'"{pattern}" in {identifier}, which says "{self.text(identifier)}"')

    def settle(self):
        """Waits until what is to be seen is loaded and drawn."""
        self.wait(lambda: self("stage").get_attribute("aria-busy") == "false", "a settled image")
        self.driver.execute_async_script(
            "const done = arguments[0]; requestAnimationFrame(() => requestAnimationFrame(done));")
        self.wait(lambda: self("stage").get_attribute("aria-busy") == "false", "a settled image")

    def press(self, *keys):
        """Presses keys wherever the focus is."""
        ActionChains(self.driver).send_keys(*keys).perform()

    def click(self, identifier):
        self(identifier).click()

    def tab(self, name):
        self.click(f"tab-{name}")

    def set_range(self, identifier, value):
        """Moves a slider as a hand would: one event after the other."""
        self.driver.execute_script(
            "const [range, value] = arguments; range.value = value;"
            "range.dispatchEvent(new Event('input', {bubbles: true}));"
            "range.dispatchEvent(new Event('change', {bubbles: true}));",
            self(identifier), value)

    def mode(self, name):
        self.driver.find_element(By.CSS_SELECTOR, f"input[name=mode][value={name}] + span").click()
        self.settle()

    def open_from_folder(self, name):
        """Opens a file of the first folder through the dialog and waits until it is seen."""
        self.click("open")
        self.entry(name).click()
        self.wait_for_image(name)

    def entry(self, name):
        find = """return [...document.querySelectorAll("#entries .entry")]
          .find((one) => one.querySelector(".entry-name").textContent === arguments[0]);"""
        return self.wait(lambda: self.driver.execute_script(find, name), f"{name} in the list of files")

    def wait_for_image(self, name):
        self.wait(lambda: name in self.driver.title, f"{name} in the title")
        self.wait(lambda: self("stage").get_attribute("data-state") == "ready", "an image that is read")
        self.settle()

    def one_to_one(self):
        self.click("one-to-one")
        self.wait(lambda: self.text("scale") == "1:1", "1:1")
        self.settle()

    def screenshot(self):
        """The page as it is seen, rows x columns x RGB."""
        png = numpy.frombuffer(self.driver.get_screenshot_as_png(), numpy.uint8)
        return cv2.imdecode(png, cv2.IMREAD_COLOR)[:, :, ::-1].astype(int)

    def point_at(self, across, down, pane="pane-first"):
        """Points into a pane, by parts of its size; the image's pixel and the screen's pixel there."""
        box = self(pane).rect
        x, y = int(box["x"] + across * box["width"]), int(box["y"] + down * box["height"])
        mouse = ActionChains(self.driver, duration=0)
        mouse.w3c_actions.pointer_action.move_to_location(x, y)
        mouse.perform()
        end = time.monotonic() + PATIENCE_S
        last = None
        # The server is asked for it: the same answer twice is the one for this point.
        while time.monotonic() < end:
            now = re.fullmatch(r"x (\d+)  y (\d+)", self.text("position"))
            if now and last and now.groups() == last:
                return tuple(map(int, now.groups())), (x, y)
            last = now and now.groups()
            time.sleep(0.15)
        raise AssertionError("The position was never told.")


class BrowserTest(unittest.TestCase):
    """A test with a studio of its own, in a browser that the tests of a class share."""

    size = SMALL

    @classmethod
    def setUpClass(cls):
        cls.driver = open_browser(cls.size)
        cls.addClassCleanup(cls.driver.quit)

    def setUp(self):
        base = pathlib.Path(tempfile.mkdtemp(prefix="nebulex2-studio-test-"))
        self.addCleanup(shutil.rmtree, base, ignore_errors=True)
        self.home, self.folder = base / "home", base / "night"
        self.home.mkdir()
        self.folder.mkdir()
        self.studio = None
        self.expected_log = []

    def tearDown(self):
        # OpenSeadragon warns of tiles that arrive when they are no longer wanted.
        entries = [entry["message"] for entry in self.driver.get_log("browser")
                   if entry["level"] == "SEVERE"]
        self.driver.get("about:blank")
        if self.studio:
            self.studio.stop()
        unexpected = [entry for entry in entries
                      if not any(re.search(one, entry) for one in self.expected_log)]
        self.assertEqual(unexpected, [], "the browser's console")

    def start(self, *arguments):
        """Starts the studio on the folder, opens its page and gives it."""
        self.studio = Studio(self.folder, *arguments, home=self.home)
        self.addCleanup(self.studio.kill)
        self.driver.get(self.studio.address)
        page = Page(self.driver)
        page.wait_until_live()
        return page

    def choose_network(self, page, name):
        """Chooses a network of the folder in the options of the page."""
        page.tab("remove")
        page.click("option-weights")
        page.entry(name).click()
        page.wait(lambda: name in page("options").text, f"{name} among the options")

    def assert_shown(self, page, pixels, region, pane="pane-first"):
        """Fails unless the page, at 1:1, shows `pixels` (0 to 255) in a part of the pane.

        `region` is (across, down, side): where its middle lies in the pane by parts of its size, and
        how many pixels it measures. A value halfway between two may be rounded to either.
        """
        across, down, side = region
        (column, row), (x, y) = page.point_at(across, down, pane)
        half = side // 2
        part = pixels[row - half:row + half, column - half:column + half].astype(int)

        def wrong_pixels():
            seen = page.screenshot()[y - half:y + half, x - half:x + half]
            self.assertEqual(part.shape, seen.shape, "the region has to lie within the image")
            return int((numpy.abs(part - seen).max(axis=2) > 1).sum())

        # A tile may be loaded a moment before it is drawn.
        end = time.monotonic() + DRAWING_S
        while (wrong := wrong_pixels()) and time.monotonic() < end:
            time.sleep(0.1)
        self.assertEqual(wrong, 0, f"wrong pixels around column {column}, row {row}")


def to_8_bits(samples):
    """16-bit samples as the page shows them."""
    return numpy.rint(samples / 257.0).astype(int)
