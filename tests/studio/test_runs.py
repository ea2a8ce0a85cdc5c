"""Runs, previews and their queue: what the page gets told, and which files are there then."""

import json
import os
import pathlib
import shutil
import subprocess
import time
import unittest

import cv2
import numpy
import tifffile
from astropy.io import fits

from studio import PROGRAM, Events, Studio, StudioTest, fake_program, star_field, wait_until

MODELS = pathlib.Path(os.environ["NEBULEX2_TEST_MODELS"])

# Says three tiles and writes what it is asked for.
WELL = """
import shutil, time
def say(**record): print(json.dumps(record), file=sys.stderr, flush=True)
args = sys.argv[1:]
value = lambda flag: args[args.index(flag) + 1] if flag in args else None
tiles = lambda event, n: say(schema="nebulexastro.cli.progress.v1", event=event, stage="inference",
                             current=n, total=3, percent=n * 100 / 3)
tiles("start", 0)
for n in (1, 2, 3):
    time.sleep({pause})
    tiles("progress", n)
for flag in ("--output", "--mask", "--unscreen"):
    if value(flag):
        shutil.copy(value("--input"), value(flag))
"""


class Runs(StudioTest):
    """With the program itself, on a network that halves every sample."""

    @classmethod
    def setUpClass(cls):
        cls.studio = Studio()
        cls.studio.__enter__()
        cls.addClassCleanup(cls.studio.__exit__)
        shutil.copy(MODELS / "scaling.onnx", cls.studio.folder)

    def options(self, **more):
        return {"weights": self.studio.file_id("scaling.onnx"), **more}

    def expect_same_files(self, name, suffix, options, *arguments):
        """What the studio's run leaves is what the program's own run leaves, byte for byte of
        the samples."""
        state = self.studio.open(name + suffix)
        job = self.studio.run(state["id"], options=options, keep=["starless", "mask", "unscreen"])
        self.assertEqual(job["state"], "done", job)
        own = [self.folder / f"{name}_{role}{suffix}" for role in ("starless", "mask", "unscreen")]
        subprocess.run([PROGRAM, "-q", "-i", self.studio.folder / (name + suffix), "-o", own[0],
                        "-m", own[1], "-n", own[2], "-w", MODELS / "scaling.onnx", *arguments],
                       check=True)
        for path in own:
            written = self.studio.folder / path.name
            if suffix == ".fits":
                numpy.testing.assert_array_equal(fits.getdata(written), fits.getdata(path))
            else:
                numpy.testing.assert_array_equal(cv2.imread(str(written), cv2.IMREAD_UNCHANGED),
                                                 cv2.imread(str(path), cv2.IMREAD_UNCHANGED))
        return state, job

    def test_results_are_those_of_the_program(self):
        tifffile.imwrite(self.studio.folder / "one.tif", star_field(600, 520))
        state, job = self.expect_same_files("one", ".tif", self.options(stride=512),
                                            "-s", "512")
        self.assertEqual([file["name"] for file in job["files"]],
                         ["one_starless.tif", "one_mask.tif", "one_unscreen.tif"])
        self.assertEqual(job["current"], job["total"])
        image = self.studio.get("/api/images/" + state["id"])
        self.assertEqual(image["result"]["job"], job["id"])
        self.assertEqual(image["result"]["layers"],
                         ["source", "starless", "mask", "unscreen", "blend"])
        # Every layer is what its file is, as far as 8 bits show it.
        for role in ("starless", "mask", "unscreen"):
            written = cv2.imread(str(self.studio.folder / f"one_{role}.tif"), cv2.IMREAD_UNCHANGED)
            seen = self.studio.whole(state["id"], role)
            expected = written[:, :, ::-1] / 65535 * 255
            self.assertLessEqual(numpy.abs(seen - expected).max(), 0.51, role)

    def test_linear_fits_keeps_header_and_values(self):
        header = fits.Header()
        header["OBJECT"] = "M 31"
        linear = (star_field(560, 530)[:, :, 0] / 65535 / 40).astype(numpy.float32)
        fits.writeto(self.studio.folder / "lin.fits", linear, header)
        self.expect_same_files("lin", ".fits", self.options(linear=True), "--linear")
        self.assertEqual(fits.getheader(self.studio.folder / "lin_starless.fits")["OBJECT"], "M 31")

    def test_the_screen_of_both_layers_is_the_source_with_and_without_stretch(self):
        tifffile.imwrite(self.studio.folder / "screen.tif", star_field(600, 520) // 4)
        state = self.studio.open("screen.tif")
        self.assertEqual(self.studio.run(state["id"], options=self.options())["state"], "done")
        for stretch in (0, 1):
            for level in (10, 8):
                source, starless, unscreen = (
                    self.studio.tile(state["id"], layer, level, stretch=stretch) / 255
                    for layer in ("source", "starless", "unscreen"))
                screened = 1 - (1 - starless) * (1 - unscreen)
                self.assertLessEqual(numpy.abs(screened - source).max() * 255, 1.51)

    def test_a_preview_is_the_program_on_this_part(self):
        image = star_field(1400, 900)
        tifffile.imwrite(self.studio.folder / "part.tif", image)
        state = self.studio.open("part.tif")
        job = self.studio.post(f"/api/images/{state['id']}/preview",
                               {"x": 300, "y": 200, "width": 640, "height": 560,
                                "options": self.options()}, 202)
        self.assertEqual(job["area"], {"x": 300, "y": 200, "width": 640, "height": 560})
        state = self.studio.wait_for_image(
            state["id"], lambda i: i["preview"] and i["preview"]["state"] in ("ready", "failed"))
        self.assertEqual(state["preview"]["state"], "ready", state["preview"])
        part = self.folder / "part.tif"
        tifffile.imwrite(part, image[200:760, 300:940])
        subprocess.run([PROGRAM, "-q", "-i", part, "-o", self.folder / "out.tif", "-w",
                        MODELS / "scaling.onnx"], check=True)
        own = cv2.imread(str(self.folder / "out.tif"), cv2.IMREAD_UNCHANGED)[:, :, ::-1]
        seen = self.studio.whole(state["id"], "starless", preview=True)
        self.assertLessEqual(numpy.abs(seen - own / 65535 * 255).max(), 0.51)
        seen = self.studio.whole(state["id"], "source", preview=True)
        self.assertLessEqual(
            numpy.abs(seen - image[200:760, 300:940] / 65535 * 255).max(), 0.51)
        # Nothing came into the folder.
        self.assertFalse([path for path in self.studio.folder.iterdir() if path.name != "part.tif"
                          and path.name.startswith(("part", ".neb"))])
        self.assertEqual(
            self.studio.request("DELETE", f"/api/images/{state['id']}/preview").status, 204)
        self.assertIsNone(self.studio.get("/api/images/" + state["id"])["preview"])

    def test_previews_of_every_format(self):
        grey = star_field(700, 600)[:, :, 0]
        fits.writeto(self.studio.folder / "pg.fits", grey)
        fits.writeto(self.studio.folder / "pc.fits", numpy.moveaxis(star_field(700, 600), 2, 0))
        fits.writeto(self.studio.folder / "pf.fits", (grey / 65535 / 30).astype(numpy.float64))
        cv2.imwrite(str(self.studio.folder / "p8.png"), star_field(700, 600, levels=255))
        for name in ("pg.fits", "pc.fits", "pf.fits", "p8.png"):
            with self.subTest(name=name):
                state = self.studio.open(name)
                self.studio.post(f"/api/images/{state['id']}/preview",
                                 {"x": 50, "y": 60, "width": 512, "height": 512,
                                  "options": self.options(linear=name == "pf.fits")}, 202)
                state = self.studio.wait_for_image(
                    state["id"], lambda i: i["preview"]["state"] in ("ready", "failed"))
                self.assertEqual(state["preview"]["state"], "ready", state["preview"])

    def test_too_small_images_and_wrong_options_are_refused_before_anything(self):
        tifffile.imwrite(self.studio.folder / "small.tif", star_field(300, 300))
        state = self.studio.open("small.tif")
        path = f"/api/images/{state['id']}/preview"
        answer = self.studio.request("POST", path, {"options": {}})
        self.assertEqual(answer.status, 400)
        self.assertIn("512", answer.error()["message"])
        for options in ({"stride": 3}, {"frob": 1}, {"input": "/etc/passwd"},
                        {"output": "/tmp/x.tif"}, {"weights": "/etc/passwd"}, {"weights": 1},
                        {"target_background": 0.2}, {"quiet": True}, {"machine_progress": True}, []):
            with self.subTest(options=options):
                answer = self.studio.request("POST", "/api/jobs", {"images": [state["id"]],
                                                                   "options": options})
                self.assertIn(answer.status, (400, 404))
        self.assertEqual(self.studio.request("POST", "/api/jobs", {}).status, 400)
        self.assertEqual(self.studio.request("POST", "/api/jobs", {"files": ["f1"], "x": 1}).status,
                         400)

    def test_a_failed_run_tells_the_programs_own_words(self):
        tifffile.imwrite(self.studio.folder / "tiny.tif", star_field(300, 300))
        state = self.studio.open("tiny.tif")
        job = self.studio.run(state["id"], options=self.options())
        self.assertEqual(job["state"], "failed")
        failed = subprocess.run([PROGRAM, "--machine-progress", "-i",
                                 self.studio.folder / "tiny.tif", "-o", self.folder / "x.tif", "-w",
                                 MODELS / "scaling.onnx"], capture_output=True)
        last = json.loads(failed.stderr.splitlines()[-1])["message"]
        self.assertEqual(job["error"], last.split("\n")[0])
        self.assertIn("scaling.onnx", job["error_details"])
        self.assertFalse(list(self.studio.folder.glob(".neb*")))
        self.assertIsNone(self.studio.get("/api/images/" + state["id"])["result"])


class Queue(StudioTest):
    """With a program that only pretends, and can be slow."""

    def start(self, pause, count=3):
        program = fake_program(self.folder, WELL.replace("{pause}", str(pause)))
        studio = self.enterContext(Studio(program=program))
        for number in range(count):
            tifffile.imwrite(studio.folder / f"{number}.tif", star_field(600, 520, seed=number))
        return studio

    def test_jobs_wait_for_each_other_and_end_in_order(self):
        studio = self.start(0.1)
        events = Events(studio)
        files = [studio.file_id(f"{number}.tif") for number in range(3)]
        jobs = studio.post("/api/jobs", {"files": files}, 201)["jobs"]
        self.assertEqual([job["name"] for job in jobs], ["0.tif", "1.tif", "2.tif"])
        for job in jobs:
            self.assertEqual(studio.wait_for_job(job["id"])["state"], "done")
        order = [data["id"] for name, data, _ in events.seen
                 if name == "job" and data["state"] == "done"]
        self.assertEqual(list(dict.fromkeys(order)), [job["id"] for job in jobs])
        running = [data for name, data, _ in events.seen if name == "job"
                   and data["state"] == "running" and data["current"] == 2]
        self.assertTrue(all(data["remaining_s"] > 0 for data in running) and running)
        self.assertEqual(sorted(path.name for path in studio.folder.iterdir()),
                         sorted([f"{n}.tif" for n in range(3)] +
                                [f"{n}_starless.tif" for n in range(3)]))
        events.close()

    def test_a_progress_line_is_on_the_page_at_once(self):
        script = WELL.replace("{pause}", "0.2").replace(
            "def say(**record):", "def say(**record): record['message'] = str(time.time());")
        program = fake_program(self.folder, script.replace('schema="nebulexastro.cli.progress.v1"',
                                                           'schema="later.v1"'))
        studio = self.enterContext(Studio(program=program))
        tifffile.imwrite(studio.folder / "a.tif", star_field(600, 520))
        events = Events(studio)
        studio.post("/api/jobs", {"files": [studio.file_id("a.tif")]}, 201)
        events.wait_for(lambda name, data: name == "job" and data["state"] == "done")
        late = [came - float(json.loads(data["message"]["text"])["message"])
                for name, data, came in events.seen if name == "message"]
        self.assertEqual(len(late), 4)
        self.assertLess(min(late), 0.1)
        events.close()

    def test_running_and_waiting_jobs_can_be_stopped(self):
        studio = self.start(30)
        jobs = studio.post("/api/jobs", {"files": [studio.file_id("0.tif"),
                                                   studio.file_id("1.tif")]}, 201)["jobs"]
        studio.wait_for_job(jobs[0]["id"], lambda job: job["state"] == "running")
        self.assertEqual(studio.request("DELETE", "/api/jobs/" + jobs[0]["id"]).status, 409)
        waiting = studio.post(f"/api/jobs/{jobs[1]['id']}/stop", {}, 202)
        self.assertEqual(waiting["state"], "stopped")
        begin = time.monotonic()
        studio.post(f"/api/jobs/{jobs[0]['id']}/stop", {}, 202)
        self.assertEqual(studio.wait_for_job(jobs[0]["id"])["state"], "stopped")
        self.assertLess(time.monotonic() - begin, 5)
        self.assertFalse(list(studio.folder.glob("*_starless*")) + list(studio.folder.glob(".*")))
        self.assertEqual(studio.request("DELETE", "/api/jobs/" + jobs[0]["id"]).status, 204)
        studio.post("/api/jobs/clear", {}, 204)
        self.assertEqual(studio.get("/api/jobs")["jobs"], [])

    def test_a_preview_goes_before_waiting_runs(self):
        studio = self.start(0.3)
        image = studio.open("2.tif")["id"]
        jobs = studio.post("/api/jobs", {"files": [studio.file_id("0.tif"),
                                                   studio.file_id("1.tif")]}, 201)["jobs"]
        studio.wait_for_job(jobs[0]["id"], lambda job: job["state"] == "running")
        preview = studio.post(f"/api/images/{image}/preview", {"options": {}}, 202)
        self.assertEqual(preview["position"], 1)
        studio.wait_for_job(preview["id"])
        self.assertNotIn(studio.get("/api/jobs/" + jobs[1]["id"])["state"], ("done", "writing"))

    def test_a_new_preview_takes_the_place_of_the_old_one(self):
        studio = self.start(30)
        image = studio.open("2.tif")["id"]
        first = studio.post(f"/api/images/{image}/preview", {"options": {}}, 202)
        studio.wait_for_job(first["id"], lambda job: job["state"] == "running")
        second = studio.post(f"/api/images/{image}/preview", {"options": {}}, 202)
        self.assertEqual(studio.wait_for_job(first["id"])["state"], "stopped")
        self.assertEqual(studio.get("/api/images/" + image)["preview"]["job"], second["id"])

    def test_nothing_that_exists_is_replaced_without_asking(self):
        studio = self.start(0)
        taken = studio.folder / "0_starless.tif"
        taken.write_bytes(b"mine")
        file = studio.file_id("0.tif")
        answer = studio.request("POST", "/api/jobs", {"files": [file]})
        self.assertEqual(answer.status, 409)
        self.assertEqual(answer.error()["names"], ["0_starless.tif"])
        self.assertEqual(studio.get("/api/jobs")["jobs"], [])
        self.assertEqual(taken.read_bytes(), b"mine")
        jobs = studio.post("/api/jobs", {"files": [file], "replace": True}, 201)["jobs"]
        self.assertEqual(studio.wait_for_job(jobs[0]["id"])["state"], "done")
        self.assertNotEqual(taken.read_bytes(), b"mine")

    def test_what_comes_into_being_during_a_run_is_not_replaced_either(self):
        studio = self.start(0.5)
        jobs = studio.post("/api/jobs", {"files": [studio.file_id("0.tif")]}, 201)["jobs"]
        studio.wait_for_job(jobs[0]["id"], lambda job: job["state"] == "running")
        taken = studio.folder / "0_starless.tif"
        taken.write_bytes(b"mine")
        job = studio.wait_for_job(jobs[0]["id"])
        self.assertEqual(job["state"], "done")
        self.assertEqual(taken.read_bytes(), b"mine")
        self.assertEqual(job["files"][0]["name"], "0_starless-2.tif")
        self.assertEqual(len(job["notes"]), 1)

    def test_a_result_may_not_take_the_place_of_its_source(self):
        studio = self.start(0)
        answer = studio.request("POST", "/api/jobs", {"files": [studio.file_id("0.tif")],
                                                      "pattern": "{name}", "replace": True})
        self.assertEqual(answer.status, 400)

    def test_names_follow_the_pattern_into_another_folder(self):
        studio = self.start(0)
        (studio.folder / "out").mkdir()
        jobs = studio.post("/api/jobs", {
            "files": [studio.file_id("0.tif")], "pattern": "{role} of {name}",
            "folder": studio.entries()["out"]["id"], "format": "png",
            "keep": ["starless", "mask"]}, 201)["jobs"]
        job = studio.wait_for_job(jobs[0]["id"])
        self.assertEqual(job["state"], "done")
        self.assertEqual(sorted(path.name for path in (studio.folder / "out").iterdir()),
                         ["mask of 0.png", "starless of 0.png"])
        answer = studio.request("GET", f"/api/jobs/{job['id']}/files/starless")
        self.assertEqual(answer.body, (studio.folder / "out/starless of 0.png").read_bytes())
        self.assertIn("starless%20of%200.png", answer.headers["Content-Disposition"])

    def test_closing_the_page_stops_nothing(self):
        studio = self.start(0.3)
        events = Events(studio)
        jobs = studio.post("/api/jobs", {"files": [studio.file_id("0.tif")]}, 201)["jobs"]
        events.close()
        self.assertEqual(studio.wait_for_job(jobs[0]["id"])["state"], "done")
        again = Events(studio)
        _, state, _ = again.wait_for(lambda name, _: name == "state")
        self.assertEqual(state["jobs"][0]["state"], "done")
        again.close()

    def test_ctrl_c_ends_the_run_and_leaves_nothing_half_written(self):
        studio = self.start(30)
        jobs = studio.post("/api/jobs", {"files": [studio.file_id("0.tif")]}, 201)["jobs"]
        studio.wait_for_job(jobs[0]["id"], lambda job: job["current"] == 0 and job["total"])
        children = subprocess.run(["pgrep", "-P", str(studio.process.pid)], capture_output=True,
                                  text=True).stdout.split()
        self.assertEqual(len(children), 1)
        studio.process.send_signal(2)
        self.assertEqual(studio.process.wait(20), 0)
        wait_until(lambda: os.path.exists(f"/proc/{children[0]}"), lambda there: not there, 5)
        self.assertEqual(sorted(os.listdir(studio.folder)), ["0.tif", "1.tif", "2.tif"])


if __name__ == "__main__":
    unittest.main()
