"""Batches on a real Slurm of one node."""

import os
import re
import signal
import subprocess
import time
import unittest

from batches import BATCH, MODELS, PROGRAM, TIMEOUT_S, BatchTest, digests, end_group, wait_for
from slurm_node import CannotRun, SlurmNode


FRAMES = ["a.tif", "b.tif", "c.tif", "d.tif", "held.tif"]


class SlurmTest(BatchTest):
    @classmethod
    def setUpClass(cls):
        try:
            SlurmNode.check()
        except CannotRun as reason:
            raise unittest.SkipTest(f"Slurm cannot run here: {reason}") from None
        cls.node = SlurmNode()
        cls.addClassCleanup(cls.node.stop)
        cls.node.start()

    def snakemake(self, *words, config=(), group=3):
        # With CI set, the engine asks for the jobs each second and not only each tenth.
        environment = {**self.node.environment, "CI": "1"}
        process = subprocess.Popen(  # pylint: disable=consider-using-with
            ["snakemake", "--snakefile", str(BATCH / "workflow" / "Snakefile"),
             "--profile", str(BATCH / "profiles" / "slurm"), "--group-components", f"frames={group}",
             "--config", f"in={self.source}", f"out={self.results}", f"program={self.program}",
             *config, *words],
            cwd=self.folder, env=environment, stdin=subprocess.DEVNULL, text=True,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, start_new_session=True)
        self.addCleanup(process.communicate)
        self.addCleanup(end_group, process)
        return process

    def run_slurm(self, *words, **options):
        output, _ = self.snakemake(*words, **options).communicate(timeout=TIMEOUT_S)
        return output

    def finish(self, process):
        output, _ = process.communicate(timeout=TIMEOUT_S)
        self.assertEqual(process.returncode, 0, output)

    def hold(self):
        """A run of five frames of which one is held, with at least two results there: two jobs share
        the frames in an order of their own."""
        for name in FRAMES:
            self.frame(name)
        process = self.snakemake()
        wait_for(lambda: self.starts("held.tif") and len(self.result_names()) >= 2,
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
        output = self.run_slurm(config=(f"options={options}",), group=4)

        self.assertEqual(self.result_names(), sorted(good), output)
        alone = self.folder / "alone.tif"
        for name in good:
            subprocess.run([PROGRAM, "-q", "-i", self.source / name, "-o", alone, *options], check=True)
            self.assertEqual((self.results / name).read_bytes(), alone.read_bytes())
        self.assertEqual(set(self.failed()), {"empty.tif", "text.tif", "night 1/cut.tif"})
        jobs = self.node.ask("scontrol", "-o", "show", "job").stdout.decode().splitlines()
        latest = [job for job in jobs if "JobState=COMPLETED" in job][-3:]
        self.assertEqual(len(latest), 3, jobs)  # nine frames, four a job
        # Three minutes for each frame with a header, two for the others; the memory of the largest.
        minutes = sum(int(re.search(r"TimeLimit=00:(\d\d):00", job).group(1)) for job in latest)
        self.assertEqual(minutes, 7 * 3 + 2 * 2)
        memory = {re.search(r"MinMemoryNode=(\w+)", job).group(1) for job in latest}
        self.assertIn("610M", memory)
        self.assertLessEqual(memory, {"600M", "610M"})  # a job may have no frame with a header

    def test_a_killed_program_is_run_again_and_costs_no_other_frame_of_its_job(self):
        for name in ("a.tif", "killed_1.tif", "z.tif"):
            self.frame(name)
        self.run_slurm()
        self.assertEqual(self.result_names(), ["a.tif", "killed_1.tif", "z.tif"])
        self.assertEqual(self.starts(), ["a.tif", "killed_1.tif", "killed_1.tif", "z.tif"])

    def test_goes_on_after_the_engine_was_killed(self):
        process, before, done = self.hold()
        os.killpg(process.pid, signal.SIGKILL)
        process.wait(TIMEOUT_S)
        again = self.snakemake()
        time.sleep(3)  # it finds the job that runs
        self.open_gate()
        self.finish(again)
        self.check_finished(before, done)
        self.assertEqual(self.starts("held.tif"), 1)

    def test_goes_on_while_the_controller_is_restarted(self):
        process, before, done = self.hold()
        self.node.kill("slurmctld")
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
        wait_for(lambda: not subprocess.run(["pgrep", "-f", f"sh {self.program}"], check=False,
                                            capture_output=True).stdout, "the end of all jobs")
        self.assertFalse((self.results / "held.tif").exists())
        self.open_gate()
        self.node.start_node()
        process.communicate(timeout=TIMEOUT_S)
        self.finish(self.snakemake())  # the same command, if the job was not queued again
        self.check_finished(before, done)


if __name__ == "__main__":
    unittest.main()
