"""The command line as a user types it."""

import unittest

from program import FAILURE, ProgramTest, model, read_image, run


class CommandLine(ProgramTest):
    def test_parse_failures_end_with_the_parsers_report_and_status_1(self):
        for arguments, report in (
            (["-q"], "Required argument missing: input"),
            (["-i", "a.tif", "--nonsense"], "Couldn't find match for argument"),
            (["-i", "a.tif", "--stride", "many"], "Couldn't read argument value from string"),
            (["-i", "a.tif", "--target-background", "dark"], "Couldn't read argument value"),
            (["-i", "a.tif", "-i", "b.tif"], "Argument already set!"),
        ):
            with self.subTest(arguments=arguments):
                result = run(*arguments)
                self.assertEqual(result.status, 1)
                self.assertIn("PARSE ERROR", result.err)
                self.assertIn(report, result.err)
                self.assertEqual(result.out, "")

    def test_parse_failures_are_one_error_event_for_hosts(self):
        for arguments in (["-q"], ["-i", "a.tif", "--nonsense"], ["-i", "a", "-s", "x"]):
            with self.subTest(arguments=arguments):
                result = run(*arguments, "--machine-progress")
                self.assertEqual(result.status, FAILURE)
                (event,) = result.records()
                self.assertEqual(
                    list(event), ["schema", "event", "stage", "ok", "message"]
                )
                self.assertEqual(event["event"], "error")
                self.assertEqual(event["stage"], "processing")
                self.assertIs(event["ok"], False)
                self.assertTrue(event["message"].startswith("Error: "), event["message"])
                self.assertEqual(result.out, "")

    def test_machine_progress_near_misses_do_not_switch_the_reporting(self):
        result = run("--machine-progress=1")
        self.assertEqual(result.status, 1)
        self.assertIn("PARSE ERROR", result.err)

    def test_linear_tuning_requires_linear(self):
        message = "--shadows-clipping and --target-background require --linear."
        for option in (["--target-background", "0.3"], ["--shadows-clipping", "-2.8"]):
            with self.subTest(option=option):
                result = run("-i", "a.tif", *option)
                self.assertEqual(result.status, FAILURE)
                self.assertEqual(result.err, message + "\n")
                event = run("-i", "a.tif", *option, "--machine-progress").records()[-1]
                self.assertEqual(event["message"], message)

    def test_bad_strides_fail_before_the_input_is_opened(self):
        geometry = "Window size must be 512, with a positive stride no larger than the window."
        for stride, message in ((0, geometry), (-2, geometry), (513, geometry), (514, geometry),
                                (1, "Stride should be even!"), (3, "Stride should be even!"),
                                (255, "Stride should be even!"), (511, "Stride should be even!")):
            with self.subTest(stride=stride):
                result = self.fail_with(message, "-i", self.path("none.tif"), "-s", stride)
                self.assertEqual(result.messages("input"), [])

    def test_two_outputs_with_one_path_are_refused_before_the_input_is_opened(self):
        same = self.path("a.tif")
        message = f"Two outputs have the same path: {same}"
        for outputs in (["-o", same, "-m", same], ["-m", same, "-n", same]):
            result = self.fail_with(message, "-i", self.path("none.tif"), *outputs)
            self.assertEqual(result.messages("input"), [])

    def test_paths_are_literal(self):
        for name in ("a b.tif", "-x.tif", "m31[1].tif", "\N{PAW PRINTS}.tif", "~x.tif", "!x.tif",
                     " lead.tif", "a%20b.tif", "a'b\"c.tif"):
            with self.subTest(name=name):
                self.image(name)
                output = "out " + name
                result = self.succeed("-i", name, "-o", output, "-w", model("identity"),
                                      cwd=self.folder)
                self.assertIn(f"Writing starless image to: {output}\n", result.out)
                self.assertTrue(
                    (read_image(self.path(output)) == read_image(self.path(name))).all()
                )

    def test_without_an_output_option_starless_jpg_is_written(self):
        self.image("in.png")
        self.succeed("-i", "in.png", "-w", model("identity"), cwd=self.folder)
        self.assertEqual(self.files(), ["in.png", "starless.jpg"])


if __name__ == "__main__":
    unittest.main()
