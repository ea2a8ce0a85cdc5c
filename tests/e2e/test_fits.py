"""FITS in and out of the whole program, made and judged with astropy and fitsverify."""

import gzip
import io
import struct
import subprocess
import unittest

import numpy
import tifffile
from astropy.io import fits

from program import FAILURE, ProgramTest, model, read_image, run, star_field, write_image

# stored type, BZERO, K: how astropy is asked for it and what white is
INTEGERS = {
    "uint8": (numpy.uint8, 0, 255),
    "int8": (numpy.uint8, -128, 127),
    "int16": (numpy.int16, 0, 32767),
    "uint16": (numpy.int16, 2**15, 65535),
    "int32": (numpy.int32, 0, 2**31 - 1),
    "uint32": (numpy.int32, 2**31, 2**32 - 1),
    "int64": (numpy.int64, 0, 2**63),
    "uint64": (numpy.int64, 2**63, 2**63),
}


def fraction(rows, columns, channels=1, seed=1):
    """A star field in [0, 1], planes first as FITS has them."""
    image = star_field(rows, columns, channels=channels, seed=seed) / 65535.0
    return image if channels == 1 else numpy.moveaxis(image, 2, 0)


def stored_integers(name, image):
    """Stored values of an image in [0, 1]."""
    dtype, bzero, white = INTEGERS[name]
    physical = numpy.rint(image * (white if white < 2**40 else 2.0**62))
    return (physical - bzero).astype(dtype)


def card(keyword, value):
    return f"{keyword:8s}= {value:>20}".ljust(80)


def raw_fits(data, cards=(), shape=None):
    """A FITS file written by hand, so that scaling keywords and samples are exactly as given."""
    bitpix = data.dtype.itemsize * 8 * (-1 if data.dtype.kind == "f" else 1)
    axes = (shape or data.shape)[::-1]
    header = [card("SIMPLE", "T"), card("BITPIX", bitpix), card("NAXIS", len(axes))]
    header += [card(f"NAXIS{i}", n) for i, n in enumerate(axes, start=1)]
    header += list(cards) + ["END".ljust(80)]
    text = "".join(header)
    text += " " * (-len(text) % 2880)
    body = data.astype(data.dtype.newbyteorder(">")).tobytes()
    return text.encode() + body + b"\0" * (-len(body) % 2880)


def raw_stored(path):
    """The stored samples, unscaled."""
    with fits.open(path, do_not_scale_image_data=True) as hdus:
        return numpy.array(hdus[0].data)


class Fits(ProgramTest):
    def make(self, name, data, cards=(), shape=None):
        path = self.path(name)
        path.write_bytes(raw_fits(data, cards, shape))
        return path

    def convert(self, source, output, *more, weights="identity"):
        return self.succeed("-i", source, "-o", output, "-w", model(weights), *more)

    def verify(self, *paths):
        for path in paths:
            report = subprocess.run(["fitsverify", path], capture_output=True, text=True,
                                    check=False)
            self.assertIn("**** Verification found 0 warning(s) and 0 error(s). ****",
                          report.stdout, report.stdout)
            with fits.open(path, checksum=True) as hdus:
                hdus.verify("exception")
                self.assertIn("CHECKSUM", hdus[0].header)

    def test_integer_types_come_back_with_type_scaling_and_samples(self):
        for name, (dtype, bzero, white) in INTEGERS.items():
            with self.subTest(name=name):
                stored = stored_integers(name, fraction(512, 520))
                cards = [card("BZERO", bzero), card("BSCALE", 1)] if bzero else []
                source = self.make(name + ".fits", stored, cards)
                output = self.path("out.fits")
                result = self.convert(source, output)
                self.assertEqual(result.warnings(), [])
                self.verify(output)
                got = raw_stored(output)
                self.assertEqual(got.dtype.newbyteorder("="), numpy.dtype(dtype))
                header = fits.getheader(output)
                self.assertEqual(header.get("BZERO", 0), bzero)
                error = numpy.abs(got.astype(float) - stored.astype(float))
                if dtype().itemsize <= 2:
                    self.assertEqual(error.max(), 0)
                else:
                    physical = stored.astype(float) + bzero
                    self.assertTrue((error <= physical * 2.0**-20 + 0.5).all(), error.max())

    def test_float_types_come_back(self):
        for dtype in (numpy.float32, numpy.float64):
            with self.subTest(dtype=dtype):
                stored = fraction(512, 512).astype(dtype)
                output = self.path("out.fits")
                self.convert(self.make("in.fits", stored), output)
                self.verify(output)
                got = raw_stored(output)
                self.assertEqual(got.dtype.newbyteorder("="), numpy.dtype(dtype))
                self.assertLessEqual(numpy.abs(got - stored).max(), 2.0**-20)

    def test_unusual_scaling_is_applied_once_and_kept(self):
        stored = stored_integers("int16", fraction(512, 512))
        cards = [card("BSCALE", "2.0E-05"), card("BZERO", "0.125")]
        output = self.path("out.fits")
        result = self.convert(self.make("in.fits", stored, cards), output)
        self.assertIn("fixed divisor K=1; ", result.messages("input_conversion")[0])
        self.verify(output)
        self.assertTrue((raw_stored(output) == stored).all())
        header = fits.getheader(output)
        self.assertIn("2.0E-05", str(header.cards["BSCALE"].image))

    def test_cubes_keep_their_layout(self):
        planes = fraction(512, 530, channels=3)
        planar = stored_integers("uint16", planes)
        cards = [card("BZERO", 32768)]
        source = self.make("planar.fits", planar, cards)
        output = self.path("planar_out.fits")
        result = self.convert(source, output)
        self.assertIn(" axes=530,512,3 interpretation=RGB cube",
                      result.messages("input_format")[0])
        self.verify(output)
        self.assertTrue((raw_stored(output) == planar).all())

        interleaved = numpy.ascontiguousarray(numpy.moveaxis(planar, 0, 2))
        source = self.make("interleaved.fits", interleaved, cards)
        output = self.path("interleaved_out.fits")
        self.convert(source, output)
        self.verify(output)
        self.assertTrue((raw_stored(output) == interleaved).all())

    def test_three_equal_planes_become_one_plane_with_a_valid_header(self):
        plane = stored_integers("int16", fraction(512, 512))
        cards = [card("CTYPE1", "'RA---TAN'"), card("CTYPE2", "'DEC--TAN'"),
                 card("CTYPE3", "'RGB     '"), card("CRPIX3", "1.0")]
        source = self.make("in.fits", numpy.stack([plane] * 3), cards)
        output = self.path("out.fits")
        self.convert(source, output)
        self.verify(output)
        self.assertTrue((raw_stored(output) == plane).all())
        header = fits.getheader(output)
        self.assertEqual(header["CTYPE1"], "RA---TAN")
        self.assertNotIn("CTYPE3", header)

    def test_extension_compressed_and_gzip_sources(self):
        physical = numpy.rint(fraction(512, 512) * 32767).astype(numpy.int16)
        extension = self.path("extension.fits")
        fits.HDUList([fits.PrimaryHDU(), fits.ImageHDU(physical, name="SCI")]).writeto(extension)
        compressed = self.path("compressed.fits")
        fits.HDUList([fits.PrimaryHDU(),
                      fits.CompImageHDU(physical, compression_type="RICE_1")]).writeto(compressed)
        zipped = self.path("zipped.fits.gz")
        zipped.write_bytes(gzip.compress(raw_fits(physical)))
        for source in (extension, compressed, zipped):
            for target in ("out.fits", "out.fits.gz", "out.fts"):
                with self.subTest(source=source.name, target=target):
                    output = self.path(target)
                    self.convert(source, output)
                    if target.endswith(".gz"):
                        self.assertEqual(output.read_bytes()[:2], b"\x1f\x8b")
                        whole = self.path("plain.fits")
                        whole.write_bytes(gzip.decompress(output.read_bytes()))
                        output = whole
                    self.verify(output)
                    self.assertTrue((raw_stored(output) == physical).all())
                    with fits.open(output) as hdus:
                        self.assertEqual(len(hdus), 1)
                        self.assertNotIn("ZIMAGE", hdus[0].header)

    def test_header_cards_survive_in_their_order(self):
        long_text = "a long string " * 12
        kept = fits.Header()
        kept["OBJECT"] = ("M31", "the galaxy")
        kept["FILTER"] = "Ha"
        kept["LONGSTRN"] = "OGIP 1.0"
        kept["LONGTEXT"] = long_text
        kept["HIERARCH ESO DET CHIP"] = 7
        kept["PIXSCALE"] = 1.0684708333333334
        kept["COMMENT"] = "first comment"
        kept["HISTORY"] = "flat fielded"
        kept["COMMENT"] = "second comment"
        kept.append(("", ""), end=True)
        kept["EXPTIME"] = (300.0, "s")
        kept["DATAMIN"] = -1.0
        kept["BLANK"] = -32768
        stored = stored_integers("int16", fraction(512, 512))
        source = self.path("in.fits")
        fits.PrimaryHDU(stored, kept).writeto(source, checksum=True)
        output = self.path("out.fits")
        self.convert(source, output)
        self.verify(output)
        structural = {"SIMPLE", "BITPIX", "NAXIS", "NAXIS1", "NAXIS2", "EXTEND", "DATAMIN",
                      "DATAMAX", "CHECKSUM", "DATASUM", "BLANK", "BSCALE", "BZERO", "END"}

        def cards(path):
            text = path.read_bytes()
            header = [text[i : i + 80].decode("latin-1") for i in range(0, len(text), 80)]
            header = header[: header.index("END".ljust(80))]
            return [line for line in header if line[:8].strip() not in structural]

        before, after = cards(source), cards(output)
        self.assertEqual(after[: len(before)], before)
        self.assertEqual(
            [line.rstrip() for line in after[len(before) :]],
            ["HISTORY Integer FITS: nearest storage-value rounding; source BSCALE/BZERO preser",
             "HISTORY ved.",
             "HISTORY Integer FITS output storage-clipped samples=0",
             "HISTORY Main image restored to source physical units.",
             "CREATOR = 'NebulexAstro CLI'"],
        )
        header = fits.getheader(output)
        self.assertEqual(header["DATAMIN"], stored.min())
        self.assertEqual(header["DATAMAX"], stored.max())
        self.assertNotIn("BLANK", header)

    def test_reading_our_own_output_agrees_with_its_extrema(self):
        stored = fraction(512, 512).astype(numpy.float32)
        first, second = self.path("first.fits"), self.path("second.fits")
        self.convert(self.make("in.fits", stored), first)
        result = self.convert(first, second)
        self.assertEqual(
            result.messages("header_extrema"),
            ["DATAMIN/DATAMAX do not determine scale; comparison=agrees for supplied extrema"],
        )

    def test_a_display_source_becomes_float32_fits(self):
        for channels in (1, 3):
            with self.subTest(channels=channels):
                source = self.image("in.tif", 512, 530, channels=channels)
                output = self.path("out.fits")
                result = self.convert(source, output)
                self.assertEqual(
                    result.messages("output_conversion"),
                    ["format=FITS BITPIX=-32 role=main fixed_white=1 BSCALE=1 BZERO=0 "
                     "encoding_input=float64; source physical units; source storage quantization "
                     "applies"],
                )
                self.verify(output)
                got = fits.getdata(output)
                expected = read_image(source) / 65535.0
                if channels == 3:
                    expected = numpy.moveaxis(expected, 2, 0)
                self.assertLessEqual(numpy.abs(got - expected).max(), 1e-6)

    def test_a_fits_source_becomes_a_sixteen_bit_tiff(self):
        stored = stored_integers("uint8", fraction(512, 512))
        output = self.path("out.tif")
        self.convert(self.make("in.fits", stored), output)
        got = read_image(output)
        self.assertEqual(got.dtype, numpy.uint16)
        self.assertTrue((got == stored.astype(int) * 257).all())

    def layers(self, source, *more):
        paths = [self.path(name) for name in ("o.fits", "m.fits", "u.fits")]
        result = self.succeed("-i", source, "-o", paths[0], "-m", paths[1], "-n", paths[2], "-w",
                              model("scaling"), *more)
        self.verify(*paths)
        return result, [fits.getdata(path).astype(float) for path in paths], paths

    def test_integer_layers_rebuild_the_source(self):
        stored = stored_integers("uint16", fraction(512, 512))
        source = self.make("in.fits", stored, [card("BZERO", 32768)])
        _, (starless, mask, unscreen), _ = self.layers(source)
        physical = stored.astype(float) + 32768
        self.assertTrue((mask == physical - starless).all())
        rebuilt = starless + unscreen / 65535 * (65535 - starless)
        self.assertLessEqual(numpy.abs(rebuilt - physical).max(), 1.0)

    def test_float_unscreen_is_a_dimensionless_fraction(self):
        stored = fraction(512, 512, channels=3).astype(numpy.float32)
        source = self.make("in.fits", stored, [card("BUNIT", "'adu     '")])
        result, (starless, mask, unscreen), paths = self.layers(source)
        self.assertEqual(fits.getheader(paths[0])["BUNIT"], "adu")
        header = fits.getheader(paths[2])
        self.assertEqual(header["BUNIT"], "1")
        self.assertEqual(header.comments["BUNIT"], "Dimensionless unscreen fraction")
        self.assertIn("role=unscreen fixed_white=1 BSCALE=1 BZERO=0 encoding_input=float64; "
                      "dimensionless fraction", result.messages("output_conversion")[2])
        self.assertGreaterEqual(unscreen.min(), 0)
        self.assertLessEqual(unscreen.max(), 1)
        rebuilt = starless + unscreen * (1 - starless)
        self.assertLessEqual(numpy.abs(rebuilt - stored).max(), 1e-6)

    def test_linear_floats_keep_negatives_and_lose_highlights_with_one_warning(self):
        stored = (fraction(512, 512) * 0.2).astype(numpy.float64)
        stored[0, :50] = -0.25
        stored[1, :7] = 1.5
        source = self.make("in.fits", stored)
        output = self.path("out.fits")
        result = self.convert(source, output, "--linear")
        self.assertEqual(
            result.warnings(),
            ["Warning [data_loss]: --linear clips 7 of 262144 samples (0.0026702880859375%) "
             "above 1 after fixed sample-format conversion; normalized maximum=1.5. Discarded "
             "highlights will not be restored. Normalize float ADU data upstream."],
        )
        self.assertEqual(result.messages("input_prepared"),
                         ["upper-clipped=7; pre-MTF range=[-0.25,1]; negatives retained until "
                          "MTF"])
        got = raw_stored(output)
        self.assertTrue((got[0, :50] == -0.25).all())
        self.assertLessEqual(numpy.abs(got - numpy.minimum(stored, 1)).max(), 2.0**-16)
        self.verify(output)
        history = [str(line) for line in fits.getheader(output)["HISTORY"]]
        self.assertTrue(any(line.startswith("Linear FITS shadows channel 1=") for line in history))

    def test_linear_integers_restore_shadows_exactly(self):
        stored = (fraction(512, 512) * 0.2 * 2**31).astype(numpy.int32)
        stored[3, :100] = -12345
        output = self.path("out.fits")
        self.convert(self.make("in.fits", stored), output, "--linear", weights="scaling")
        self.assertTrue((raw_stored(output)[3, :100] == -12345).all())

    def test_without_linear_negative_samples_end_at_zero(self):
        stored = stored_integers("int16", fraction(512, 512))
        stored[5, 5] = -100
        output = self.path("out.fits")
        self.convert(self.make("in.fits", stored), output)
        self.assertEqual(raw_stored(output)[5, 5], 0)

    def test_an_old_blank_value_stays_a_value(self):
        stored = stored_integers("uint16", fraction(512, 512))
        first = self.path("first.fits")
        source = self.make("in.fits", stored, [card("BZERO", 32768), card("BLANK", 32767)])
        self.assertLess(stored.max(), 32767)
        self.convert(source, first)
        self.assertNotIn("BLANK", fits.getheader(first))
        self.assertTrue((raw_stored(first) == stored).all())

    def test_names_are_literal(self):
        stored = stored_integers("uint8", fraction(512, 512))
        content = raw_fits(stored)
        for name in ("m31[1].fits", "a+2.fits", "~x.fits", "!x.fits", " lead.fits", "a(b).fits",
                     "mem:x.fits", "-.fits", "\N{PAW PRINTS}.fits"):
            with self.subTest(name=name):
                self.path(name).write_bytes(content)
                self.succeed("-i", name, "-o", "out" + name, "-w", model("identity"),
                             cwd=self.folder)
                self.assertTrue((raw_stored(self.path("out" + name)) == stored).all())

    def test_the_input_may_be_replaced_by_its_result(self):
        stored = stored_integers("int16", fraction(512, 512))
        source = self.make("in.fits", stored)
        self.convert(source, source, weights="scaling")
        self.assertLessEqual(numpy.abs(raw_stored(source) - stored / 2).max(), 0.51)


class BadFits(ProgramTest):
    def refused(self, message, content, name="in.fits", *more):
        path = self.path(name)
        path.write_bytes(content)
        self.fail_with(message.replace("PATH", str(path)), "-i", path, "-o",
                       self.path("out.fits"), "-w", model("identity"), *more)
        self.assertEqual(self.files(), [name])

    def test_floats_outside_the_range_need_linear(self):
        stored = fraction(512, 512).astype(numpy.float32)
        stored[0, 0] = 1.25
        self.refused(
            "Floating-point FITS input samples must be normalized to [0,1]. Observed finite "
            f"range: [{float(stored.min()):.17g}, 1.25]. Normalize the image before invoking the "
            "CLI; header extrema are not used to rescale it.",
            raw_fits(stored),
        )
        self.refused(
            "Floating-point FITS input samples must be normalized to [0,1]. Observed finite "
            f"range: [{float(stored.min()):.17g}, 1.25]. Header diagnostics: DATAMIN=0 "
            "DATAMAX=65535. Normalize the image before invoking the CLI; header extrema are not "
            "used to rescale it.",
            raw_fits(stored, [card("DATAMIN", 0), card("DATAMAX", 65535)]),
        )

    def test_undefined_pixels(self):
        stored = stored_integers("int16", fraction(512, 512))
        stored[9, 9] = -32768
        message = ("FITS input contains 1 non-finite/undefined source sample(s); repair the image "
                   "upstream: PATH")
        self.refused(message, raw_fits(stored, [card("BLANK", -32768)]))
        floats = fraction(512, 512).astype(numpy.float32)
        floats[0, 0] = numpy.nan
        self.refused(message, raw_fits(floats))
        self.refused(message, raw_fits(floats), "in.fits", "--linear")

    def test_unsupported_dimensions(self):
        cube = numpy.zeros((4, 512, 512), numpy.uint8)
        self.refused("Unsupported FITS cube dimensions in PATH. Only 2D images and simple "
                     "3-channel RGB cubes are supported.", raw_fits(cube))
        self.refused("No supported image HDU found in FITS image: PATH",
                     raw_fits(numpy.zeros((1, 3, 8, 8), numpy.uint8)))
        self.refused("No supported image HDU found in FITS image: PATH",
                     raw_fits(numpy.zeros((64,), numpy.uint8)))

    def test_tables_only(self):
        table = fits.BinTableHDU.from_columns([fits.Column("a", "J", array=[1, 2, 3])])
        path = self.path("table.fits")
        fits.HDUList([fits.PrimaryHDU(), table]).writeto(path)
        content = path.read_bytes()
        path.unlink()
        self.refused("No supported image HDU found in FITS image: PATH", content)

    def test_files_that_are_no_fits(self):
        tiff = io.BytesIO()
        tifffile.imwrite(tiff, numpy.zeros((8, 8), numpy.uint8))
        for content in (b"", b"SIMPLE", tiff.getvalue()):
            path = self.path("in.fits")
            path.write_bytes(content)
            result = run("-i", path, "-o", self.path("out.fits"), "-q")
            self.assertEqual(result.status, FAILURE)
            self.assertRegex(result.err, rf"^Opening failed for FITS image {path}: .+")

    def test_bscale_zero(self):
        stored = stored_integers("int16", fraction(512, 512))
        path = self.path("in.fits")
        path.write_bytes(raw_fits(stored, [card("BSCALE", "0.0"), card("BZERO", "0.5")]))
        result = run("-i", path, "-o", self.path("out.fits"), "-q", "-w", model("identity"))
        self.assertEqual(result.status, FAILURE)
        self.assertTrue(
            result.err.startswith(
                "FITS integer output requires finite, nonzero source scaling.\n"
            ),
            result.err,
        )
        self.assertEqual(self.files(), ["in.fits"])

    def test_a_claim_beyond_the_file_is_refused_before_memory_is_asked_for(self):
        stored = numpy.zeros((8, 8), numpy.float64)
        content = raw_fits(stored, shape=(100000, 100000))
        path = self.path("in.fits")
        path.write_bytes(content)
        result = run("-i", path, "-o", self.path("out.fits"), "-q")
        self.assertEqual(result.status, FAILURE)
        self.assertRegex(
            result.err,
            rf"^Reading double-precision physical pixels failed for FITS image {path}: .*end of "
            "file",
        )


class AstroTiff(ProgramTest):
    HEADER = ["SIMPLE  =                    T", "BITPIX  =                   16",
              "OBJECT  = 'M31     '", "COMMENT made by a test", "END"]

    def make(self, name, dtype=numpy.uint16, text=None):
        description = "\n".join(line.ljust(80) for line in self.HEADER) if text is None else text
        tifffile.imwrite(self.path(name), star_field(512, 512, dtype=dtype), photometric="rgb",
                         description=description, metadata=None)
        return self.path(name)

    @staticmethod
    def description(path):
        with tifffile.TiffFile(path) as tiff:
            return tiff.pages[0].description

    def test_the_header_goes_from_tiff_to_every_tiff_output(self):
        for dtype, bits in ((numpy.uint8, "8"), (numpy.uint16, "16")):
            with self.subTest(bits=bits):
                source = self.make("in.tif", dtype)
                outputs = [self.path(name) for name in ("o.tif", "m.tiff", "u.TIF")]
                self.succeed("-i", source, "-o", outputs[0], "-m", outputs[1], "-n", outputs[2],
                             "-w", model("identity"))
                expected = [line.ljust(80) for line in self.HEADER]
                expected[1] = "BITPIX  =" + " " * 19 + bits
                for output in outputs:
                    # tifffile leaves out the blanks at the end.
                    self.assertEqual(self.description(output),
                                     "\n".join(expected).rstrip())
                self.assertTrue((read_image(outputs[0]) == read_image(source)).all())

    def test_png_outputs_and_plain_tiffs_carry_none(self):
        source = self.make("in.tif")
        self.succeed("-i", source, "-o", self.path("o.png"), "-w", model("identity"))
        plain = self.make("plain.tif", text="just a caption")
        self.succeed("-i", plain, "-o", self.path("o.tif"), "-w", model("identity"))
        self.assertEqual(self.description(self.path("o.tif")), "")

    def test_a_second_pass_keeps_one_description(self):
        source = self.make("in.tif")
        self.succeed("-i", source, "-o", self.path("a.tif"), "-w", model("identity"))
        self.succeed("-i", self.path("a.tif"), "-o", self.path("b.tif"), "-w", model("identity"))
        self.assertEqual(self.description(self.path("a.tif")), self.description(self.path("b.tif")))

    def test_a_header_that_cannot_be_read_is_a_warning(self):
        path = write_image(self.path("in.tif"), star_field(512, 512, dtype=numpy.uint8))
        data = bytearray(path.read_bytes())
        offset = struct.unpack_from("<I", data, 4)[0]
        count = struct.unpack_from("<H", data, offset)[0]
        for i in range(count):
            entry = offset + 2 + 12 * i
            if struct.unpack_from("<H", data, entry)[0] == 270:
                struct.pack_into("<HII", data, entry + 2, 2, 5000, 2**31)
        path.write_bytes(data)
        result = self.succeed("-i", path, "-o", self.path("out.tif"), "-w", model("identity"))
        self.assertEqual(
            result.warnings(),
            ["Warning [output_fidelity]: Unable to inspect AstroTIFF metadata; continuing without "
             f"preservation. Invalid TIFF ImageDescription offset in {path}"],
        )


if __name__ == "__main__":
    unittest.main()
