"""Standard output, standard error and the exit status of whole runs."""

import json
import os
import shutil
import unittest

import jsonschema
import numpy
from astropy.io import fits

from program import FAILURE, SOURCE, ProgramTest, model, run, write_image


def validator(name):
    schema = json.loads((SOURCE / f"docs/schemas/{name}.v1.schema.json").read_text())
    return jsonschema.Draft202012Validator(schema)


class Reporting(ProgramTest):
    def setUp(self):
        super().setUp()
        self.input = self.image("in.png", 512, 600)
        self.output = self.path("out.png")

    def arguments(self, *more, weights="identity"):
        return ["-i", self.input, "-o", self.output, "-w", model(weights), *more]

    def test_people_read_percents_and_the_written_file(self):
        result = self.succeed(*self.arguments("-s", 512))
        self.assertEqual(
            result.out,
            "Working: 0.0%\rWorking: 50.0%\rWorking: 100.0%\rWorking: Done! \n"
            f"Writing starless image to: {self.output}\n",
        )

    def test_layers_are_announced_in_their_order(self):
        mask, unscreen = self.path("m.png"), self.path("u.png")
        result = self.succeed(*self.arguments("-n", unscreen, "-m", mask))
        self.assertTrue(
            result.out.endswith(
                f"Working: Done! \nWriting starless image to: {self.output}\n"
                f"Writing mask to: {mask}\n"
                f"Writing unscreen star layer to: {unscreen}\n"
            ),
            result.out,
        )

    def test_records_of_a_whole_run_in_their_order(self):
        result = self.succeed(*self.arguments())
        codes = [line[len("Info [") :].split("]", 1)[0] for line in result.err.splitlines()]
        self.assertEqual(
            [code for code in codes if code != "provider_selection"],
            ["model_context", "input", "input_format", "input_range", "channel_range",
             "channel_range", "channel_range", "input_conversion", "input_geometry",
             "linear_mtf", "inference_backend", "inference_backend", "output",
             "output_conversion"],
        )
        self.assertEqual(result.messages("input"), [f"Reading {self.input}"])
        self.assertEqual(
            result.messages("input_format"),
            ["format=PNG stored=uint16 width=600 height=512 channels=3"],
        )
        self.assertEqual(
            result.messages("inference_backend"),
            ["ONNX Runtime CPU fallback initialized successfully; continuing on CPU. GPU "
             "acceleration is unavailable for this run.",
             "Backend: ONNX Runtime (CPU execution provider)"],
        )
        self.assertEqual(result.messages("output"), [f"Writing {self.output}"])
        self.assertEqual(
            result.messages("output_conversion"),
            ["display-format export; depth=16 bits; normalized display values, not physical "
             "FITS units"],
        )

    def test_a_refused_provider_is_automatic_selection(self):
        (message,) = self.succeed(*self.arguments()).messages("provider_selection")
        self.assertTrue(
            message.startswith(
                "Automatic selection: ONNX Runtime DirectML initialization/warmup failed; trying "
                "the next provider. Provider detail: "
            ),
            message,
        )

    def test_what_onnx_runtime_logs_is_a_record(self):
        # It warns of weights that no node uses.
        result = self.succeed("-i", self.input, "-o", self.output, "-s", "512", "-w",
                              model("unused_weights"), "--machine-progress")
        (message,) = [
            record["message"]
            for record in result.records()
            if record.get("code") == "inference_backend" and "unused" in record["message"]
        ]
        self.assertTrue(message.startswith("ONNX Runtime warning: "), message)

    def test_model_context_names_the_explicit_model(self):
        (message,) = self.succeed(*self.arguments()).messages("model_context")
        weights = model("identity")
        self.assertIn(
            "; Model context: backend=ONNX Runtime; expected=Nebulex2_weights.onnx; "
            f"source=explicit --weights override; resolved path='{weights}'; path kind=regular "
            f"file; lookup candidates (in order): '{weights}'",
            message,
        )

    def test_a_quiet_success_writes_nothing_but_the_file(self):
        result = self.succeed(*self.arguments("--quiet"))
        self.assertEqual(result.out, "")
        self.assertEqual(result.err, "")
        self.assertTrue(self.output.exists())

    def test_quiet_keeps_warnings(self):
        # Almost-white samples under a model that dims them by less than the suppression threshold.
        result = self.succeed(
            *self.white_arguments("-n", self.path("u.png"), "--quiet", "-d")
        )
        self.assertEqual(result.out, "")
        (line,) = result.err.splitlines()
        self.assertRegex(
            line,
            r"^Warning \[data_loss\]: suppressed [1-9][0-9]* near-saturated unscreen output "
            r"sample\(s\)\. Additional unstable samples may remain\. Check the input image for "
            r"clipped or near-clipped highlights, especially channels with values at 1\.0000\.$",
        )
        result = self.succeed(
            *self.white_arguments("-n", self.path("u.png"), "--quiet", "-d", "--machine-progress")
        )
        (record,) = (record for record in result.records() if "event" not in record)
        self.assertEqual(record["severity"], "warning")
        self.assertEqual(record["code"], "data_loss")
        self.assertTrue(record["message"].startswith("suppressed "))

    def white_arguments(self, *more):
        white = numpy.full((512, 512, 3), 65535, numpy.uint16)
        white[0, 0] = 0  # not uniform, so the model sees the tile
        path = write_image(self.path("white.png"), white)
        return ["-i", path, "-o", self.output, "-w", model("slightly_dimmer"), "-s", 512, *more]

    def test_host_events_and_records_follow_their_schemas(self):
        result = self.succeed(*self.arguments("--machine-progress"))
        self.assertEqual(result.out, "")
        diagnostic, progress = validator("diagnostic"), validator("progress")
        events = []
        for line in result.err.splitlines():
            record = json.loads(line)
            if "event" in record:
                progress.validate(record)
                events.append(line)
            else:
                diagnostic.validate(record)
                self.assertTrue(
                    line.startswith('{"schema":"nebulexastro.cli.diagnostic.v1","severity":"')
                )
        start = '{"schema":"nebulexastro.cli.progress.v1","event":"'
        inference = '","stage":"inference","current":'
        # 600 columns round up to 768, 512 rows stay: three times two tiles.
        self.assertEqual(
            events,
            [f'{start}start{inference}0,"total":6,"percent":0.0}}']
            + [
                f'{start}progress{inference}{done},"total":6,"percent":{percent}}}'
                for done, percent in enumerate(
                    ("16.7", "33.3", "50.0", "66.7", "83.3", "100.0"), start=1
                )
            ]
            + [f'{start}finish{inference}6,"total":6,"percent":100.0,"ok":true}}'],
        )

    def test_quiet_hosts_still_get_progress(self):
        result = self.succeed(*self.arguments("--machine-progress", "--quiet", "-s", 512))
        self.assertEqual(
            [record["event"] for record in result.records()],
            ["start", "progress", "progress", "finish"],
        )

    def test_the_argument_counts_wherever_it_stands(self):
        # Behind "--", and as the value of another option.
        for arguments in (
            self.arguments("-q", "--", "--machine-progress"),
            ["-i", self.input, "-w", model("identity"), "-o", self.output, "-n",
             "--machine-progress"],
        ):
            with self.subTest(arguments=arguments[-3:]):
                result = run(*arguments, cwd=self.folder)
                self.assertEqual(result.out, "")
                records = result.records()  # every line is JSON
                self.assertIn("event", records[-1])

    def test_every_line_for_hosts_is_utf8(self):
        name = b"\xb5m 31.png"  # ISO 8859-1
        path = self.path(os.fsdecode(name))
        shutil.copyfile(self.input, path)
        output = self.path(os.fsdecode(name + b".png"))
        result = self.succeed("-i", path, "-o", output, "-w", model("identity"), "-s", 512,
                              "--machine-progress")
        result.err.encode("utf-8")  # fails where a byte was none
        (reading,) = (r["message"] for r in result.records() if r.get("code") == "input")
        self.assertEqual(reading, f"Reading {self.folder}/\ufffdm 31.png")
        self.assertTrue(output.exists())

    def test_header_text_that_is_no_utf8_reaches_hosts_as_json(self):
        path = self.path("in.fits")
        fits.PrimaryHDU(numpy.full((512, 512), 9, numpy.uint8)).writeto(path)
        data = bytearray(path.read_bytes())
        card = b"BUNIT   = '\xb5Jy     '".ljust(80)
        end = data.index(b"END" + b" " * 77)
        data[end : end + 160] = card + b"END".ljust(80)
        path.write_bytes(data)
        output = self.path("out.fits")
        result = self.succeed("-i", path, "-o", output, "-w", model("identity"),
                              "--machine-progress")
        result.err.encode("utf-8")
        messages = [record.get("message") for record in result.records()]
        self.assertIn("BUNIT   = '\ufffdJy     '", messages)
        # The result's header has the source's bytes.
        self.assertTrue(card in output.read_bytes())

    def test_a_failure_during_inference_ends_with_the_error_event(self):
        result = run(*self.arguments("--machine-progress", weights="nan_output"))
        self.assertEqual(result.status, FAILURE)
        records = result.records()
        self.assertEqual(records[-1]["event"], "error")
        self.assertTrue(
            result.err.splitlines()[-1].startswith(
                '{"schema":"nebulexastro.cli.progress.v1","event":"error","stage":"processing",'
                '"ok":false,"message":"Inference returned non-finite samples.\\nExecutable='
            )
        )
        self.assertIn("start", [record.get("event") for record in records])
        self.assertNotIn("finish", [record.get("event") for record in records])
        self.assertFalse(self.output.exists())

    def test_a_failure_before_inference_has_only_the_error_event(self):
        result = run("-i", self.path("none.tif"), "--machine-progress")
        self.assertEqual(
            [record["event"] for record in result.records() if "event" in record], ["error"]
        )

    def test_a_human_failure_is_the_text_and_the_model_context(self):
        missing = self.path("none.tif")
        result = run("-i", missing, "-q")
        self.assertEqual(result.status, FAILURE)
        first, second = result.err.splitlines()
        self.assertEqual(first, f"Input image does not exist: {missing}")
        self.assertRegex(
            second,
            r"^Executable='/.*/nebulex2'; working directory='.*'; Model context: "
            r"backend=ONNX Runtime; expected=Nebulex2_weights\.onnx; source=automatic lookup; ",
        )
        self.assertEqual(result.out, "")


if __name__ == "__main__":
    unittest.main()
