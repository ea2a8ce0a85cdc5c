"""Batches on this computer."""

import os
import signal
import subprocess
import unittest

from batches import BATCH, MODELS, PROGRAM, TIMEOUT_S, BatchTest, digests
from waiting import wait_for


class NineFrames(BatchTest):
    """Six good frames and three bad ones, with the real program."""

    def test_good_frames_have_the_results_of_single_runs_and_bad_ones_are_listed(self):
        good = self.nine_frames()
        self.program = PROGRAM
        options = ("--stride", "512", "--weights", MODELS / "identity.onnx")
        self.run_batch("--layers", "mask", *options, status=1)

        masks = [name[:-4] + "_mask.tif" for name in good]
        self.assertEqual(self.result_names(), sorted(good + masks))
        for name, mask in zip(good, masks):
            alone, mask_alone = self.folder / "alone.tif", self.folder / "mask_alone.tif"
            subprocess.run([PROGRAM, "-q", "-i", self.source / name, "-o", alone, "-m", mask_alone,
                            *options], check=True)
            self.assertEqual((self.results / name).read_bytes(), alone.read_bytes())
            self.assertEqual((self.results / mask).read_bytes(), mask_alone.read_bytes())
        failed = self.failed()
        self.assertEqual(set(failed), {"empty.tif", "text.tif", "night 1/cut.tif"})
        for name, message in failed.items():
            self.assertIn(str(self.source / name), message)
            self.assertIn(name, self.report())
        self.assertIn("<b>6</b>done", self.report())
        self.assertIn("<b>3</b>failed", self.report())
        self.assertEqual(self.report().count("data:image/jpeg"), 12)

        before = digests(self.results)
        self.run_batch("--layers", "mask", *options, status=1)
        after = digests(self.results)
        self.assertEqual({name: before[name] for name in self.result_names()},
                         {name: after[name] for name in self.result_names()})


class Again(BatchTest):
    """What a second run does."""

    def test_only_what_has_changed_is_made_again(self):
        for name in ("a.tif", "b.tif", "night/c.tif"):
            self.frame(name)
        self.run_batch()
        self.assertEqual(self.starts(), ["a.tif", "b.tif", "c.tif"])
        self.run_batch()
        self.assertEqual(len(self.starts()), 3)

        self.frame("b.tif", b"another b")  # the frame is another one
        self.run_batch()
        self.assertEqual(self.starts("b.tif"), 2)
        self.assertEqual(len(self.starts()), 4)
        self.assertEqual((self.results / "b.tif").read_bytes(), b"another b")

        # Options of some frames are others.
        exceptions = self.configure(exceptions=[{"pattern": "night/*", "options": ["--linear"]}])
        self.run_batch(*exceptions)
        self.assertEqual(self.starts("c.tif"), 2)
        self.assertEqual(len(self.starts()), 5)
        self.assertIn("--linear", (self.folder / "starts").read_text().splitlines()[-1])

        self.run_batch("--linear", *exceptions)  # now those of the others
        self.assertEqual(len(self.starts()), 7)

        (self.results / "a.tif").unlink()  # a result is gone
        self.run_batch("--linear", *exceptions)
        self.assertEqual(self.starts("a.tif"), 3)
        self.assertEqual(len(self.starts()), 8)
        self.assertEqual((self.results / "a.tif").read_bytes(), b"frame a.tif")

    def test_failed_frames_are_tried_again_after_retry(self):
        for name in ("a.tif", "bad.tif", "bad_too.tif"):
            self.frame(name)
        said = self.run_batch(status=1).stdout
        self.assertIn(f"{BATCH / 'retry'} {self.results}\n", said)
        self.assertEqual(self.failed(), {"bad.tif": "This frame is bad.",
                                         "bad_too.tif": "This frame is bad."})
        self.run_batch(status=1)
        self.assertEqual(len(self.starts()), 3)
        self.assertIn("1", self.retry("bad.*"))
        self.run_batch(status=1)
        self.assertEqual(self.starts("bad.tif"), 2)
        self.assertIn("2", self.retry())
        self.run_batch(status=1)
        self.assertEqual(self.starts(), ["a.tif"] + ["bad.tif"] * 3 + ["bad_too.tif"] * 2)


class OthersFiles(BatchTest):
    """Files that a batch has not written."""

    def others(self, name, content, age):
        path = self.results / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
        self.age(path, age)
        return path

    def test_a_newer_file_in_a_results_place_is_left_alone(self):
        self.frame("a.tif")
        self.frame("b.tif")
        newer = self.others("a.tif", b"by hand", 10)
        before = digests(self.results)["a.tif"]
        self.run_batch()
        self.assertEqual(self.starts(), ["b.tif"])
        self.assertEqual(digests(self.results)["a.tif"], before)
        self.assertEqual(self.status("a.tif")["outcome"], "kept")
        self.run_batch("--linear")
        self.assertEqual(newer.read_bytes(), b"by hand")

    def test_an_older_file_is_left_alone_and_listed_until_it_is_moved_away(self):
        self.frame("a.tif")
        older = self.others("a.tif", b"by hand", 1000)
        self.run_batch(status=1)
        self.assertEqual(older.read_bytes(), b"by hand")
        self.assertIn(str(older), self.failed()["a.tif"])
        older.rename(self.folder / "moved.tif")
        self.run_batch()
        self.assertEqual(older.read_bytes(), b"frame a.tif")

    def test_a_file_in_a_layers_place_is_not_replaced(self):
        self.frame("a.tif")
        mask = self.others("a_mask.tif", b"painted", 10)
        self.run_batch("--layers", "mask", status=1)
        self.assertEqual(self.result_names(), ["a_mask.tif"])
        self.assertEqual(mask.read_bytes(), b"painted")
        self.assertIn(str(mask), self.failed()["a.tif"])

    def test_a_result_that_was_edited_is_not_replaced_when_options_change(self):
        self.frame("a.tif")
        self.run_batch()
        (self.results / "a.tif").write_bytes(b"retouched")
        self.run_batch("--linear")
        self.assertEqual((self.results / "a.tif").read_bytes(), b"retouched")
        self.assertEqual(self.starts("a.tif"), 1)

    def test_an_edited_result_is_not_replaced_when_its_frame_changes(self):
        self.frame("a.tif")
        self.run_batch()
        self.others("a.tif", b"retouched", 30)
        self.frame("a.tif", b"another a")
        self.age(self.source / "a.tif", 5)
        self.run_batch(status=1)
        self.assertEqual((self.results / "a.tif").read_bytes(), b"retouched")
        self.assertIn("changed since", self.failed()["a.tif"])

    def test_a_file_that_appears_while_the_frame_is_run_is_not_replaced(self):
        self.frame("held.tif")
        run = self.start_batch()
        wait_for(lambda: self.starts("held.tif"), "the frame's start")
        self.others("held.tif", b"just now", 0)
        (self.folder / "gate").touch()
        self.assertEqual(run.wait(TIMEOUT_S), 1)
        self.assertEqual((self.results / "held.tif").read_bytes(), b"just now")
        self.assertIn("has appeared", self.failed()["held.tif"])

    def test_links_are_not_written_through(self):
        self.frame("a.tif")
        self.frame("night/b.tif")
        elsewhere = self.folder / "elsewhere.tif"
        elsewhere.write_bytes(b"elsewhere")
        self.age(elsewhere, 1000)
        self.results.mkdir()
        (self.results / "a.tif").symlink_to(elsewhere)
        (self.results / "night").symlink_to(self.source / "night")
        self.run_batch(status=1)
        self.assertEqual(elsewhere.read_bytes(), b"elsewhere")
        self.assertEqual(set(self.failed()), {"a.tif", "night/b.tif"})
        self.assertIn("folder of the frames", self.failed()["night/b.tif"])

    def test_a_report_of_somebody_else_stops_the_batch_before_it_starts(self):
        self.frame("a.tif")
        for name in ("report.html", "failed.tsv"):
            with self.subTest(name=name):
                foreign = self.others(name, b"mine", 10)
                completed = self.run_batch(status=1)
                self.assertIn(str(foreign), completed.stderr)
                self.assertEqual(foreign.read_bytes(), b"mine")
                self.assertEqual(self.starts(), [])
                foreign.unlink()


class Killed(BatchTest):
    """Programs, runners and the engine that are killed."""

    def test_a_program_that_is_killed_is_run_again_with_more_memory(self):
        self.frame("killed_2.tif")
        self.run_batch()
        self.assertEqual(self.starts("killed_2.tif"), 3)
        status = self.status("killed_2.tif")
        self.assertEqual(status["attempt"], 3)
        self.assertGreater(status["asked"]["mem_mb"], 1000)
        self.assertEqual((self.results / "killed_2.tif").read_bytes(), b"frame killed_2.tif")

    def test_a_program_that_is_always_killed_costs_its_frame_alone(self):
        self.frame("killed_9.tif")
        for name in ("a.tif", "b.tif"):
            self.frame(name)
        self.run_batch(status=1)
        self.assertEqual(self.starts("killed_9.tif"), 3)
        self.assertIn("SIGKILL", self.failed()["killed_9.tif"])
        self.assertEqual(self.result_names(), ["a.tif", "b.tif"])

    def interrupt(self, number, kill):
        """Runs three frames of which one is held, and kills something then."""
        for name in ("a.tif", "held.tif", "z.tif"):
            self.frame(name)
        run = self.start_batch("--cores", 2)
        wait_for(lambda: self.starts("held.tif") and {"a.tif", "z.tif"} <= set(self.result_names()),
                 "all frames but the held one")
        before = digests(self.results)
        kill(run, number)
        return run, before

    def finish(self, before):
        """The same command finishes what is left; nothing that was whole is done again."""
        (self.folder / "gate").touch()
        self.run_batch("--cores", 2)
        for name in ("a.tif", "z.tif"):
            self.assertEqual(self.starts(name), 1)
            self.assertEqual(digests(self.results)[name], before[name])
        self.assertEqual((self.results / "held.tif").read_bytes(), b"frame held.tif")
        self.assertEqual(self.result_names(), ["a.tif", "held.tif", "z.tif"])
        self.assertEqual(list((self.results / ".nebulex2-batch" / "work").iterdir()), [])

    def test_goes_on_after_the_power_was_cut(self):
        run, before = self.interrupt(signal.SIGKILL, lambda run, number: os.killpg(run.pid, number))
        run.wait(TIMEOUT_S)
        self.assertFalse((self.results / "held.tif").exists())
        self.finish(before)

    def test_goes_on_after_an_interrupt(self):
        run, before = self.interrupt(signal.SIGINT, lambda run, number: os.killpg(run.pid, number))
        said, _ = run.communicate(timeout=TIMEOUT_S)
        self.assertNotEqual(run.returncode, 0)
        self.assertIn("2 frames done, 1 not finished", said)
        self.assertEqual(set(self.failed()), {"held.tif"})
        self.assertFalse((self.results / "held.tif").exists())
        self.finish(before)

    def test_goes_on_after_the_engine_alone_was_killed(self):
        def kill_engine(run, number):
            children = subprocess.run(["pgrep", "-P", str(run.pid)], capture_output=True, check=True)
            os.kill(int(children.stdout.split()[0]), number)

        run, before = self.interrupt(signal.SIGKILL, kill_engine)
        run.wait(TIMEOUT_S)
        # The frame's own process goes on, and the next run waits for it instead of a second one.
        self.finish(before)
        self.assertEqual(self.starts("held.tif"), 1)

    def test_a_killed_runner_takes_its_program_along_and_the_frame_is_run_again(self):
        def kill_runner(_, number):
            found = subprocess.run(["pgrep", "-f", f"run_frame.py {self.results}"],
                                   capture_output=True, check=True)
            os.kill(int(found.stdout.split()[0]), number)
            wait_for(lambda: self.starts("held.tif") == 2, "the second start")

        run, before = self.interrupt(signal.SIGKILL, kill_runner)
        (self.folder / "gate").touch()
        self.assertEqual(run.wait(TIMEOUT_S), 0)
        self.finish(before)
        self.assertEqual(self.starts("held.tif"), 2)


class OneAtATime(BatchTest):
    def test_a_second_run_on_the_same_results_is_refused(self):
        self.frame("held.tif")
        run = self.start_batch()
        wait_for(lambda: self.starts("held.tif"), "the frame's start")
        completed = self.run_batch(status=1)
        self.assertIn("Another run is at work", completed.stderr)
        (self.folder / "gate").touch()
        self.assertEqual(run.wait(TIMEOUT_S), 0)


@unittest.skipIf(len(os.sched_getaffinity(0)) < 2, "there is one processor only")
class Processors(BatchTest):
    def test_frames_that_run_side_by_side_have_processors_of_their_own(self):
        self.frame("held_1.tif")
        self.frame("held_2.tif")
        run = self.start_batch("--cores", 2)
        wait_for(lambda: len(self.starts()) == 2, "both frames' start")
        found = subprocess.run(["pgrep", "-f", f"sh {self.program}"], capture_output=True, check=True)
        allowed = [os.sched_getaffinity(int(number)) for number in found.stdout.split()]
        (self.folder / "gate").touch()
        self.assertEqual(run.wait(TIMEOUT_S), 0)
        self.assertEqual([len(one) for one in allowed], [1, 1])
        self.assertNotEqual(*allowed)


class Refused(BatchTest):
    """Batches that cannot start. Nothing is written then."""

    def refuse(self, message, *options):
        before = digests(self.folder)
        completed = self.run_batch(*options, status=1)
        self.assertEqual(completed.stderr.strip(), message)
        self.assertEqual(digests(self.folder), before)

    def test_without_frames(self):
        (self.source / ".hidden.tif").touch()
        self.frames_before[".hidden.tif"] = b""
        self.refuse(f"There is no frame in {self.source}: no file whose name fits *.xyz",
                    "--pattern", "*.xyz")

    def test_frames_that_are_one_file(self):
        file = self.frame("a.tif")
        self.source = file
        self.refuse(f"Frames are taken from a folder, and this is a file: {file}")
        self.source = file.parent

    def test_results_among_the_frames(self):
        self.frame("a.tif")
        self.results = self.source / "out"
        self.refuse("Frames and results need folders of their own, none within the other: "
                    f"{self.source} and {self.results}. Frames are never written to.")

    def test_frames_among_the_results(self):
        self.frame("a.tif")
        self.results = self.folder
        self.refuse("Frames and results need folders of their own, none within the other: "
                    f"{self.source} and {self.results}. Frames are never written to.")

    def test_two_frames_with_the_same_result(self):
        self.frame("a.tif")
        self.frame("a.fits")
        self.refuse("Two frames would have the same result, a.png: a.fits and a.tif. Rename one, or "
                    "choose other values of pattern, suffix or layers.", "--suffix", ".png")

    def test_options(self):
        self.frame("a.tif")
        for words, message in (
                (("--frob",), "options: the program has no option --frob for a run."),
                (("--version",), "options: the program has no option --version for a run."),
                (("-o", "x.tif"), "options: -o is chosen for each frame; see `suffix` and `layers`."),
                (("--stride",), "options: --stride needs a value."),
        ):
            with self.subTest(words=words):
                self.refuse(message, *words)

    def test_an_unknown_key(self):
        self.frame("a.tif")
        options = self.configure(strde=4, exceptions=[{"pattern": "a*", "option": []}])
        path = self.folder / "night.yaml"
        self.refuse(f"{path}: unknown key 'strde'\n"
                    f"{path}: exceptions[0]: key 'options' is missing\n"
                    f"{path}: exceptions[0]: unknown key 'option'", *options)

    def test_a_program_that_is_not_there(self):
        self.frame("a.tif")
        self.program = self.folder / "missing"
        self.refuse(f"program: {self.program} is not there, or cannot be run.")


if __name__ == "__main__":
    unittest.main()
