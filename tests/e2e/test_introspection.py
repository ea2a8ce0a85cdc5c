"""The switches that answer without touching an image."""

import json
import unittest

import jsonschema

from program import SOURCE, ProgramTest, run

OPTIONS = ["machine_info", "help", "version", "check_updates", "input", "output", "mask",
           "unscreen", "weights", "stride", "upsample", "linear", "shadows_clipping",
           "target_background", "quiet", "disable_highlights_protection", "machine_progress"]


class Introspection(ProgramTest):
    def golden(self):
        return (SOURCE / "tests/data/machine-info.json").read_text(encoding="utf-8")

    def test_without_arguments_the_short_usage_is_printed(self):
        result = self.succeed()
        self.assertEqual(
            result.out,
            "Usage: nebulex2 --input <image> --output <starless-image> [options]\n"
            "Example: nebulex2 --input image.tif --output starless.tif --mask mask.tif "
            "--unscreen stars.tif\n"
            "Run 'nebulex2 --help' for full options and input/output details.\n",
        )
        self.assertEqual(result.err, "")

    def test_machine_info_equals_the_golden_file(self):
        result = self.succeed("--machine-info")
        self.assertEqual(result.out, self.golden())
        self.assertEqual(result.err, "")

    def test_machine_info_follows_its_schema_with_keys_in_order(self):
        document = json.loads(self.succeed("--machine-info").out)
        schema = json.loads((SOURCE / "docs/schemas/machine-info.v1.schema.json").read_text())
        jsonschema.Draft202012Validator(schema).validate(document)
        self.assertEqual(
            list(document),
            ["schema", "product", "display_name", "executable", "version", "build", "backend",
             "features", "models", "options", "io", "diagnostics", "progress"],
        )
        self.assertEqual([option["name"] for option in document["options"]], OPTIONS)

    def test_machine_info_wins_over_everything_else(self):
        for others in (["--nonsense"], ["--stride", "x"], ["--check-updates"],
                       ["--machine-progress"], ["--help"]):
            with self.subTest(others=others):
                for line in ([*others, "--machine-info"], ["--machine-info", *others]):
                    result = self.succeed(*line)
                    self.assertEqual(result.out, self.golden())
                    self.assertEqual(result.err, "")

    def test_default_weights_is_the_name_that_is_looked_up(self):
        document = json.loads(self.succeed("--machine-info").out)
        name = document["models"][0]["default_weights"]
        result = run("--input", self.path("missing.tif"), "--machine-progress")
        context = result.records()[0]
        self.assertEqual(context["code"], "model_context")
        self.assertIn(f"; expected={name}; source=automatic lookup; ", context["message"])

    def test_documented_warning_codes_and_schemas_are_those_of_the_streams(self):
        document = json.loads(self.succeed("--machine-info").out)
        result = run("--input", self.path("missing.tif"), "--machine-progress")
        for record in result.records()[:-1]:
            self.assertEqual(list(record), document["diagnostics"]["fields"])
            self.assertEqual(record["schema"], document["diagnostics"]["schema"])
        self.assertEqual(result.records()[-1]["schema"], document["progress"]["machine"]["schema"])

    def test_check_updates_is_one_line(self):
        result = self.succeed("--check-updates")
        self.assertEqual(
            result.out, "Update checking is not available in this Nebulex2 build.\n"
        )
        self.assertEqual(result.err, "")

    def test_near_misses_do_not_trigger_the_switches(self):
        for argument in ("--machine-inf", "--machine-info=1", "--check-update"):
            with self.subTest(argument=argument):
                result = run(argument)
                self.assertEqual(result.status, 1)
                self.assertIn("PARSE ERROR", result.err)
                self.assertEqual(result.out, "")

    def test_version(self):
        for arguments in (["--version"], ["--version", "--machine-progress"]):
            result = self.succeed(*arguments)
            self.assertIn("version: 2.6.2\n", result.out)
            self.assertEqual(result.err, "")

    def test_help_lists_options_and_sections_in_order(self):
        for arguments in (["--help"], ["-h"], ["--help", "--machine-progress"]):
            result = self.succeed(*arguments)
            self.assertEqual(result.err, "")
            at = 0
            for text in ("--input <string>", "--output <string>", "--mask <string>",
                         "--unscreen <string>", "--weights <string>", "--stride <int>",
                         "--shadows-clipping <number>", "--target-background <number>",
                         "--upsample", "--linear", "--quiet",
                         "--disable-highlights-protection", "--machine-info",
                         "--check-updates", "--machine-progress",
                         "Nebulex2 CLI, ONNX Runtime backend.", "Inputs:",
                         "With --linear only, negative shadows are restored after MTF.",
                         "Outputs:", "Difference is clamped to [0,1] in normalized units.",
                         "Package layout:", "Nebulex2 v2.6.2"):
                at = result.out.find(text, result.out.find("Where:") if at == 0 else at)
                self.assertNotEqual(at, -1, text)


if __name__ == "__main__":
    unittest.main()
