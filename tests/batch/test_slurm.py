"""Batches on a real Slurm of one node."""

import os
import re
import signal
import subprocess
import time
import unittest

from batches import BATCH, MODELS, PROGRAM, TIMEOUT_S, BatchTest, digests, end_group
from recipes import BAD, GOOD, RecipeTest, recipe
from slurm_node import CannotRun, SlurmNode
from waiting import wait_for

FRAMES = ["a.tif", "b.tif", "c.tif", "d.tif", "held.tif"]


def start_slurm(test):
    """A Slurm until the test ends. Skips the test where its daemons may not run."""
    try:
        node = SlurmNode()
    except CannotRun as reason:
        test.skipTest(f"Slurm cannot run here: {reason}")
    test.addCleanup(node.stop)
    node.start()
    return node


class ArrayTest(RecipeTest):
    """The guide's loop for an sbatch array."""

    def setUp(self):
        super().setUp()
        self.node = start_slurm(self)
        self.environment = {**self.node.environment, "PATH": self.environment["PATH"]}

    def run_loop(self, script):
        before = len(self.node.jobs())
        said = self.shell(script)
        self.assertIn("Submitted batch job", said)
        wait_for(lambda: len(self.node.jobs()) == before + 4 and all(
            job["JobState"] in ("COMPLETED", "FAILED") for job in self.node.jobs()), "the array's end")
        number = sorted([*GOOD, BAD]).index(BAD) + 1
        self.assertIn(f"night/{BAD}", (self.folder / "logs" / f"{number}.log").read_text())

    def test_the_guides_array(self):
        self.check_loop(recipe("An sbatch array"))


class SlurmTest(BatchTest):
    """Each test has a Slurm of its own: one that has been killed may stay damaged."""

    def setUp(self):
        super().setUp()
        self.node = start_slurm(self)

    def snakemake(self, group=3, **config):
        # With CI set, the engine asks for the jobs each second and not only each tenth.
        environment = {**self.node.environment, "CI": "1"}
        process = subprocess.Popen(  # pylint: disable=consider-using-with
            ["snakemake", "--snakefile", str(BATCH / "workflow" / "Snakefile"),
             "--profile", str(BATCH / "profiles" / "slurm"), "--group-components", f"frames={group}",
             "--config", f"in={self.source}", f"out={self.results}", f"program={self.program}",
             *(f"{key}={value}" for key, value in config.items())],
            cwd=self.folder, env=environment, stdin=subprocess.DEVNULL, text=True,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True)
        self.addCleanup(process.communicate)
        self.addCleanup(end_group, process)
        return process

    def finish(self, process):
        """Waits for a run, which has to end well."""
        try:
            output, _ = process.communicate(timeout=TIMEOUT_S)
        except subprocess.TimeoutExpired:
            self.fail(f"The run did not end.\n{self.node.logs()}")
        self.assertEqual(process.returncode, 0, output + self.node.logs())

    def wait_for(self, condition, what):
        try:
            wait_for(condition, what)
        except TimeoutError as error:
            self.fail(f"{error}\n{self.node.logs()}")

    def hold(self):
        """A run of five frames of which one is held, with at least two results there: two jobs share
        the frames in an order of their own."""
        for name in FRAMES:
            self.frame(name)
        process = self.snakemake()
        self.wait_for(lambda: self.starts("held.tif") and len(self.result_names()) >= 2,
                      "the held frame and two others")
        done = self.result_names()
        return process, digests(self.results), done

    def check_finished(self, before, done):
        self.assertEqual(self.result_names(), FRAMES)
        for name in FRAMES:
            self.assertEqual((self.results / name).read_bytes(), b"frame " + name.encode())
        for name in done:
            self.assertEqual(self.starts(name), 1, name)
            self.assertEqual(digests(self.results)[name], before[name])

    def open_gate(self):
        (self.folder / "gate").touch()

    def test_nine_frames_of_which_three_are_bad(self):
        good = self.nine_frames()
        self.program = PROGRAM
        options = ["--stride", "512", "--weights", str(MODELS / "identity.onnx")]
        self.finish(self.snakemake(group=4, options=options))

        self.assertEqual(self.result_names(), sorted(good))
        alone = self.folder / "alone.tif"
        for name in good:
            subprocess.run([PROGRAM, "-q", "-i", self.source / name, "-o", alone, *options], check=True)
            self.assertEqual((self.results / name).read_bytes(), alone.read_bytes())
        self.assertEqual(set(self.failed()), {"empty.tif", "text.tif", "night 1/cut.tif"})
        jobs = self.node.jobs()  # nine frames, four a job
        self.assertEqual([job["JobState"] for job in jobs], ["COMPLETED"] * 3)
        # Three minutes for each frame with a header, two for the others; the memory of the largest.
        minutes = sum(int(re.fullmatch(r"00:(\d\d):00", job["TimeLimit"]).group(1)) for job in jobs)
        self.assertEqual(minutes, 7 * 3 + 2 * 2)
        memory = {job["MinMemoryNode"] for job in jobs}
        self.assertIn("610M", memory)
        self.assertLessEqual(memory, {"600M", "610M"})  # a job may have no frame with a header

    def test_a_killed_program_is_run_again_and_costs_no_other_frame_of_its_job(self):
        for name in ("a.tif", "killed_1.tif", "z.tif"):
            self.frame(name)
        self.finish(self.snakemake())
        self.assertEqual(self.result_names(), ["a.tif", "killed_1.tif", "z.tif"])
        self.assertEqual(self.starts(), ["a.tif", "killed_1.tif", "killed_1.tif", "z.tif"])

    def test_a_killed_job_is_submitted_again(self):
        process, before, done = self.hold()
        for job in self.node.jobs():
            self.node.ask("scancel", "--full", "--signal", "KILL", job["JobId"])
        self.wait_for(lambda: self.starts("held.tif") == 2, "the second start")
        self.open_gate()
        self.finish(process)
        self.check_finished(before, done)
        self.assertEqual(self.starts("held.tif"), 2)

    def test_goes_on_after_the_engine_was_killed(self):
        names = ["a.tif", "b.tif", "c.tif", "held_1.tif", "held_2.tif"]
        for name in names:
            self.frame(name)
        process = self.snakemake(group=5)
        # In the one job, one of the two has begun then and the other has not.
        self.wait_for(lambda: any(name.startswith("held") for name in self.starts()), "a held frame")
        os.killpg(process.pid, signal.SIGKILL)
        process.wait(TIMEOUT_S)
        again = self.snakemake(group=5)
        self.wait_for(lambda: len(self.node.jobs()) == 2 or again.poll() is not None, "the second job")
        self.open_gate()
        self.finish(again)
        self.assertEqual(self.result_names(), names)
        self.assertEqual(self.starts(), names)  # each once

    def test_goes_on_while_the_nodes_daemon_is_restarted(self):
        process, before, done = self.hold()
        self.node.kill_slurmd()
        self.assertEqual(self.starts("held.tif"), 1)
        self.node.start_slurmd()
        self.open_gate()
        self.finish(process)
        self.check_finished(before, done)
        self.assertEqual(self.starts("held.tif"), 1)

    def test_goes_on_while_the_controller_is_restarted(self):
        process, before, done = self.hold()
        self.node.kill_controller()
        time.sleep(3)  # it asks for its jobs and gets no answer
        self.assertIsNone(process.poll())
        self.node.start_controller()
        self.open_gate()
        self.finish(process)
        self.check_finished(before, done)
        self.assertEqual(self.starts("held.tif"), 1)

    def test_goes_on_after_the_node_has_lost_its_power(self):
        process, before, done = self.hold()
        self.node.cut_power()
        self.wait_for(lambda: not subprocess.run(["pgrep", "-f", f"sh {self.program}"], check=False,
                                                 capture_output=True).stdout, "the end of all jobs")
        self.assertFalse((self.results / "held.tif").exists())
        self.open_gate()
        self.node.switch_on()
        process.communicate(timeout=TIMEOUT_S)
        self.finish(self.snakemake())  # the same command, if the job was not queued again
        self.check_finished(before, done)


if __name__ == "__main__":
    unittest.main()
