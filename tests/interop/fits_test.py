"""FITS results as other programs see them.

The driver (FITS_IO_DRIVER) is the program's own code; astropy makes the sources and reads the
results, fitsverify judges them.
"""

import gzip
import os
import subprocess
import tempfile
import unittest
import warnings

import numpy
from astropy.io import fits
from astropy.wcs import WCS

DRIVER = os.environ["FITS_IO_DRIVER"]
ROLES = ("main", "difference", "unscreen")

# name: (numpy type of the stored numbers, BZERO, divisor K)
INTEGER_TYPES = {
    "uint8": ("u1", 0, 255),
    "int8": ("u1", -128, 127),
    "int16": (">i2", 0, 32767),
    "uint16": (">i2", 2**15, 65535),
    "int32": (">i4", 0, 2**31 - 1),
    "uint32": (">i4", 2**31, 2**32 - 1),
    "int64": (">i8", 0, 2**63),
    "uint64": (">i8", 2**63, 2**63),
}
FLOAT_TYPES = {"float32": ">f4", "float64": ">f8"}
SHAPES = {"plane": (41, 53), "cube": (3, 41, 53), "interleaved": (41, 53, 3)}

# Cards that no reader may lose, in this order.
OTHER_CARDS = [
    "OBJECT  = 'M 31    '           / the galaxy",
    "LONGSTRN= 'OGIP 1.0'",
    "LONGTEXT= 'A text that does not fit into one card and goes on in the &'",
    "CONTINUE  'next one, and in one more&'",
    "CONTINUE  ', which ends here' / with a comment",
    "HIERARCH ESO TEL ALT = 45.25 / [deg] altitude",
    "COMMENT first comment",
    "",
    "EXPTIME =                300.0 / [s]",
    "COMMENT second comment",
    "HISTORY raw",
    "HISTORY calibrated",
    "CTYPE1  = 'RA---TAN'",
    "CTYPE2  = 'DEC--TAN'",
    "CRVAL1  =    10.68470833333333",
    "CRVAL2  =    41.26875000000001",
    "CRPIX1  =                 26.5",
    "CRPIX2  =                 20.5",
    "CD1_1   = -2.777777777777778E-04",
    "CD1_2   =                  0.0",
    "CD2_1   =                  0.0",
    "CD2_2   = 2.777777777777778E-04",
    "END_DATE= '2024-01-01'",
]


def run(*arguments, check=True):
    return subprocess.run(arguments, check=check, capture_output=True, text=True)


def card(text):
    assert len(text) <= 80
    return text.ljust(80)


def fits_file(axes, bitpix, data, extra, first="SIMPLE  =                    T"):
    """A FITS file from cards and bytes, so that no library decides what is in it."""
    cards = [first, f"BITPIX  = {bitpix:20d}", f"NAXIS   = {len(axes):20d}"]
    cards += [f"NAXIS{i + 1}  = {length:20d}" for i, length in enumerate(axes)]
    header = "".join(map(card, cards + extra + ["END"])).encode("ascii")
    return pad(header, b" ") + pad(data, b"\0")


def pad(data, fill):
    return data + fill * (-len(data) % 2880)


def integer_samples(name, shape, seed=1):
    """Stored numbers whose physical values are all in [0, K], both ends included."""
    dtype, bzero, divisor = INTEGER_TYPES[name]
    generator = numpy.random.default_rng(seed)
    physical = generator.integers(0, divisor, shape, dtype=numpy.uint64, endpoint=True)
    physical.flat[0] = 0
    physical.flat[-1] = min(divisor, 2**63 - 1) if name == "int64" else divisor
    signed = physical.astype(object) - bzero
    return signed.astype(dtype)


def float_samples(name, shape, seed=1):
    generator = numpy.random.default_rng(seed)
    samples = generator.random(shape).astype(FLOAT_TYPES[name])
    samples.flat[0] = 0
    samples.flat[-1] = 1
    return samples


def scaling_cards(bzero):
    if bzero == 0:
        return []
    return ["BSCALE  =                  1.0 / scale", f"BZERO   = {bzero:20d} / offset"]


def sources():
    """(name, file content, stored numbers in file order) for every storage type and layout."""
    for layout, shape in SHAPES.items():
        axes = shape[::-1]
        for name, (dtype, bzero, _) in INTEGER_TYPES.items():
            stored = integer_samples(name, shape)
            bitpix = 8 * stored.dtype.itemsize
            content = fits_file(
                axes, bitpix, stored.tobytes(), scaling_cards(bzero) + OTHER_CARDS
            )
            yield f"{name} {layout}", content, stored
        for name, dtype in FLOAT_TYPES.items():
            stored = float_samples(name, shape)
            bitpix = -8 * stored.dtype.itemsize
            content = fits_file(axes, bitpix, stored.tobytes(), OTHER_CARDS)
            yield f"{name} {layout}", content, stored


def read_cards(path):
    """The cards of the primary header as they lie in the file."""
    with open(path, "rb") as file:
        content = file.read()
    cards = []
    for start in range(0, len(content), 80):
        text = content[start : start + 80].decode("ascii")
        if text == card("END"):
            return cards
        cards.append(text)
    raise AssertionError("no END card")


class FitsInterop(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        warnings.simplefilter("error")  # of astropy: none is expected

    def path(self, name):
        return os.path.join(self.folder.name, name)

    def write(self, name, content):
        with open(self.path(name), "wb") as file:
            file.write(content)
        return self.path(name)

    def copy(self, source, role="main", linear=False, output="out.fits"):
        result = run(DRIVER, "copy", source, self.path(output), role, str(int(linear)), check=False)
        self.assertEqual(result.returncode, 0, result.stderr)
        return self.path(output)

    def accept(self, path):
        """fitsverify finds nothing, astropy opens it strictly, both checksums are right."""
        verdict = run("fitsverify", "-q", path, check=False)
        self.assertIn("verification OK", verdict.stdout, run("fitsverify", path, check=False).stdout)
        with fits.open(path, checksum=True) as hdus:
            hdus.verify("exception")
            self.assertEqual(len(hdus), 1)
            self.assertEqual(hdus[0].verify_checksum(), 1)
            self.assertEqual(hdus[0].verify_datasum(), 1)
            return hdus[0].header.copy()

    def stored(self, path):
        with fits.open(path, do_not_scale_image_data=True) as hdus:
            return hdus[0].data.copy()

    def assert_close_to_stored(self, got, expected, name):
        """Equal for up to 16 bits; float32 inference leaves 2^-20 of the physical value else."""
        self.assertEqual(got.shape, expected.shape)
        kind = name.split()[0]
        if kind in FLOAT_TYPES or expected.dtype.itemsize <= 2:
            if kind == "float64":
                expected = expected.astype("f4").astype("f8")
            numpy.testing.assert_array_equal(got, expected)
            return
        bzero = INTEGER_TYPES[kind][1]
        physical = expected.astype("f8") + bzero
        difference = numpy.abs(got.astype("f8") + bzero - physical)
        self.assertTrue((difference <= physical * 2**-20 + 0.5).all())


class EveryStorageType(FitsInterop):
    def test_sources_themselves_are_accepted(self):
        for name, content, _ in sources():
            with self.subTest(name):
                verdict = run("fitsverify", "-q", self.write("in.fits", content), check=False)
                self.assertIn("verification OK", verdict.stdout)

    def test_main_results_hold_the_source_and_are_accepted(self):
        for name, content, stored in sources():
            with self.subTest(name):
                output = self.copy(self.write("in.fits", content))
                self.accept(output)
                self.assert_close_to_stored(self.stored(output), stored, name)

    def test_linear_results_hold_small_integers_and_floats_exactly(self):
        for name, content, stored in sources():
            if stored.dtype.itemsize == 8 and stored.dtype.kind == "i":
                continue
            with self.subTest(name):
                output = self.copy(self.write("in.fits", content), linear=True)
                self.accept(output)
                numpy.testing.assert_array_equal(self.stored(output), stored)

    def test_all_roles_are_accepted(self):
        for name, content, _ in sources():
            source = self.write("in.fits", content)
            for role in ROLES:
                for linear in (False, True):
                    with self.subTest(name, role=role, linear=linear):
                        self.accept(self.copy(source, role, linear))

    def test_float_unscreen_layers_are_dimensionless_fractions(self):
        for name, content, stored in sources():
            with self.subTest(name):
                header = self.accept(self.copy(self.write("in.fits", content), "unscreen"))
                if stored.dtype.kind == "f":
                    self.assertEqual(header["BUNIT"], "1")
                else:
                    self.assertNotIn("BUNIT", header)

    def test_extrema_are_those_of_the_stored_pixels(self):
        for name, content, _ in sources():
            with self.subTest(name):
                output = self.copy(self.write("in.fits", content))
                header = fits.getheader(output)
                bzero = INTEGER_TYPES.get(name.split()[0], (None, 0))[1]
                stored = self.stored(output)
                self.assertEqual(header["DATAMIN"], float(int(stored.min()) + bzero))
                self.assertEqual(header["DATAMAX"], float(int(stored.max()) + bzero))

    def test_scaling_cards_are_kept_to_the_letter(self):
        for name, content, stored in sources():
            if "BZERO" not in content[:2880].decode("ascii"):
                continue
            with self.subTest(name):
                source = self.write("in.fits", content)
                wanted = [c for c in read_cards(source) if c.startswith(("BSCALE", "BZERO"))]
                got = read_cards(self.copy(source))
                self.assertEqual([c for c in got if c.startswith(("BSCALE", "BZERO"))], wanted)


class Scaling(FitsInterop):
    def test_other_scales_are_kept(self):
        generator = numpy.random.default_rng(3)
        for dtype, bitpix in (("u1", 8), (">i2", 16), (">i4", 32)):
            stored = generator.integers(0, 100, (30, 40)).astype(dtype)
            content = fits_file(
                (40, 30),
                bitpix,
                stored.tobytes(),
                ["BSCALE  =               0.0078125", "BZERO   =                 0.125"],
            )
            with self.subTest(bitpix):
                output = self.copy(self.write("in.fits", content))
                header = self.accept(output)
                numpy.testing.assert_array_equal(self.stored(output), stored)
                self.assertEqual((header["BSCALE"], header["BZERO"]), (0.0078125, 0.125))

    def test_scaled_floats_are_kept(self):
        stored = float_samples("float32", (30, 40)) * numpy.float32(2)
        content = fits_file(
            (40, 30), -32, stored.astype(">f4").tobytes(), ["BSCALE  =                  0.5"]
        )
        output = self.copy(self.write("in.fits", content))
        self.accept(output)
        numpy.testing.assert_array_equal(self.stored(output), stored)


class Header(FitsInterop):
    def setUp(self):
        super().setUp()
        stored = integer_samples("uint16", (41, 53))
        self.source = self.write(
            "in.fits",
            fits_file((53, 41), 16, stored.tobytes(), scaling_cards(2**15) + OTHER_CARDS),
        )

    def test_other_cards_are_there_in_their_order(self):
        cards = read_cards(self.copy(self.source))
        start = cards.index(card(OTHER_CARDS[0]))
        self.assertEqual(cards[start : start + len(OTHER_CARDS)], list(map(card, OTHER_CARDS)))

    def test_astropy_reads_long_strings_and_hierarch(self):
        header = self.accept(self.copy(self.source))
        self.assertTrue(header["LONGTEXT"].endswith("one more, which ends here"))
        self.assertEqual(header["ESO TEL ALT"], 45.25)
        self.assertEqual(list(header["COMMENT"]), ["first comment", "second comment"])
        self.assertEqual(list(header["HISTORY"])[:2], ["raw", "calibrated"])

    def test_duplicate_keywords_are_kept(self):
        stored = integer_samples("uint8", (9, 9))
        extra = ["FILTER  = 'L       '", "GAIN    =                    1", "FILTER  = 'R       '"]
        source = self.write("twice.fits", fits_file((9, 9), 8, stored.tobytes(), extra))
        cards = read_cards(self.copy(source))
        start = cards.index(card(extra[0]))
        self.assertEqual(cards[start : start + 3], list(map(card, extra)))

    def test_world_coordinates_survive(self):
        before = WCS(fits.getheader(self.source))
        after = WCS(self.accept(self.copy(self.source)))
        self.assertEqual(after.naxis, 2)
        numpy.testing.assert_array_equal(
            before.all_pix2world([[1, 2]], 0), after.all_pix2world([[1, 2]], 0)
        )

    def test_three_equal_planes_give_a_header_for_two_axes(self):
        third = ["WCSAXES =                    3"] + OTHER_CARDS
        third += [
            "CTYPE3  = 'RGB     '",
            "CRVAL3  =                  1.0",
            "CRPIX3  =                  1.0",
            "CD3_3   =                  1.0",
            "CUNIT3  = '        '",
        ]
        plane = integer_samples("uint16", (41, 53))
        for layout, samples in (
            ("planes", numpy.stack([plane] * 3)),
            ("interleaved", numpy.stack([plane] * 3, axis=-1)),
        ):
            with self.subTest(layout):
                samples = samples.astype(">i2")  # numpy.stack changes the byte order
                extra = scaling_cards(2**15) + third
                if layout == "interleaved":
                    extra = [move_axes(text) for text in extra]
                content = fits_file(samples.shape[::-1], 16, samples.tobytes(), extra)
                source = self.write("cube.fits", content)
                output = self.copy(source)
                header = self.accept(output)
                self.assertEqual(header["NAXIS"], 2)
                self.assertEqual(WCS(header).naxis, 2)
                self.assertEqual(header["CTYPE1"], "RA---TAN")
                self.assertEqual(header["CRPIX2"], 20.5)
                numpy.testing.assert_array_equal(self.stored(output), plane)

    def test_own_results_read_again_gain_history_only(self):
        first = self.copy(self.source)
        second = self.copy(first, output="again.fits")
        self.accept(second)
        comments = [c for c in read_cards(second) if c.startswith("COMMENT")]
        self.assertEqual(comments, [card("COMMENT first comment"), card("COMMENT second comment")])
        added = [c for c in read_cards(second) if not c.startswith(("HISTORY", "CHECKSUM"))]
        before = [c for c in read_cards(first) if not c.startswith(("HISTORY", "CHECKSUM"))]
        # DATASUM carries the time of writing in its comment.
        self.assertEqual([c[:30] for c in added], [c[:30] for c in before])

    def test_library_comments_are_kept_once(self):
        hdu = fits.PrimaryHDU(integer_samples("uint8", (9, 9)))
        hdu.header["COMMENT"] = (
            "  FITS (Flexible Image Transport System) format is defined in 'Astronomy"
        )
        hdu.writeto(self.path("library.fits"))
        result = self.copy(self.copy(self.path("library.fits")), output="again.fits")
        cards = [c for c in read_cards(result) if c.startswith("COMMENT")]
        self.assertEqual(len(cards), 1)


def move_axes(text):
    """World coordinates with the colour on the first axis: 1 becomes 2, 2 becomes 3, 3 becomes 1."""
    if text.startswith(("CTYPE", "CRVAL", "CRPIX", "CUNIT")):
        return text[:5] + "231"[int(text[5]) - 1] + text[6:]
    if text.startswith("CD"):
        return "CD" + "231"[int(text[2]) - 1] + "_" + "231"[int(text[4]) - 1] + text[5:]
    return text


class Containers(FitsInterop):
    def test_gzip_goes_in_and_out(self):
        stored = integer_samples("uint16", (41, 53))
        content = fits_file((53, 41), 16, stored.tobytes(), scaling_cards(2**15))
        source = self.write("in.fits.gz", gzip.compress(content))
        output = self.copy(source, output="out.fits.gz")
        with gzip.open(output) as file:
            plain = self.write("plain.fits", file.read())
        self.accept(plain)
        numpy.testing.assert_array_equal(self.stored(plain), stored)
        self.assertEqual(run("gzip", "-t", output, check=False).returncode, 0)

    def test_an_image_extension_becomes_a_primary_image(self):
        image = fits.ImageHDU(integer_samples("int16", (41, 53)), name="SCI", ver=2)
        image.header["OBJECT"] = "M 13"
        table = fits.BinTableHDU.from_columns([fits.Column("A", "J", array=[1, 2])])
        fits.HDUList([fits.PrimaryHDU(), table, image]).writeto(self.path("in.fits"))
        output = self.copy(self.path("in.fits"))
        header = self.accept(output)
        self.assertEqual((header["EXTNAME"], header["EXTVER"]), ("SCI", 2))
        self.assertEqual(header["OBJECT"], "M 13")
        for keyword in ("XTENSION", "PCOUNT", "GCOUNT"):
            self.assertNotIn(keyword, header)
        numpy.testing.assert_array_equal(self.stored(output), image.data)

    def test_tile_compressed_images_become_plain_ones(self):
        for method in ("RICE_1", "GZIP_1", "GZIP_2", "PLIO_1", "HCOMPRESS_1"):
            for shape in ((41, 53), (3, 41, 53)):
                if method == "HCOMPRESS_1" and len(shape) == 3:
                    continue
                with self.subTest(method, shape=shape):
                    generator = numpy.random.default_rng(5)
                    data = generator.integers(0, 3000, shape).astype("i2")
                    image = fits.CompImageHDU(data, compression_type=method)
                    image.header["OBJECT"] = "M 13"
                    image.writeto(self.path("in.fits"), overwrite=True)
                    output = self.copy(self.path("in.fits"))
                    header = self.accept(output)
                    self.assertEqual(header["OBJECT"], "M 13")
                    left = [k for k in header if k.startswith("Z") or k.startswith("T")]
                    self.assertEqual(left, [])
                    self.assertNotIn("EXTNAME", header)
                    numpy.testing.assert_array_equal(self.stored(output), data)

    def test_compressed_floats_and_unsigned_integers(self):
        generator = numpy.random.default_rng(6)
        floats = generator.random((41, 53)).astype("f4")
        for name, hdu, expected in (
            ("lossless", fits.CompImageHDU(floats, compression_type="GZIP_1", quantize_level=0),
             floats),
            ("unsigned", fits.CompImageHDU((floats * 60000).astype("u2")),
             (floats * 60000).astype("u2")),
        ):
            with self.subTest(name):
                hdu.writeto(self.path("in.fits"), overwrite=True)
                output = self.copy(self.path("in.fits"))
                self.accept(output)
                numpy.testing.assert_array_equal(fits.getdata(output), expected)

    def test_quantised_floats_are_read_as_astropy_reads_them(self):
        generator = numpy.random.default_rng(7)
        smooth = numpy.linspace(0.3, 0.6, 41 * 53).reshape(41, 53)
        data = (smooth + generator.normal(0, 0.01, (41, 53))).astype("f4")
        for method in ("RICE_1", "GZIP_1", "HCOMPRESS_1"):
            with self.subTest(method):
                hdu = fits.CompImageHDU(data, compression_type=method)
                hdu.writeto(self.path("in.fits"), overwrite=True)
                output = self.copy(self.path("in.fits"))
                self.accept(output)
                expected = fits.getdata(self.path("in.fits"), 1)
                numpy.testing.assert_allclose(fits.getdata(output), expected, rtol=0, atol=1e-7)

    def test_results_without_a_fits_source(self):
        for role in ROLES:
            for channels in (1, 3):
                with self.subTest(role, channels=channels):
                    run(DRIVER, "make", self.path("out.fits"), role, str(channels))
                    header = self.accept(self.path("out.fits"))
                    self.assertEqual(header["BITPIX"], -32)
                    data = fits.getdata(self.path("out.fits"))
                    samples = numpy.arange(600 * channels, dtype="f4") / numpy.float32(600 * channels)
                    expected = samples.reshape(20, 30, channels)
                    expected = expected[..., 0] if channels == 1 else expected.transpose(2, 0, 1)
                    numpy.testing.assert_array_equal(data, expected)


if __name__ == "__main__":
    unittest.main()
