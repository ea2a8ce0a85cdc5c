"""The example host drives the real program."""

import importlib.util
import io
import json
import subprocess
import sys
import unittest

from program import PROGRAM, SOURCE, ProgramTest, model, read_image

HOST = SOURCE / "examples" / "host.py"


def load_host():
    spec = importlib.util.spec_from_file_location("host", HOST)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


class HostExample(ProgramTest):
    def host(self, *arguments):
        # Isolated, so that nothing but the standard library can be imported.
        run = subprocess.run(
            [sys.executable, "-I", "-S", HOST, "--program", PROGRAM, *map(str, arguments)],
            stdin=subprocess.DEVNULL,
            capture_output=True,
            timeout=240,
            check=False,
        )
        # As bytes until here, for the carriage returns of the bar.
        run.stdout, run.stderr = run.stdout.decode(), run.stderr.decode()
        return run

    def test_an_image_is_run_with_a_bar_that_fills(self):
        source, result = self.image("in.png", 512, 600), self.path("out.png")
        run = self.host("-i", source, "-o", result, "-w", model("identity"), "-s", 512)
        self.assertEqual((run.returncode, run.stderr), (0, ""))
        bars = run.stdout.strip("\r\n").split("\r")
        self.assertEqual(
            [bar.split("] ")[1] for bar in bars],
            ["  0.0 %", " 50.0 %", "100.0 %", "100.0 %"],
        )
        self.assertEqual(bars[0], f"[{'.' * 40}]   0.0 %")
        self.assertEqual(bars[-1], f"[{'#' * 40}] 100.0 %")
        self.assertEqual(read_image(result).shape, (512, 600, 3))

    def test_its_options_are_those_of_the_program(self):
        help_text = self.host("--help").stdout
        info = json.loads(subprocess.run([PROGRAM, "--machine-info"], capture_output=True,
                                         check=True).stdout)
        for option in info["options"]:
            with self.subTest(option=option["name"]):
                offered = option["mode"] == "processing" and option["name"] != "machine_progress"
                listed = any(f" {flag}" in help_text for flag in option["flags"])
                self.assertEqual(listed, offered or option["name"] == "help")

    def test_an_error_of_the_program_is_shown_in_one_line(self):
        run = self.host("-i", self.path("missing.tif"), "-o", self.path("out.tif"))
        self.assertEqual(run.returncode, 1)
        self.assertEqual(
            run.stdout, f"Error: Input image does not exist: {self.path('missing.tif')}\n"
        )
        self.assertEqual(run.stderr, "")

    def test_values_that_the_document_excludes_do_not_reach_the_program(self):
        for arguments in (["-s", "255"], ["-s", "514"], ["-s", "0"],
                          ["--linear", "--target-background", "1"],
                          ["--linear", "--shadows-clipping=0"]):
            with self.subTest(arguments=arguments):
                run = self.host("-i", self.path("in.tif"), *arguments)
                self.assertEqual(run.returncode, 2)
                self.assertIn("is outside of what", run.stderr)
                self.assertEqual(run.stdout, "")

    def test_an_option_that_requires_another_is_refused_without_it(self):
        run = self.host("-i", self.path("in.tif"), "--target-background", "0.2")
        self.assertEqual(run.returncode, 2)
        self.assertEqual(run.stderr, "Error: --target-background needs --linear.\n")

    def test_a_program_that_is_not_there_is_an_error(self):
        run = self.host("--program", self.path("nothing"), "-i", "in.tif")
        self.assertEqual(run.returncode, 2)
        self.assertTrue(run.stderr.startswith("Error: "), run.stderr)

    def test_warnings_are_shown_on_lines_of_their_own(self):
        host, stream = load_host(), io.StringIO()
        screen = host.Screen(stream)
        screen.draw_bar(50.0)
        host.show({"schema": host.DIAGNOSTIC_SCHEMA, "severity": "warning", "code": "data_loss",
                   "message": "some"}, screen)
        host.show({"schema": host.DIAGNOSTIC_SCHEMA, "severity": "info", "code": "input",
                   "message": "other"}, screen)
        self.assertEqual(
            stream.getvalue(),
            f"\r[{'#' * 20}{'.' * 20}]  50.0 %\nWarning (data_loss): some\n",
        )


if __name__ == "__main__":
    unittest.main()
