"""How the program is built, and what its memory allows while it runs."""

import os
import re
import signal
import subprocess
import time
import unittest

from program import PROGRAM, ProgramTest, model

SANITIZED = os.environ["NEBULEX2_SANITIZERS"] != ""
OPTIMISED = os.environ["NEBULEX2_BUILD_TYPE"] != "Debug"


def readelf(*options):
    return subprocess.run(["readelf", "-W", *options, PROGRAM], capture_output=True, check=True,
                          text=True).stdout


class Built(unittest.TestCase):
    def test_it_is_position_independent(self):
        self.assertRegex(readelf("-h"), r"Type: +DYN")
        self.assertRegex(readelf("-d"), r"FLAGS_1.*\bPIE\b")

    def test_addresses_of_functions_are_fixed_before_main(self):
        self.assertRegex(readelf("-l"), r"\bGNU_RELRO\b")
        self.assertRegex(readelf("-d"), r"\(FLAGS\).*\bBIND_NOW\b|FLAGS_1.*\bNOW\b")

    def test_nothing_is_both_writable_and_executable(self):
        segments = re.findall(r"^ +(LOAD|GNU_STACK)\b.* ([R ][W ][E ]) +0x[0-9a-f]+$",
                              readelf("-l"), re.MULTILINE)
        self.assertIn(("GNU_STACK", "RW "), segments)
        self.assertGreater(len(segments), 3)
        for name, flags in segments:
            self.assertFalse("W" in flags and "E" in flags, (name, flags))
        self.assertNotIn("TEXTREL", readelf("-d"))

    def test_the_stack_is_guarded(self):
        self.assertIn("__stack_chk_fail", readelf("--dyn-syms"))

    @unittest.skipIf(SANITIZED or not OPTIMISED, "this build has no checked functions")
    def test_buffers_of_a_known_size_are_not_overflowed(self):
        for count, status in ((4, 0), (5, -signal.SIGABRT)):
            probe = subprocess.run([os.environ["NEBULEX2_OVERFLOW_PROBE"], str(count)],
                                   input=b"12345", capture_output=True, check=False)
            self.assertEqual(probe.returncode, status, probe.stderr)

    def test_libraries_are_looked_for_beside_the_program_only(self):
        paths = re.findall(r"\((?:RPATH|RUNPATH)\).*\[(.*)\]", readelf("-d"))
        for path in ":".join(paths).split(":"):
            self.assertTrue(path.startswith("$ORIGIN"), paths)


class Running(ProgramTest):
    def test_no_memory_is_both_writable_and_executable(self):
        source = self.image("in.tif", 700, 700)
        seen = set()
        with subprocess.Popen(
            [PROGRAM, "-q", "-i", source, "-o", self.path("out.tif"), "-w", model("identity"), "-u"],
            stdin=subprocess.DEVNULL,
        ) as process:
            while process.poll() is None:
                with open(f"/proc/{process.pid}/maps", encoding="utf-8") as maps:
                    try:
                        seen.update(line.rstrip("\n") for line in maps)
                    except ProcessLookupError:
                        break
                time.sleep(0.002)
        self.assertEqual(process.wait(), 0)
        self.assertTrue(any("libonnxruntime" in line for line in seen))
        self.assertEqual([line for line in seen if re.match(r"\S+ \S*wx", line)], [])


if __name__ == "__main__":
    unittest.main()
