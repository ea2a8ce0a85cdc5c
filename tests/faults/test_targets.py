"""Outputs that go where something is already, or where nothing can be."""

import os
import socket
import unittest

import numpy

from faults import ALWAYS, EIO, OLD, Fault, FaultTest, content, spread, write_fits
from program import FAILURE, model, run

GONE = (
    r"^(Unable to (write|open) .*|(Creating image|Writing .*|Closing|Compressing) failed for FITS "
    r"image .+|Unable to replace FITS output path: .+)$"
)


class SameFile(FaultTest):
    """The output is the input, or two outputs are one."""

    def test_the_input_is_replaced_by_the_complete_result(self):
        for name in ("in.tif", "in.png", "in.fits"):
            source = self.input(name)
            [complete] = self.complete(source, self.outputs("out" + source.suffix))
            spellings = {
                "itself": source,
                "dots": source.parent / "results" / ".." / name,
                "link": self.path("link" + source.suffix),
            }
            spellings["link"].symlink_to(name)
            for spelling, target in spellings.items():
                with self.subTest(name=name, spelling=spelling):
                    self.input(name)
                    self.succeed(*self.arguments(source, [target]))
                    self.assertEqual(content(source), complete)
            self.assertTrue(spellings["link"].is_symlink())

    def test_a_hard_link_to_the_input_is_replaced_and_the_input_stays(self):
        source = self.input("in.tif")
        before = source.read_bytes()
        output = self.results / "out.tif"
        output.hardlink_to(source)
        self.succeed(*self.arguments(source, [output]))
        self.assertNotEqual(output.read_bytes(), before)
        self.assertEqual(source.read_bytes(), before)

    def test_an_input_that_cannot_be_replaced_stays(self):
        for name in ("in.tif", "in.fits"):
            source = self.input(name)
            before = source.read_bytes()
            for call in ("write", "flush", "rename"):
                with self.subTest(name=name, call=call):
                    fault = Fault(call, number=1, times=ALWAYS, path=self.folder, error=EIO)
                    result, hit = self.struck(fault, *self.arguments(source, [source]))
                    self.assertTrue(hit)
                    self.failed(result, GONE)
                    self.assertEqual(source.read_bytes(), before)

    def test_the_input_may_become_a_layer(self):
        source = self.input("in.tif")
        complete = self.complete(source, self.outputs("out.png", "mask.tif"))
        main = self.results / "out.png"
        self.succeed(*self.arguments(source, [main, source]))
        self.assertEqual([content(main), content(source)], complete)

    def test_two_outputs_with_one_path_are_refused(self):
        source = self.input("in.tif")
        for first, second in (("a.tif", "a.tif"), ("a.tif", "./a.tif"), ("a.fits", "../results/a.fits"),
                              ("old.tif", "link.tif"), ("old.tif", "hard.tif")):
            with self.subTest(first=first, second=second):
                self.restore(self.outputs("old.tif"))
                for path in self.outputs("link.tif", "hard.tif"):
                    path.unlink(missing_ok=True)
                (self.results / "link.tif").symlink_to("old.tif")
                (self.results / "hard.tif").hardlink_to(self.results / "old.tif")
                paths = [f"{self.results}/{first}", f"{self.results}/{second}"]
                for outputs in (paths, [f"{self.results}/other.tif", *paths]):
                    self.fail_with(f"Two outputs have the same path: {paths[1]}",
                                   *self.arguments(source, outputs))
                    self.assertEqual(sorted(os.listdir(self.results)),
                                     ["hard.tif", "link.tif", "old.tif"])
                    self.assertEqual((self.results / "old.tif").read_bytes(), OLD)


class NoFile(FaultTest):
    """Targets that are no files are refused before the work starts, and stay."""

    def refused(self, target, reason, option="-o"):
        names = {"-o": "out", "-m": "mask", "-n": "stars"}
        outputs = {option: target}
        if option != "-o":
            outputs["-o"] = self.results / f"{names['-o']}.png"
        is_fits = str(target).endswith((".fits", ".fits.gz"))
        message = (f"Unable to replace FITS output path: {target} ({reason})" if is_fits else
                   f"Unable to write output image: {target} ({reason})")
        arguments = [text for pair in outputs.items() for text in pair]
        result = self.fail_with(message, "-i", self.source, "-w", model(self.weights), *arguments)
        self.assertEqual(result.messages("inference_backend"), [])
        self.assertFalse((self.results / "out.png").exists())

    def setUp(self):
        super().setUp()
        self.source = self.input("in.tif")

    def each_target(self):
        for option in ("-o", "-m", "-n"):
            for extension in (".tif", ".png", ".jpg", ".fits", ".fits.gz"):
                with self.subTest(option=option, extension=extension):
                    target = self.results / f"target{extension}"
                    target.unlink(missing_ok=True)
                    yield target, option

    def test_a_folder(self):
        for target, option in self.each_target():
            target.mkdir()
            self.refused(target, "not a regular file", option)
            self.assertEqual(list(target.iterdir()), [])
            target.rmdir()

    def test_a_device(self):
        for target, option in self.each_target():
            target.symlink_to("/dev/full")
            self.refused(target, "not a regular file", option)

    def test_a_pipe(self):
        for target, option in self.each_target():
            os.mkfifo(target)
            self.refused(target, "not a regular file", option)
            self.assertTrue(target.is_fifo())

    def test_a_socket(self):
        target = self.results / "target.tif"
        with socket.socket(socket.AF_UNIX) as server:
            server.bind(str(target))
            self.refused(target, "not a regular file")
        self.assertTrue(target.is_socket())

    def test_a_link_that_points_to_nothing(self):
        for target, option in self.each_target():
            target.symlink_to("nowhere")
            self.refused(target, "the link points to no file", option)
            self.assertTrue(target.is_symlink())

    def test_a_link_that_points_to_itself(self):
        target = self.results / "target.tif"
        target.symlink_to(target.name)
        result = run("-i", self.source, "-o", target, "-w", model(self.weights))
        self.failed(result, r"^Unable to write output image: .*target\.tif \(.+\)$")

    def test_a_link_to_a_file_stays_a_link(self):
        for target, _ in self.each_target():
            store = self.path("store" + target.suffix)
            store.write_bytes(OLD)
            target.symlink_to(store)
            self.succeed(*self.arguments(self.source, [target]))
            self.assertTrue(target.is_symlink())
            self.assertNotEqual(store.read_bytes(), OLD)


class Protected(FaultTest):
    """What the user may not write; a process without the rights of root, whom modes do not stop."""

    USER = 65534

    def setUp(self):
        super().setUp()
        self.source = self.input("in.tif")
        self.old = self.results / "out.tif"

    def give_away(self, *paths):
        if os.geteuid() == 0:
            self.folder.chmod(0o755)
            for path in paths:
                os.chown(path, self.USER, self.USER)

    def run_as_user(self, target):
        def drop():
            if os.geteuid() == 0:
                os.setgroups([])
                os.setgid(self.USER)
                os.setuid(self.USER)
        return run(*self.arguments(self.source, [target]), preexec=drop)

    def refused(self, target, before):
        result = self.run_as_user(target)
        self.failed(result, rf"^Unable to write output image: {target} \(Permission denied\)$")
        self.assertEqual(result.messages("inference_backend"), [])
        self.assertEqual(target.read_bytes(), before)
        self.assertEqual(os.listdir(self.results), [target.name])

    def test_a_write_protected_file_is_refused_before_the_work(self):
        for name in ("out.tif", "out.png", "out.jpg"):
            with self.subTest(name=name):
                target = self.results / name
                target.write_bytes(OLD)
                target.chmod(0o444)
                self.give_away(self.results, target)
                self.refused(target, OLD)
                target.unlink()

    @unittest.skipIf(os.geteuid() != 0, "only root can give files away")
    def test_a_file_of_another_owner_is_refused_before_the_work(self):
        self.old.write_bytes(OLD)
        self.old.chmod(0o644)
        self.give_away(self.results)
        self.refused(self.old, OLD)

    def test_a_write_protected_fits_file_gives_its_name_away(self):
        target = self.results / "out.fits"
        target.write_bytes(OLD)
        target.chmod(0o444)
        self.give_away(self.results, target)
        self.assertEqual(self.run_as_user(target).status, 0)
        self.assertNotEqual(target.read_bytes(), OLD)

    def test_a_file_in_a_folder_that_takes_no_other_is_written(self):
        for name in ("out.tif", "out.png"):
            with self.subTest(name=name):
                target = self.results / name
                [complete] = self.complete(self.source, [target])
                target.write_bytes(OLD)
                self.give_away(self.results, target)
                self.results.chmod(0o555)
                result = self.run_as_user(target)
                self.results.chmod(0o755)
                self.assertEqual(result.status, 0, result.err)
                self.assertEqual(content(target), complete)
                target.unlink()


class Removed(FaultTest):
    def test_the_folder_of_the_outputs_is_removed_during_the_run(self):
        for names in (("out.tif", "mask.png"), ("out.fits", "mask.fits.gz")):
            source, outputs = self.input("in.tif"), self.outputs(*names)
            arguments = self.arguments(source, outputs)
            for call in ("open", "write", "flush", "rename"):
                self.restore(outputs)
                for number in spread(self.count_calls(call, *arguments, path=self.results)):
                    with self.subTest(names=names, call=call, number=number):
                        self.restore(outputs)
                        fault = Fault(call, number=number, path=self.results, remove=self.results)
                        result, hit = self.struck(fault, *arguments)
                        self.assertTrue(hit)
                        # Once the last file is in place nobody notices any more.
                        if result.status != 0:
                            self.failed(result, GONE)
                        self.assertFalse(self.results.exists())


class Provider(FaultTest):
    def test_a_network_that_fails_at_the_seventh_tile(self):
        # Eight windows side by side at a stride of one window; the model takes only samples of
        # 0.125, and the first that is not comes with the seventh window.
        stored = numpy.full((512, 8 * 512, 3), 0.125, numpy.float32)
        stored[100, 6 * 512 + 300] = 0.25
        source = write_fits(self.path("in.fits"), stored)
        outputs = self.outputs("out.fits", "mask.fits.gz", "stars.tif")
        self.restore(outputs)
        self.weights = "fails_on_tiles"
        result = run(*self.arguments(source, outputs, "-s", "512", "--machine-progress", "-q"))
        self.assertEqual(result.status, FAILURE)
        events = [record for record in result.records() if "event" in record]
        progress = [event["current"] for event in events if event["event"] in ("start", "progress")]
        self.assertEqual(progress[-1], 6)
        self.assertEqual(events[-1]["event"], "error")
        self.assertRegex(events[-1]["message"],
                         r"^ONNX Runtime inference failed using CPU execution provider for tensor "
                         r"1x512x512x3\. ")
        self.judge(result, outputs, [None] * 3)


class StandardOutput(FaultTest):
    def test_documents_that_cannot_be_written_are_no_success(self):
        for option in ("--machine-info", "--check-updates"):
            with self.subTest(option=option):
                result = run(option, inside=("sh", "-c", 'exec "$@" >/dev/full', "sh"))
                self.assertEqual(result.status, FAILURE)
                self.assertEqual(result.err, "Unable to write to standard output.\n")

    def test_a_full_standard_output_does_not_harm_the_image(self):
        source, outputs = self.input("in.tif"), self.outputs("out.tif")
        complete = self.complete(source, outputs)
        self.restore(outputs)
        result = run(*self.arguments(source, outputs),
                     inside=("sh", "-c", 'exec "$@" >/dev/full', "sh"))
        self.assertEqual(result.status, 0, result.err)
        self.judge(result, outputs, complete)


if __name__ == "__main__":
    unittest.main()
