"""Images on the page: their pixels, histograms, values and places in the sky."""

import gzip
import time
import unittest

import cv2
import numpy
import tifffile
from astropy.io import fits
from astropy.wcs import WCS

from studio import Studio, StudioTest, star_field


def shown(normalised):
    """What a sample within [0, 1] is shown as: 8 bits, to nearest, halves to even."""
    return numpy.rint(numpy.clip(normalised, 0, 1) * 255).astype(numpy.uint8)


def stretched(image, shadows_clipping=-2.8, background=0.25):
    """The automatic stretch, as the user guide tells it: a midtones transfer for each channel."""
    def transfer(m, x):
        y = (m - 1) * x / ((2 * m - 1) * x - m)
        return numpy.where(x <= 0, 0.0, numpy.where(x >= 1, 1.0, y))
    planes = []
    for plane in numpy.moveaxis(numpy.atleast_3d(image).astype(numpy.float64), 2, 0):
        median = numpy.median(plane)
        deviation = 1.4826 * numpy.median(numpy.abs(plane - median))
        shadows = min(max(median + shadows_clipping * deviation, 0), 1) if deviation > 0 else 0.0
        planes.append(transfer(float(transfer(background, median - shadows)), plane - shadows))
    return numpy.stack(planes, axis=2)


class Images(StudioTest):
    @classmethod
    def setUpClass(cls):
        cls.studio = Studio()
        cls.studio.__enter__()
        cls.addClassCleanup(cls.studio.__exit__)

    def path(self, name):
        return self.studio.folder / name

    def test_tiles_at_one_to_one_are_the_samples_of_the_file(self):
        image = star_field(700, 530)
        tifffile.imwrite(self.path("rgb.tif"), image)
        state = self.studio.open("rgb.tif")
        self.assertEqual((state["width"], state["height"], state["channels"]), (700, 530, 3))
        self.assertEqual(state["max_level"], 10)
        numpy.testing.assert_array_equal(self.studio.whole(state["id"], "source"),
                                         shown(image.astype(numpy.float32) / numpy.float32(65535)))

    def test_formats_and_depths(self):
        image8 = star_field(300, 260, levels=255)
        cv2.imwrite(str(self.path("8.png")), image8[:, :, ::-1])
        grey = star_field(300, 260)[:, :, 0]
        cv2.imwrite(str(self.path("grey16.png")), grey)
        fits.writeto(self.path("grey.fits"), grey)
        fits.writeto(self.path("rgb.fits"), numpy.moveaxis(star_field(300, 260), 2, 0))
        fits.writeto(self.path("float.fits"), (grey / 65535).astype(numpy.float32))
        (self.path("packed.fits.gz")).write_bytes(gzip.compress(self.path("grey.fits").read_bytes()))
        expected = {"8.png": image8, "grey16.png": shown(grey / 65535),
                    "grey.fits": shown(grey / 65535), "float.fits": shown(grey / 65535),
                    "rgb.fits": shown(star_field(300, 260) / 65535),
                    "packed.fits.gz": shown(grey / 65535)}
        for name, pixels in expected.items():
            with self.subTest(name=name):
                state = self.studio.open(name)
                self.assertEqual(state["state"], "ready", state["error"])
                seen = self.studio.whole(state["id"], "source")
                self.assertEqual(seen.shape, pixels.shape)
                # A half may fall to either side where float32 stands before it.
                self.assertLessEqual(numpy.abs(seen.astype(int) - pixels).max(), 1)
                self.assertGreater((seen == pixels).mean(), 0.999)

    def test_the_stretch_is_the_one_of_the_program(self):
        image = (star_field(400, 300) // 16).astype(numpy.uint16)
        tifffile.imwrite(self.path("linear.tif"), image)
        state = self.studio.open("linear.tif")
        self.assertTrue(state["suggestion"]["linear"])
        self.assertTrue(state["stretch"]["on"])
        for settings, query in (({}, {}), ({"shadows_clipping": -1.5, "background": 0.4},
                                           {"shadows": -1.5, "background": 0.4})):
            with self.subTest(settings=settings):
                seen = self.studio.whole(state["id"], "source", stretch=1, **query)
                expected = stretched(image / 65535, **settings) * 255
                self.assertLessEqual(numpy.abs(seen - expected).max(), 0.51)
        self.assertEqual(
            self.studio.tile(state["id"], "source", state["max_level"]).max(),
            shown(image[:256, :256] / 65535).max())

    def test_a_stretched_picture_is_not_called_linear(self):
        tifffile.imwrite(self.path("bright.tif"), star_field(300, 300))
        state = self.studio.open("bright.tif")
        self.assertFalse(state["suggestion"]["linear"])
        self.assertFalse(state["stretch"]["on"])

    def test_smaller_levels_are_means(self):
        image = star_field(512, 512)
        tifffile.imwrite(self.path("means.tif"), image)
        state = self.studio.open("means.tif")
        half = image.reshape(256, 2, 256, 2, 3).mean(axis=(1, 3)) / 65535 * 255
        self.assertLessEqual(
            numpy.abs(self.studio.tile(state["id"], "source", 8) - half).max(), 0.51)
        self.assertEqual(self.studio.tile(state["id"], "source", 0).shape, (1, 1, 3))

    def test_tiles_that_are_not_there(self):
        tifffile.imwrite(self.path("few.tif"), star_field(300, 300))
        image = self.studio.open("few.tif")["id"]
        for rest in ("source/9/2_0.png", "source/10/0_0.png", "starless/9/0_0.png",
                     "mask/9/0_0.png", "other/9/0_0.png", "source/9/-1_0.png", "source/99/0_0.png",
                     "source/9/999999_999999.png", "source/9/0_0.jpg"):
            with self.subTest(rest=rest):
                answer = self.studio.request("GET", f"/api/images/{image}/tiles/{rest}")
                self.assertEqual(answer.status, 404)
        for query in ("gain=x", "gain=1e9", "stretch=2x", "stretch=1&shadows=1", "amount=nan",
                      "curve=-1", "background=1"):
            with self.subTest(query=query):
                answer = self.studio.request(
                    "GET", f"/api/images/{image}/tiles/source/9/0_0.png?{query}")
                self.assertEqual(answer.status, 400)

    def test_histograms_count_every_sample(self):
        image = star_field(300, 200)
        tifffile.imwrite(self.path("counted.tif"), image)
        state = self.studio.open("counted.tif")
        seen = self.studio.get(f"/api/images/{state['id']}/histogram?bins=64")
        self.assertFalse(seen["sampled"])
        for channel in range(3):
            expected, _ = numpy.histogram(image[:, :, channel] / 65535, 64, (0, 1))
            self.assertEqual(sum(seen["channels"][channel]), 300 * 200)
            # One on the border between two bins may fall to either side in float32.
            self.assertLessEqual(
                numpy.abs(numpy.array(seen["channels"][channel]) - expected).sum(), 8)
        self.assertEqual(
            self.studio.request("GET", f"/api/images/{state['id']}/histogram?bins=9").status, 400)

    def test_values_are_in_the_files_own_units(self):
        random = numpy.random.default_rng(3)
        signed = random.integers(-32768, 32767, (300, 300), numpy.int16)
        header = fits.Header()
        header["BUNIT"] = "ADU"
        fits.writeto(self.path("signed.fits"), signed, header)
        deep = star_field(300, 300)
        tifffile.imwrite(self.path("deep.tif"), deep)
        floats = random.uniform(0, 1, (300, 300)).astype(numpy.float32)
        fits.writeto(self.path("floats.fits"), floats)
        for name, image, unit in (("signed.fits", signed, "ADU"), ("deep.tif", deep, None),
                                  ("floats.fits", floats, None)):
            state = self.studio.open(name)
            for x, y in ((0, 0), (299, 0), (17, 203)):
                with self.subTest(name=name, x=x, y=y):
                    value = self.studio.get(f"/api/images/{state['id']}/value?x={x}&y={y}")
                    self.assertEqual(value["source"]["stored"],
                                     numpy.atleast_1d(image[y, x]).tolist())
                    self.assertEqual(value["unit"], unit)
            for query in ("x=300&y=0", "x=-1&y=0", "x=0", "x=0&y=a"):
                answer = self.studio.request("GET", f"/api/images/{state['id']}/value?{query}")
                self.assertEqual(answer.status, 400)

    def sky_header(self, sip):
        header = fits.Header()
        header["CTYPE1"], header["CTYPE2"] = ("RA---TAN-SIP", "DEC--TAN-SIP") if sip else (
            "RA---TAN", "DEC--TAN")
        header["CRPIX1"], header["CRPIX2"] = 140.25, 88.5
        header["CRVAL1"], header["CRVAL2"] = 359.98, -61.3
        header["CD1_1"], header["CD1_2"] = -2.1e-4, 3e-5
        header["CD2_1"], header["CD2_2"] = 2.7e-5, 2.2e-4
        header["RADESYS"] = "ICRS"
        if sip:
            header["A_ORDER"], header["B_ORDER"] = 2, 2
            header["A_2_0"], header["A_1_1"], header["B_0_2"] = 3e-6, -2e-6, 4e-6
        return header

    def test_places_in_the_sky_are_those_of_another_program(self):
        for sip in (False, True):
            name = f"sky{sip}.fits"
            header = self.sky_header(sip)
            fits.writeto(self.path(name), star_field(300, 300)[:, :, 0], header)
            state = self.studio.open(name)
            self.assertTrue(state["has_wcs"])
            for x, y in ((0, 0), (299, 299), (139, 87), (20, 250)):
                with self.subTest(sip=sip, x=x, y=y):
                    sky = self.studio.get(f"/api/images/{state['id']}/value?x={x}&y={y}")["sky"]
                    ra, dec = WCS(header).all_pix2world(x, y, 0)
                    self.assertAlmostEqual(sky["ra_deg"], float(ra), 9)
                    self.assertAlmostEqual(sky["dec_deg"], float(dec), 9)
                    self.assertEqual(sky["frame"], "ICRS")

    def test_an_upload_is_an_image(self):
        image = star_field(300, 300, levels=255)
        cv2.imwrite(str(self.folder / "dropped.png"), image[:, :, ::-1])
        answer = self.studio.request("POST", "/api/uploads?name=dropped%20%C3%A9.png",
                                     (self.folder / "dropped.png").read_bytes(),
                                     {"Content-Type": "application/octet-stream"})
        self.assertEqual(answer.status, 201)
        state = self.studio.post("/api/images", {"file": answer.json()["file"]}, 202)
        state = self.studio.wait_for_image(state["id"])
        self.assertEqual(state["name"], "dropped é.png")
        self.assertTrue(state["uploaded"])
        numpy.testing.assert_array_equal(self.studio.whole(state["id"], "source"), image)

    def test_the_same_file_is_the_same_image_until_it_changes(self):
        tifffile.imwrite(self.path("twice.tif"), star_field(300, 300))
        state = self.studio.open("twice.tif")
        self.assertEqual(self.studio.open("twice.tif")["id"], state["id"])
        before = self.studio.whole(state["id"], "source")
        time.sleep(0.02)
        tifffile.imwrite(self.path("twice.tif"), star_field(300, 300, seed=2))
        self.studio.wait_for_image(state["id"], lambda image: image["changed_on_disk"])
        # What was read is still shown.
        numpy.testing.assert_array_equal(self.studio.whole(state["id"], "source"), before)
        self.studio.post(f"/api/images/{state['id']}/reload", {}, 202)
        state = self.studio.wait_for_image(state["id"])
        self.assertFalse(state["changed_on_disk"])
        self.assertFalse(numpy.array_equal(self.studio.whole(state["id"], "source"), before))

    def test_what_is_no_image_says_so_and_leaves_the_studio_usable(self):
        tifffile.imwrite(self.path("whole.tif"), star_field(300, 300))
        self.path("cut.tif").write_bytes(self.path("whole.tif").read_bytes()[:5000])
        self.path("text.tif").write_text("no image")
        self.path("empty.fits").write_bytes(b"")
        for name in ("cut.tif", "text.tif", "empty.fits"):
            with self.subTest(name=name):
                state = self.studio.open(name)
                self.assertEqual(state["state"], "failed")
                self.assertIn(name, state["error"])
                self.assertNotIn("session-", state["error"])
                answer = self.studio.request(
                    "GET", f"/api/images/{state['id']}/tiles/source/0/0_0.png")
                self.assertEqual(answer.status, 422)
        self.assertEqual(self.studio.open("whole.tif")["state"], "ready")

    def test_closed_images_are_gone(self):
        tifffile.imwrite(self.path("closed.tif"), star_field(300, 300))
        state = self.studio.open("closed.tif")
        self.assertEqual(self.studio.request("DELETE", f"/api/images/{state['id']}").status, 204)
        for method, path in (("GET", ""), ("DELETE", ""), ("GET", "/value?x=0&y=0"),
                             ("GET", "/tiles/source/0/0_0.png")):
            answer = self.studio.request(method, f"/api/images/{state['id']}{path}")
            self.assertEqual(answer.status, 404)

    def test_settings_are_remembered(self):
        self.studio.request("PUT", "/api/settings", {"view": {"stretch": True}})
        self.assertEqual(self.studio.get("/api/settings"), {"view": {"stretch": True}})
        kept = self.studio.home / "config/nebulex2-studio/settings.json"
        self.assertEqual(kept.read_text(), '{"view":{"stretch":true}}')
        self.assertEqual(self.studio.request("PUT", "/api/settings",
                                             {"x": "y" * 70000}).status, 413)


if __name__ == "__main__":
    unittest.main()
