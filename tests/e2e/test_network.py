"""The program has nothing to do with the network."""

import os
import pathlib
import subprocess
import unittest

from program import FAILURE, ProgramTest, model, run

WITHOUT_NETWORK = ("unshare", "-rn")
TRACE = ("strace", "-f", "-qq", "-e", "trace=%network", "-o")

# What GDAL takes for a virtual dataset, where OpenCV has GDAL.
REFERENCE = (
    'NITF --><VRTDataset rasterXSize="512" rasterYSize="512">{}</VRTDataset>'.format(
        "".join(
            f'<VRTRasterBand dataType="Byte"><ColorInterp>{colour}</ColorInterp><SimpleSource>'
            "<SourceFilename>/vsicurl/http://127.0.0.1:9/image.tif</SourceFilename>"
            "<SourceBand>1</SourceBand></SimpleSource></VRTRasterBand>"
            for colour in ("Red", "Green", "Blue")
        )
    )
)


def is_permitted(*command):
    try:
        return subprocess.run([*command, "true"], capture_output=True, check=False).returncode == 0
    except FileNotFoundError:
        return False


class Network(ProgramTest):
    def runs(self):
        """Arguments of runs of every kind, and their exit statuses."""
        source = self.image("in.tif")
        fits = self.path("in.fits")
        weights = ("-w", model("identity"))
        self.succeed("-i", source, "-o", fits, *weights)
        reference = self.path("reference.img")
        reference.write_text(REFERENCE)
        out = self.path("out.tif")
        return (
            (0, ("-i", source, "-o", out, "-m", self.path("mask.png"), *weights)),
            (0, ("-i", fits, "-o", self.path("out.fits.gz"), "--linear", *weights)),
            (0, ("--machine-info",)),
            (0, ("--check-updates",)),
            (0, ("--help",)),
            (FAILURE, ("-i", self.path("missing.tif"), "-o", out, *weights)),
            (FAILURE, ("-i", reference, "-o", out, *weights)),
        )

    @unittest.skipUnless(is_permitted(*WITHOUT_NETWORK), "name spaces of users are not permitted")
    def test_everything_works_where_there_is_no_network(self):
        for status, arguments in self.runs():
            with self.subTest(arguments=arguments):
                self.assertEqual(run(*arguments, inside=WITHOUT_NETWORK).status, status)

    @unittest.skipUnless(is_permitted(*WITHOUT_NETWORK), "name spaces of users are not permitted")
    def test_results_are_the_same_where_there_is_no_network(self):
        source = self.image("in.tif")
        outputs = [self.path("with.tif"), self.path("without.tif")]
        for output, inside in zip(outputs, ((), WITHOUT_NETWORK)):
            self.succeed("-i", source, "-o", output, "-w", model("pattern"), inside=inside)
        self.assertEqual(outputs[0].read_bytes(), outputs[1].read_bytes())

    @unittest.skipUnless(is_permitted(*TRACE, os.devnull), "tracing system calls is not permitted")
    def test_no_socket_is_asked_for(self):
        trace = pathlib.Path(self.path("trace"))
        # The leak check of the sanitizers cannot run in a process that is traced.
        no_leak_check = {"ASAN_OPTIONS": "detect_leaks=0"}
        for status, arguments in self.runs():
            with self.subTest(arguments=arguments):
                result = run(*arguments, inside=(*TRACE, trace), env=no_leak_check)
                self.assertEqual(result.status, status, result.err)
                self.assertEqual(trace.read_text(), "")


if __name__ == "__main__":
    unittest.main()
