"""The Slurm profile's scripts, with commands in Slurm's place that answer as a test tells them."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

from batches import BATCH

PROFILE = BATCH / "profiles" / "slurm"
UNREACHABLE = "slurm_load_jobs error: Unable to contact slurm controller (connect failure)"


class Scripts(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="nebulex2-scripts-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def command(self, name, script):
        path = self.folder / name
        path.write_text("#!/bin/sh\n" + script)
        path.chmod(0o755)

    def call(self, *words):
        environment = {**os.environ, "PATH": f"{self.folder}:{os.environ['PATH']}"}
        return subprocess.run(words, cwd=self.folder, env=environment, capture_output=True, text=True,
                              check=False, timeout=60)

    def status(self, answer, status=0):
        self.command("scontrol", f"echo '{answer}' {'>&2' if status else ''}; exit {status}")
        return self.call(PROFILE / "status.sh", "17").stdout

    def test_states_of_jobs(self):
        for state, said in (
                ("COMPLETED", "success"), ("PENDING", "running"), ("RUNNING", "running"),
                ("COMPLETING", "running"), ("CONFIGURING", "running"), ("SUSPENDED", "running"),
                ("REQUEUED", "running"), ("REQUEUE_HOLD", "running"), ("FAILED", "failed"),
                ("TIMEOUT", "failed"), ("OUT_OF_MEMORY", "failed"), ("NODE_FAIL", "failed"),
                ("CANCELLED", "failed"), ("PREEMPTED", "failed"), ("BOOT_FAIL", "failed"),
        ):
            with self.subTest(state=state):
                line = f"JobId=17 JobName=nebulex2 JobState={state} Reason=None Requeue=1"
                self.assertEqual(self.status(line), said + "\n")

    def test_a_forgotten_job_is_failed(self):
        self.assertEqual(self.status("slurm_load_jobs error: Invalid job id specified", 1), "failed\n")

    def test_a_controller_that_does_not_answer_says_nothing_of_the_job(self):
        self.assertEqual(self.status(UNREACHABLE, 1), "running\n")

    def submit(self):
        self.command("sleep", "echo waited >>waits")
        return self.call(PROFILE / "submit", "2", "900", "7", "job.sh")

    def test_submits_what_is_asked_for_and_prints_the_number(self):
        self.command("sbatch", 'echo "$@" >words; echo "17;cluster"')
        self.assertEqual(self.submit().stdout, "17\n")
        self.assertEqual(
            (self.folder / "words").read_text(),
            "--parsable --job-name nebulex2 --cpus-per-task 2 --mem 900 --time 7 "
            "--output logs/slurm/%j.log job.sh\n")
        self.assertTrue((self.folder / "logs" / "slurm").is_dir())

    def test_asks_a_controller_again_that_does_not_answer(self):
        self.command("sbatch", f"[ -e asked ] && echo 17 && exit; touch asked; echo '{UNREACHABLE}' "
                               ">&2; exit 1")
        self.assertEqual(self.submit().stdout, "17\n")
        self.assertEqual((self.folder / "waits").read_text(), "waited\n")

    def test_does_not_ask_for_ever(self):
        self.command("sbatch", f"echo '{UNREACHABLE}' >&2; exit 1")
        self.assertEqual(self.submit().returncode, 1)
        self.assertEqual((self.folder / "waits").read_text().count("waited"), 19)

    def test_a_refusal_is_passed_on_at_once(self):
        refusal = "sbatch: error: Memory specification can not be satisfied"
        self.command("sbatch", f"echo '{refusal}' >&2; exit 1")
        answer = self.submit()
        self.assertEqual(answer.returncode, 1)
        self.assertIn(refusal, answer.stderr)
        self.assertFalse((self.folder / "waits").exists())


if __name__ == "__main__":
    unittest.main()
