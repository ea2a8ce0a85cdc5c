"""CCDData and NDData in and out, with what they carry."""

import inspect
import io
import subprocess
import sys
import unittest

import numpy as np
from astropy import units
from astropy.io import fits
from astropy.nddata import CCDData, NDData, StdDevUncertainty
from astropy.wcs import WCS

import nebulex
import nebulex.astropy
from images import network, star_field


def tangent_plane():
    wcs = WCS(naxis=2)
    wcs.wcs.crpix, wcs.wcs.crval = (300.5, 260.5), (10.68, 41.27)
    wcs.wcs.cdelt, wcs.wcs.ctype = (-2e-4, 2e-4), ("RA---TAN", "DEC--TAN")
    return wcs


class Astropy(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.model = nebulex.Model(network("pattern"))
        cls.counts = star_field(520, 600, channels=1, dtype=np.float64) * 40000

    def remove(self, image, **settings):
        return nebulex.astropy.remove_stars(image, **{"model": self.model, "white": 65535.0,
                                                      **settings})

    def frame(self, data=None, **more):
        header = fits.Header({"OBJECT": "M 31", "EXPTIME": 300.0})
        header.add_history("Flat-fielded")
        return CCDData(self.counts if data is None else data,
                       **{"unit": "adu", "wcs": tangent_plane(), "meta": header, **more})

    def same_sky(self, one, other):
        pixels = [[0, 0], [599, 0], [300, 519]]
        np.testing.assert_allclose(one.wcs_pix2world(pixels, 0), other.wcs_pix2world(pixels, 0),
                                   rtol=1e-12)

    def test_samples_are_those_of_the_array(self):
        expected = nebulex.remove_stars(self.counts, model=self.model, white=65535.0, mask=True,
                                        unscreen=True, linear=True)
        got = self.remove(self.frame(), mask=True, unscreen=True, linear=True)
        for layer in ("starless", "mask", "unscreen"):
            np.testing.assert_array_equal(getattr(got, layer).data, getattr(expected, layer))

    def test_wcs_unit_mask_and_metadata_are_kept(self):
        frame = self.frame(mask=np.zeros(self.counts.shape, bool), psf=np.ones((3, 3)))
        result = self.remove(frame, mask=True, unscreen=True)
        for image in (result.starless, result.mask, result.unscreen):
            self.assertIsInstance(image, CCDData)
            self.same_sky(image.wcs, frame.wcs)
            np.testing.assert_array_equal(image.mask, frame.mask)
            np.testing.assert_array_equal(image.psf, frame.psf)
            self.assertEqual(image.meta["OBJECT"], "M 31")
            self.assertIn("Flat-fielded", image.meta["HISTORY"])
            self.assertIsNone(image.uncertainty)
        self.assertEqual(result.starless.unit, units.adu)
        self.assertEqual(result.mask.unit, units.adu)
        self.assertEqual(result.unscreen.unit, units.dimensionless_unscaled)

    def test_results_share_nothing_with_the_image(self):
        frame = self.frame(mask=np.zeros(self.counts.shape, bool))
        before = frame.data.copy()
        result = self.remove(frame).starless
        result.meta["OBJECT"] = "changed"
        result.mask[:] = True
        result.data[:] = 0
        self.assertEqual(frame.meta["OBJECT"], "M 31")
        self.assertEqual(list(frame.meta["HISTORY"]), ["Flat-fielded"])
        self.assertFalse(frame.mask.any())
        np.testing.assert_array_equal(frame.data, before)

    def test_history_holds_version_network_and_effective_settings(self):
        lines = list(self.remove(self.frame(), linear=True, stride=128).starless.meta["HISTORY"])
        self.assertEqual(lines[0], "Flat-fielded")
        told = "".join(lines[1:])
        for part in (f"nebulex {nebulex.__version__}", "pattern.onnx", "linear=True", "stride=128",
                     "shadows_clipping=-2.8", "target_background=0.25", "protect_highlights=True",
                     "white=65535.0", "upsample=False"):
            self.assertIn(part, told)
        plain = "".join(self.remove(self.frame()).starless.meta["HISTORY"])
        self.assertNotIn("shadows_clipping", plain)

    def test_no_history_leaves_no_trace(self):
        frame = self.frame()
        self.assertEqual(self.remove(frame, add_history=False).starless.meta, frame.meta)

    def test_metadata_in_a_dictionary(self):
        first = self.remove(CCDData(self.counts, unit="adu", meta={"OBJECT": "M 31"})).starless
        self.assertEqual(first.meta["OBJECT"], "M 31")
        self.assertIn("Stars removed by nebulex", first.meta["HISTORY"])
        second = self.remove(first).starless
        self.assertEqual(second.meta["HISTORY"].count("Stars removed by nebulex"), 2)
        # It can be written.
        second.to_hdu()

    def test_a_fits_file_in_and_out(self):
        file = io.BytesIO()
        self.frame().write(file, format="fits")
        file.seek(0)
        read = CCDData.read(file, format="fits")
        result = self.remove(read).starless
        written = io.BytesIO()
        result.write(written, format="fits")
        written.seek(0)
        again = CCDData.read(written, format="fits")
        np.testing.assert_array_equal(again.data, self.remove(self.frame()).starless.data)
        self.assertEqual((again.unit, again.meta["OBJECT"]), (units.adu, "M 31"))
        self.same_sky(again.wcs, tangent_plane())
        self.assertIn("Stars removed by nebulex", str(again.meta["HISTORY"]))

    def test_nddata_without_anything(self):
        result = self.remove(NDData(self.counts), unscreen=True)
        self.assertIs(type(result.starless), NDData)
        self.assertIsNone(result.starless.unit)
        self.assertIsNone(result.unscreen.unit)
        self.assertIsNone(result.starless.wcs)
        self.assertIsNone(result.starless.mask)

    def test_channels_come_first_unless_named(self):
        cube = np.moveaxis(star_field(520, 600), 2, 0)
        got = self.remove(CCDData(cube, unit="adu"), white=1.0).starless.data
        expected = nebulex.remove_stars(cube, channel_axis=0, model=self.model).starless
        np.testing.assert_array_equal(got, expected)
        last = self.remove(CCDData(np.moveaxis(cube, 0, 2), unit="adu"), white=1.0,
                           channel_axis=-1).starless.data
        np.testing.assert_array_equal(last, np.moveaxis(expected, 0, 2))

    def test_an_uncertainty_is_left_out_with_a_warning(self):
        frame = self.frame(uncertainty=StdDevUncertainty(np.ones_like(self.counts)))
        with self.assertWarnsRegex(nebulex.NebulexWarning, "uncertainty"):
            self.assertIsNone(self.remove(frame).starless.uncertainty)

    def test_masked_and_other_samples_are_counted(self):
        data = self.counts.copy()
        data[1, 2:7] = np.nan
        mask = np.zeros(data.shape, bool)
        mask[1, 4:7] = mask[30, 40] = True
        for frame, message in (
            (self.frame(data), "^5 samples are not finite"),
            (self.frame(mask=mask), "^4 samples are masked"),
            (self.frame(data, mask=mask),
             "^4 samples are masked and 2 further samples are not finite"),
        ):
            with self.assertRaisesRegex(ValueError, message + '.*fill="median"'):
                self.remove(frame)

    def test_filled_samples_are_medians_for_the_network_and_come_back(self):
        data = self.counts.copy()
        mask = np.zeros(data.shape, bool)
        mask[200:204, 100] = True
        data[200:204, 100] = 65535.0  # hot
        data[50, 60] = np.inf
        data[51, 60] = np.nan
        bad = mask | ~np.isfinite(data)
        patched = np.where(bad, np.median(data[~bad]), data)
        expected = nebulex.remove_stars(patched, model=self.model, white=65535.0, mask=True)
        got = self.remove(self.frame(data, mask=mask), fill="median", mask=True, unscreen=True)
        np.testing.assert_array_equal(got.starless.data[~bad], expected.starless[~bad])
        np.testing.assert_array_equal(got.starless.data[bad], data[bad])
        np.testing.assert_array_equal(got.mask.data[~bad], expected.mask[~bad])
        self.assertFalse(got.mask.data[bad].any() or got.unscreen.data[bad].any())
        self.assertIn("fill='median'", str(got.starless.meta["HISTORY"]))

    def test_each_channel_has_a_median_of_its_own(self):
        cube = np.moveaxis(star_field(520, 600, dtype=np.float32), 2, 0).copy()
        cube[0] *= 0.25
        cube[0, 5, 6] = np.nan
        patched = cube.copy()
        patched[0, 5, 6] = np.nanmedian(cube[0])
        expected = nebulex.remove_stars(patched, channel_axis=0, model=self.model).starless
        got = self.remove(CCDData(cube, unit="adu"), white=1.0, fill="median").starless.data
        bad = np.isnan(cube)
        np.testing.assert_array_equal(got[~bad], expected[~bad])

    def test_mistakes(self):
        with self.assertRaisesRegex(TypeError, "not ndarray; nebulex.remove_stars takes arrays"):
            self.remove(self.counts)
        with self.assertRaisesRegex(ValueError, 'None or "median"'):
            self.remove(self.frame(), fill="mean")
        with self.assertRaisesRegex(ValueError, "^All samples of a channel"):
            self.remove(self.frame(mask=np.ones(self.counts.shape, bool)), fill="median")
        with self.assertRaisesRegex(TypeError, "^Samples are int32"):
            self.remove(self.frame(self.counts.astype(np.int32)))

    def test_defaults_are_those_for_arrays(self):
        ours = inspect.signature(nebulex.astropy.remove_stars).parameters
        arrays = inspect.signature(nebulex.remove_stars).parameters
        self.assertEqual(set(ours) - set(arrays), {"fill", "add_history"})
        self.assertEqual({name: ours[name].default for name in arrays if name != "channel_axis"},
                         {name: arrays[name].default for name in arrays if name != "channel_axis"})


class WithoutAstropy(unittest.TestCase):
    def test_the_package_is_imported_without_any_of_its_guests(self):
        code = ("import sys, nebulex\n"
                "assert not {'astropy', 'matplotlib', 'tqdm', 'dask'} & set(sys.modules)\n"
                "nebulex.astropy.remove_stars\n"
                "assert 'astropy' in sys.modules")
        subprocess.run([sys.executable, "-c", code], check=True)


if __name__ == "__main__":
    unittest.main()
