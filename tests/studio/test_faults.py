"""What goes wrong is told in words, and the studio stays usable."""

import os
import signal
import subprocess
import time
import unittest

import tifffile

from studio import Studio, StudioTest, fake_program, star_field, wait_until

READY = """
def say(**record): print(json.dumps(record), file=sys.stderr, flush=True)
def tiles(event, n): say(schema="nebulexastro.cli.progress.v1", event=event, stage="inference",
                         current=n, total=3, percent=n * 100 / 3)
"""


class Program(StudioTest):
    def start(self, script, **more):
        studio = self.enterContext(Studio(program=fake_program(self.folder, READY + script), **more))
        tifffile.imwrite(studio.folder / "a.tif", star_field(600, 520))
        return studio

    def run_once(self, studio):
        jobs = studio.post("/api/jobs", {"files": [studio.file_id("a.tif")]}, 201)["jobs"]
        return studio.wait_for_job(jobs[0]["id"])

    def expect_usable(self, studio):
        self.assertEqual(studio.get("/api/state")["version"].count("."), 2)
        self.assertEqual(studio.open("a.tif")["state"], "ready")
        self.assertEqual(list(studio.folder.glob(".*")), [])

    def test_a_program_that_is_missing_is_told_and_can_come_later(self):
        program = self.folder / "nebulex2-later"
        studio = self.enterContext(Studio(program=program))
        tifffile.imwrite(studio.folder / "a.tif", star_field(600, 520))
        state = studio.get("/api/state")["program"]
        self.assertFalse(state["found"])
        self.assertIn(str(program), state["error"])
        answer = studio.request("POST", "/api/jobs", {"files": [studio.file_id("a.tif")]})
        self.assertEqual((answer.status, answer.error()["code"]), (424, "no_program"))
        self.assertEqual(studio.open("a.tif")["state"], "ready")
        fake_program(self.folder, READY).rename(program)
        self.assertTrue(studio.post("/api/program", {}, 200)["found"])

    def test_a_program_that_speaks_something_else_is_told(self):
        for said in ("", "hello", "{}", '{"schema": "other.v1"}',
                     '{"schema": "nebulexastro.cli.machine-info.v1"}', "[" * 100000):
            program = self.folder / "other"
            said_file = self.folder / "said"
            said_file.write_text(said)
            program.write_text(f"#!/bin/sh\ncat '{said_file}'\n")
            program.chmod(0o755)
            with self.subTest(said=said[:50]), Studio(program=program) as studio:
                self.assertFalse(studio.get("/api/program")["found"])

    def test_a_program_that_vanishes_fails_its_job(self):
        studio = self.start("")
        (self.folder / "fake-nebulex2").unlink()
        job = self.run_once(studio)
        self.assertEqual(job["state"], "failed")
        self.assertIn("cannot be started", job["error"])
        self.expect_usable(studio)

    def test_a_program_that_is_killed_fails_its_job(self):
        studio = self.start("tiles('start', 0)\nos.kill(os.getpid(), 9)")
        job = self.run_once(studio)
        self.assertEqual(job["state"], "failed")
        self.assertIn("Killed", job["error"])
        self.expect_usable(studio)

    def test_a_program_that_fails_without_a_word_fails_its_job(self):
        studio = self.start("sys.exit(7)")
        job = self.run_once(studio)
        self.assertIn("exit status 7", job["error"])
        self.expect_usable(studio)

    def test_a_program_that_claims_success_without_a_result_fails_its_job(self):
        studio = self.start("tiles('finish', 3)")
        job = self.run_once(studio)
        self.assertEqual(job["state"], "failed")
        self.assertIn("a_starless.tif", job["error"])
        self.expect_usable(studio)

    def test_a_program_that_is_halted_can_be_stopped(self):
        studio = self.start("tiles('start', 0)\nos.kill(os.getpid(), 19)\n"
                            "import time; time.sleep(60)")
        jobs = studio.post("/api/jobs", {"files": [studio.file_id("a.tif")]}, 201)["jobs"]
        studio.wait_for_job(jobs[0]["id"], lambda job: job["total"] == 3)
        time.sleep(0.3)
        self.assertEqual(studio.get("/api/jobs/" + jobs[0]["id"])["state"], "running")
        studio.post(f"/api/jobs/{jobs[0]['id']}/stop", {}, 202)
        self.assertEqual(studio.wait_for_job(jobs[0]["id"])["state"], "stopped")
        self.expect_usable(studio)

    def test_a_program_that_does_not_want_to_end_is_ended(self):
        studio = self.start("import signal, time\nsignal.signal(15, signal.SIG_IGN)\n"
                            "tiles('start', 0)\ntime.sleep(60)")
        jobs = studio.post("/api/jobs", {"files": [studio.file_id("a.tif")]}, 201)["jobs"]
        studio.wait_for_job(jobs[0]["id"], lambda job: job["total"] == 3)
        studio.post(f"/api/jobs/{jobs[0]['id']}/stop", {}, 202)
        self.assertEqual(studio.wait_for_job(jobs[0]["id"])["state"], "stopped")
        self.expect_usable(studio)

    def test_lines_of_unknown_schemas_are_shown_as_they_are(self):
        lines = ['{"schema":"nebulexastro.cli.progress.v2","event":"x","current":9}',
                 '{"schema":"nebulexastro.cli.diagnostic.v1","severity":7}', "a loader's words",
                 '{"schema": null}', "[1, 2", '"text"', "<script>alert(1)</script>", "\u00e9\u2603"]
        script = "".join(f"print({line!r}, file=sys.stderr)\n" for line in lines)
        script += "sys.stderr.flush(); os.write(2, b'\\xff\\xfe\\n' + b'x' * 3000000 + b'\\n')\n"
        script += "os.write(2, b'no line end'); sys.exit(1)"
        studio = self.start(script)
        job = self.run_once(studio)
        self.assertEqual(job["state"], "failed")
        self.assertEqual([message["text"] for message in job["messages"]][:len(lines)], lines)
        self.assertTrue(all(message["kind"] == "text" for message in job["messages"]))
        self.assertEqual(job["messages"][len(lines)]["text"], "\ufffd\ufffd")
        self.assertEqual(job["messages"][-1]["text"], "no line end")
        self.expect_usable(studio)

    def test_endless_messages_are_bounded(self):
        studio = self.start("for n in range(5000): print('line', n, file=sys.stderr)\nsys.exit(1)")
        job = self.run_once(studio)
        self.assertEqual(len(job["messages"]), 1000)
        self.expect_usable(studio)

    def test_a_folder_that_cannot_be_written_is_told_before_the_run(self):
        studio = self.start("")
        (studio.folder / "locked").mkdir(mode=0o555)
        if os.access(studio.folder / "locked", os.W_OK):
            self.skipTest("root may write everywhere")
        answer = studio.request("POST", "/api/jobs", {
            "files": [studio.file_id("a.tif")], "folder": studio.entries()["locked"]["id"]})
        self.assertEqual(answer.status, 400)
        self.assertIn("locked", answer.error()["message"])

    def test_a_source_that_vanishes_is_told(self):
        studio = self.start("import time; time.sleep(1)")
        file = studio.file_id("a.tif")
        studio.open("a.tif")
        (studio.folder / "a.tif").unlink()
        self.assertEqual(studio.request("POST", "/api/jobs", {"files": [file]}).status, 404)
        image = studio.get("/api/images")["images"][0]
        studio.wait_for_image(image["id"], lambda image: image["changed_on_disk"])
        self.assertEqual(studio.tile(image["id"], "source", 0).shape, (1, 1, 3))

    def test_a_source_that_changes_during_its_run_is_told(self):
        studio = self.start("import shutil, time\ntiles('start', 0)\ntime.sleep(1)\n"
                            "args = sys.argv\nfor flag in ('--output', '--unscreen'):\n"
                            "    shutil.copy(args[args.index('--input') + 1],"
                            " args[args.index(flag) + 1])")
        image = studio.open("a.tif")
        jobs = studio.post("/api/jobs", {"images": [image["id"]]}, 201)["jobs"]
        studio.wait_for_job(jobs[0]["id"], lambda job: job["total"] == 3)
        tifffile.imwrite(studio.folder / "a.tif", star_field(600, 520, seed=5))
        job = studio.wait_for_job(jobs[0]["id"])
        self.assertEqual(job["state"], "done")
        self.assertIn("was changed during the run", job["notes"][0])
        self.assertIsNone(studio.get("/api/images/" + image["id"])["result"])

    def test_what_an_ended_studio_left_is_removed_by_the_next(self):
        cache = self.folder / "cache"
        first = Studio(cache=cache)
        with first:
            sessions = list((cache / "nebulex2-studio").glob("session-*"))
            self.assertEqual(len(sessions), 1)
            with Studio(cache=cache):
                self.assertTrue(sessions[0].exists())  # in use
            first.process.send_signal(signal.SIGKILL)
            first.process.wait()
        self.assertTrue(sessions[0].exists())
        with Studio(cache=cache):
            self.assertFalse(sessions[0].exists())


class FullDisk(StudioTest):
    """On small disks of their own."""

    def mount(self, name, megabytes):
        path = self.folder / name
        path.mkdir()
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={megabytes}m", "none", path],
                                 capture_output=True)
        if mounted.returncode != 0:
            self.skipTest("no disk can be mounted here: " + mounted.stderr.decode().strip())
        self.addCleanup(subprocess.run, ["umount", "-l", path], check=True)
        return path

    def test_an_image_without_room_in_the_cache_is_told(self):
        studio = self.enterContext(Studio(cache=self.mount("disk", 4)))
        tifffile.imwrite(studio.folder / "large.tif", star_field(1200, 900))
        tifffile.imwrite(studio.folder / "small.tif", star_field(300, 300))
        state = studio.open("large.tif")
        self.assertEqual(state["state"], "failed")
        self.assertIn("no room", state["error"])
        self.assertEqual(studio.open("small.tif")["state"], "ready")
        self.assertEqual(studio.whole(studio.open("small.tif")["id"], "source").shape, (300, 300, 3))

    def test_an_upload_without_room_is_told_and_leaves_nothing(self):
        disk = self.mount("disk", 4)
        studio = self.enterContext(Studio(cache=disk))
        answer = studio.request("POST", "/api/uploads?name=a.tif", b"x" * (8 << 20))
        self.assertEqual((answer.status, answer.error()["code"]), (507, "no_room"))
        uploads = next((disk / "nebulex2-studio").glob("session-*/uploads-*"))
        self.assertEqual(list(uploads.iterdir()), [])
        self.assertEqual(studio.request("POST", "/api/uploads?name=a.tif", b"x" * 1000).status, 201)

    def test_a_result_without_room_is_told_and_leaves_nothing(self):
        script = READY + ("import shutil\nargs = sys.argv\n"
                          "for flag in ('--output', '--unscreen'):\n"
                          "    shutil.copy(args[args.index('--input') + 1],"
                          " args[args.index(flag) + 1])")
        disk = self.mount("disk", 10)
        studio = self.enterContext(
            Studio("--folder", disk, program=fake_program(self.folder, script)))
        tifffile.imwrite(disk / "a.tif", star_field(600, 520))
        image = studio.open("a.tif")["id"]
        self.assertEqual(studio.run(image)["state"], "done")
        with open(disk / "filler", "wb") as filler:
            try:
                while True:
                    filler.write(b"x" * 65536)
                    filler.flush()
            except OSError:
                pass
        before = sorted(os.listdir(disk))
        answer = studio.request("POST", f"/api/images/{image}/save",
                                {"amount": 0.5, "format": "tif", "name": "blend"})
        self.assertEqual(answer.status, 507, answer.body)
        self.assertNotIn(".nebulex2-studio", answer.error()["message"])
        self.assertEqual(sorted(os.listdir(disk)), before)
        job = studio.run(image, pattern="{name}_again_{role}")
        self.assertEqual(job["state"], "failed")
        self.assertEqual(sorted(os.listdir(disk)), before)


if __name__ == "__main__":
    unittest.main()
