"""Blends: what is written is what was seen, at full depth."""

import os
import pathlib
import shutil
import unittest

import cv2
import numpy
import tifffile
from astropy.io import fits

from studio import Studio, StudioTest, star_field

MODELS = pathlib.Path(os.environ["NEBULEX2_TEST_MODELS"])


def read(path):
    """Samples as stored, colour last and in R, G, B order."""
    if path.suffix == ".fits":
        data = fits.getdata(path)
        return data if data.ndim == 2 else numpy.moveaxis(data, 0, 2)
    image = cv2.imread(str(path), cv2.IMREAD_UNCHANGED)
    return image if image.ndim == 2 else image[:, :, ::-1]


class Blends(StudioTest):
    @classmethod
    def setUpClass(cls):
        cls.studio = Studio()
        cls.studio.__enter__()
        cls.addClassCleanup(cls.studio.__exit__)
        shutil.copy(MODELS / "scaling.onnx", cls.studio.folder)

    def run_image(self, name, **options):
        state = self.studio.open(name)
        job = self.studio.run(state["id"], keep=["starless", "unscreen"], options={
            "weights": self.studio.file_id("scaling.onnx"), **options})
        self.assertEqual(job["state"], "done", job)
        return state["id"]

    def save(self, image, status=201, **body):
        answer = self.studio.request("POST", f"/api/images/{image}/save", body)
        self.assertEqual(answer.status, status, answer.body)
        return answer.json()

    def path(self, name):
        return self.studio.folder / name

    def normalised(self, name, suffix, white):
        return (read(self.path(f"{name}_starless{suffix}")).astype(numpy.float64) / white,
                read(self.path(f"{name}_unscreen{suffix}")).astype(numpy.float64) / white)

    def expect_blend(self, written, starless, unscreen, amount, curve, white):
        """Nearest stored value; near a half either of both, as the program's own results are rounded
        with the precision of float32."""
        expected = (starless + amount * unscreen ** curve * (1 - starless)) * white
        self.assertLessEqual(numpy.abs(written - expected).max(), 0.5 + white * 2 ** -23)

    def test_sixteen_bits_are_written_for_tiff_and_png(self):
        tifffile.imwrite(self.path("a.tif"), star_field(600, 520))
        image = self.run_image("a.tif")
        starless, unscreen = self.normalised("a", ".tif", 65535)
        for number, (amount, curve, form) in enumerate(
                ((0.6, 1, "tif"), (1, 1, "png"), (0.35, 2, "tif"), (0.8, 0.5, "png"))):
            with self.subTest(amount=amount, curve=curve, form=form):
                file = self.save(image, amount=amount, curve=curve, format=form,
                                 name=f"a blend {number}")["file"]
                written = read(self.path(file["name"]))
                self.assertEqual(written.dtype, numpy.uint16)
                self.expect_blend(written, starless, unscreen, amount, curve, 65535)

    def test_the_blend_that_is_shown_is_the_one_that_is_written(self):
        tifffile.imwrite(self.path("s.tif"), star_field(600, 520))
        image = self.run_image("s.tif")
        self.save(image, amount=0.6, curve=1.5, format="tif", name="s_blend")
        seen = self.studio.whole(image, "blend", amount=0.6, curve=1.5)
        self.assertLessEqual(
            numpy.abs(seen - read(self.path("s_blend.tif")) / 65535 * 255).max(), 0.51)

    def test_no_stars_is_the_starless_image_itself(self):
        tifffile.imwrite(self.path("n.tif"), star_field(600, 520))
        image = self.run_image("n.tif")
        self.save(image, amount=0, format="tif", name="n_blend")
        numpy.testing.assert_array_equal(read(self.path("n_blend.tif")),
                                         read(self.path("n_starless.tif")))

    def test_all_stars_are_the_image_as_near_as_the_layers_hold_it(self):
        stored = star_field(600, 520)
        tifffile.imwrite(self.path("all.tif"), stored)
        image = self.run_image("all.tif")
        self.save(image, amount=1, format="tif", name="all_blend")
        written = read(self.path("all_blend.tif")).astype(int)
        # The layer is rounded to half a step, and the blend to another half.
        self.assertLessEqual(numpy.abs(written - stored).max(), 1)

    def test_eight_bit_sources_are_blended_in_sixteen(self):
        cv2.imwrite(str(self.path("b.png")), star_field(600, 520, levels=255)[:, :, ::-1])
        image = self.run_image("b.png")
        starless, unscreen = self.normalised("b", ".png", 255)
        self.save(image, amount=0.5, format="png", name="b_blend")
        written = read(self.path("b_blend.png"))
        self.assertEqual(written.dtype, numpy.uint16)
        self.expect_blend(written, starless, unscreen, 0.5, 1, 65535)

    def test_grey_stays_grey(self):
        tifffile.imwrite(self.path("g.tif"), star_field(600, 520)[:, :, 0])
        image = self.run_image("g.tif")
        starless, unscreen = self.normalised("g", ".tif", 65535)
        self.save(image, amount=0.5, format="tif", name="g_blend")
        written = read(self.path("g_blend.tif"))
        self.assertEqual(written.ndim, 2)
        self.expect_blend(written, starless, unscreen, 0.5, 1, 65535)

    def test_fits_keeps_its_header_and_its_type(self):
        header = fits.Header()
        header["OBJECT"] = "NGC 7000"
        header["CRVAL1"] = 314.7
        fits.writeto(self.path("f.fits"), numpy.moveaxis(star_field(600, 520), 2, 0), header)
        image = self.run_image("f.fits")
        starless, unscreen = self.normalised("f", ".fits", 65535)
        self.save(image, amount=0.4, format="fits", name="f_blend")
        written = read(self.path("f_blend.fits"))
        self.assertEqual(written.dtype.kind + str(written.dtype.itemsize), "u2")
        self.expect_blend(written, starless, unscreen, 0.4, 1, 65535)
        kept = fits.getheader(self.path("f_blend.fits"))
        self.assertEqual((kept["OBJECT"], kept["CRVAL1"]), ("NGC 7000", 314.7))

    def test_linear_float_fits_is_blended_in_its_own_units(self):
        linear = (star_field(560, 530)[:, :, 0] / 65535 / 40).astype(numpy.float32)
        fits.writeto(self.path("l.fits"), linear)
        image = self.run_image("l.fits", linear=True)
        starless, unscreen = self.normalised("l", ".fits", 1)
        self.save(image, amount=0.7, format="fits", name="l_blend")
        expected = (starless + 0.7 * unscreen * (1 - starless)).astype(numpy.float32)
        numpy.testing.assert_array_equal(read(self.path("l_blend.fits")), expected)

    def test_layers_that_were_not_kept_can_be_blended_too(self):
        tifffile.imwrite(self.path("k.tif"), star_field(600, 520))
        state = self.studio.open("k.tif")
        self.studio.run(state["id"], options={"weights": self.studio.file_id("scaling.onnx")})
        self.assertFalse(self.path("k_unscreen.tif").exists())
        self.save(state["id"], amount=0.5, format="tif", name="k_blend")
        self.assertTrue(self.path("k_blend.tif").exists())

    def test_nothing_is_replaced_without_asking(self):
        tifffile.imwrite(self.path("r.tif"), star_field(600, 520))
        image = self.run_image("r.tif")
        self.path("taken.tif").write_bytes(b"mine")
        error = self.save(image, 409, amount=0.5, format="tif", name="taken")["error"]
        self.assertEqual((error["code"], error["names"]), ("exists", ["taken.tif"]))
        self.assertEqual(self.path("taken.tif").read_bytes(), b"mine")
        self.save(image, 201, amount=0.5, format="tif", name="taken", replace=True)
        self.assertNotEqual(self.path("taken.tif").read_bytes(), b"mine")
        self.save(image, 400, amount=0.5, format="tif", name="r", replace=True)

    def test_a_result_that_was_changed_is_not_blended(self):
        tifffile.imwrite(self.path("c.tif"), star_field(600, 520))
        image = self.run_image("c.tif")
        tifffile.imwrite(self.path("c_starless.tif"), star_field(600, 520, seed=9))
        self.assertEqual(self.save(image, 409, amount=0.5, format="tif",
                                   name="c_blend")["error"]["code"], "changed")
        self.path("c_starless.tif").unlink()
        self.assertEqual(self.save(image, 409, amount=0.5, format="tif",
                                   name="c_blend")["error"]["code"], "changed")

    def test_what_cannot_be_saved_is_refused(self):
        tifffile.imwrite(self.path("w.tif"), star_field(600, 520))
        state = self.studio.open("w.tif")
        self.save(state["id"], 409, amount=0.5, format="tif", name="w_blend")  # no result yet
        image = self.run_image("w.tif")
        for body in ({"amount": 1.5}, {"amount": "1"}, {"curve": 0}, {"name": "../x"},
                     {"name": ""}, {"format": "jpg"}, {"other": 1}):
            with self.subTest(body=body):
                self.save(image, 400, **{"amount": 0.5, "format": "tif", "name": "w_blend", **body})
        self.save(image, 404, amount=0.5, format="tif", name="w_blend", folder="d999")
        self.assertFalse(self.path("w_blend.tif").exists())


if __name__ == "__main__":
    unittest.main()
