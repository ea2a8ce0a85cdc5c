"""Starts the real studio, and talks to it as its page does, or as nobody should."""

import contextlib
import http.client
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time
import unittest
import urllib.parse

import cv2
import numpy

STUDIO = pathlib.Path(os.environ["NEBULEX2_STUDIO"])
PROGRAM = pathlib.Path(os.environ["NEBULEX2_PROGRAM"])
TIMEOUT_S = 60

# Stands in for nebulex2 where its own work does not matter: it says what a script beside it tells.
FAKE_PROGRAM = """#!/usr/bin/python3
import json, os, pathlib, sys
if "--machine-info" in sys.argv:
    sys.stdout.write(pathlib.Path({info!r}).read_text())
    sys.exit(0)
exec(pathlib.Path({script!r}).read_text())
"""


class Answer:
    def __init__(self, response):
        self.status = response.status
        self.headers = response.headers
        self.body = response.read()

    def json(self):
        return json.loads(self.body)

    def error(self):
        return self.json()["error"]


class Studio:
    """A studio in folders of its own. To be used in a with statement."""

    def __init__(self, *arguments, program=None, cache=None, preexec=None):
        self.home = pathlib.Path(tempfile.mkdtemp(prefix="studio-"))
        self.folder = self.home / "images"
        self.folder.mkdir()
        self.cache = pathlib.Path(cache) if cache else self.home / "cache"
        self.log = self.home / "log"
        self.arguments = [str(STUDIO), "--no-browser", "--program", str(program or PROGRAM)]
        self.arguments += [str(argument) for argument in arguments]
        if "--folder" not in self.arguments:
            self.arguments += ["--folder", str(self.folder)]
        self.preexec = preexec

    def __enter__(self):
        environment = {**os.environ, "HOME": str(self.home), "XDG_CACHE_HOME": str(self.cache),
                       "XDG_CONFIG_HOME": str(self.home / "config")}
        with open(self.log, "wb") as log:
            self.process = subprocess.Popen(self.arguments, stdin=subprocess.DEVNULL,
                                            stdout=subprocess.PIPE, stderr=log, env=environment,
                                            preexec_fn=self.preexec)
        address = ""
        while not address.startswith("  http"):
            address = self.process.stdout.readline().decode()
            if not address:
                raise AssertionError("The studio did not start: " + self.log.read_text())
        self.address = urllib.parse.urlsplit(address.strip())
        self.port = self.address.port
        self.token = urllib.parse.parse_qs(self.address.query)["token"][0]
        first = self.request("GET", "/?token=" + self.token, cookie=None)
        self.cookie = first.headers["Set-Cookie"].split(";")[0]
        self.welcome = first
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGINT)
        try:
            self.process.wait(TIMEOUT_S)
        finally:
            if self.process.poll() is None:
                self.process.kill()
                self.process.wait()
            self.process.stdout.close()
            shutil.rmtree(self.home, ignore_errors=True)

    @property
    def origin(self):
        return f"http://127.0.0.1:{self.port}"

    def request(self, method, path, body=None, headers=None, cookie="own", timeout=TIMEOUT_S):
        """One request on a connection of its own, with what the page's browser would send."""
        sent = {}
        if cookie == "own":
            sent["Cookie"] = self.cookie
        elif cookie:
            sent["Cookie"] = cookie
        if method != "GET":
            sent["Origin"] = self.origin
        if isinstance(body, (dict, list)):
            body = json.dumps(body)
            sent["Content-Type"] = "application/json"
        sent.update(headers or {})
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=timeout)
        try:
            connection.request(method, path, body=body,
                               headers={k: v for k, v in sent.items() if v is not None})
            return Answer(connection.getresponse())
        finally:
            connection.close()

    def get(self, path):
        answer = self.request("GET", path)
        if answer.status != 200:
            raise AssertionError(f"{path}: {answer.status} {answer.body[:300]}")
        return answer.json()

    def post(self, path, body, status):
        answer = self.request("POST", path, body)
        if answer.status not in (status if isinstance(status, tuple) else (status,)):
            raise AssertionError(f"{path}: {answer.status} {answer.body[:500]}")
        return answer.json() if answer.body else None

    def raw(self, data, timeout=TIMEOUT_S):
        """What comes back for these bytes until the connection ends."""
        with socket.create_connection(("127.0.0.1", self.port), timeout=timeout) as connection:
            connection.sendall(data)
            return read_all(connection)

    # --- Files and images ---

    def root(self):
        return self.get("/api/folders")["folders"][0]["id"]

    def entries(self, folder=None):
        listing = self.get("/api/folders/" + (folder or self.root()))
        return {entry["name"]: entry for entry in listing["entries"]}

    def file_id(self, name):
        return self.entries()[name]["id"]

    def open(self, name):
        """The image of a file of the folder, once it is read or has failed."""
        image = self.post("/api/images", {"file": self.file_id(name)}, (200, 202))
        return self.wait_for_image(image["id"])

    def wait_for_image(self, image, condition=lambda image: image["state"] != "reading"):
        return wait_until(lambda: self.get("/api/images/" + image), condition)

    def tile(self, image, layer, level, column=0, row=0, preview=False, **query):
        part = "/preview" if preview else ""
        path = f"/api/images/{image}{part}/tiles/{layer}/{level}/{column}_{row}.png"
        answer = self.request("GET", path + "?" + urllib.parse.urlencode(query))
        if answer.status != 200:
            raise AssertionError(f"{path}: {answer.status} {answer.body[:300]}")
        picture = cv2.imdecode(numpy.frombuffer(answer.body, numpy.uint8), cv2.IMREAD_UNCHANGED)
        return picture if picture.ndim == 2 else picture[:, :, ::-1]

    def whole(self, image, layer, preview=False, **query):
        """The full picture of a layer, put together from its tiles."""
        state = self.get("/api/images/" + image)
        size = state["preview"] if preview else state
        rows = []
        for y in range(0, size["height"], 256):
            rows.append(numpy.concatenate(
                [self.tile(image, layer, size["max_level"], x // 256, y // 256, preview, **query)
                 for x in range(0, size["width"], 256)], axis=1))
        return numpy.concatenate(rows, axis=0)

    # --- Jobs ---

    def wait_for_job(self, job, condition=None):
        ended = condition or (lambda job: job["state"] in ("done", "failed", "stopped"))
        return wait_until(lambda: self.get("/api/jobs/" + job), ended, 240)

    def run(self, image, **more):
        """A run of an open image to its end."""
        jobs = self.post("/api/jobs", {"images": [image], **more}, 201)["jobs"]
        return self.wait_for_job(jobs[0]["id"])


def wait_until(ask, condition, seconds=TIMEOUT_S):
    end = time.monotonic() + seconds
    while True:
        answer = ask()
        if condition(answer):
            return answer
        if time.monotonic() > end:
            raise AssertionError(f"This did not come: {answer}")
        time.sleep(0.05)


def read_all(connection):
    received = b""
    with contextlib.suppress(ConnectionError, TimeoutError):
        while True:
            piece = connection.recv(65536)
            if not piece:
                break
            received += piece
    return received


def status_of(raw):
    found = re.match(rb"HTTP/1\.1 (\d+)", raw)
    return int(found[1]) if found else None


class Events(threading.Thread):
    """Server-sent events of a studio, with the time of their coming."""

    def __init__(self, studio):
        super().__init__(daemon=True)
        self.seen = []
        self.changed = threading.Condition()
        self.connection = http.client.HTTPConnection("127.0.0.1", studio.port, timeout=TIMEOUT_S)
        self.connection.request("GET", "/api/events", headers={"Cookie": studio.cookie})
        self.response = self.connection.getresponse()
        self.start()

    def run(self):
        name = None
        with contextlib.suppress(OSError, ValueError, AttributeError, http.client.HTTPException):
            while line := self.response.readline():
                text = line.decode().rstrip("\n")
                if text.startswith("event: "):
                    name = text[7:]
                elif text.startswith("data: "):
                    with self.changed:
                        self.seen.append((name, json.loads(text[6:]), time.time()))
                        self.changed.notify_all()

    def wait_for(self, condition, seconds=TIMEOUT_S):
        """The first event (name, data, time) that fits."""
        with self.changed:
            found = self.changed.wait_for(
                lambda: next((e for e in self.seen if condition(e[0], e[1])), None), seconds)
        if not found:
            raise AssertionError(f"No such event among {[name for name, _, _ in self.seen]}")
        return found

    def close(self):
        with contextlib.suppress(OSError):
            self.connection.sock and self.connection.sock.shutdown(socket.SHUT_RDWR)
        self.join(TIMEOUT_S)
        self.connection.close()


def fake_program(folder, script):
    """A program that describes itself as nebulex2 does and then runs this Python script."""
    folder = pathlib.Path(folder)
    info = folder / "machine-info.json"
    info.write_bytes(subprocess.run([PROGRAM, "--machine-info"], stdout=subprocess.PIPE,
                                    check=True).stdout)
    said = folder / "script.py"
    said.write_text(script)
    program = folder / "fake-nebulex2"
    program.write_text(FAKE_PROGRAM.format(info=str(info), script=str(said)))
    program.chmod(0o755)
    return program


def star_field(width, height, seed=1, levels=65535):
    """Sky, a gradient and stars of three colours; RGB, uint16 (or uint8 for 255 levels)."""
    random = numpy.random.default_rng(seed)
    y, x = numpy.mgrid[0:height, 0:width]
    image = numpy.empty((height, width, 3))
    image[:] = 0.1 + 0.1 * (x / width)[:, :, None]
    for _ in range(width * height // 4000):
        cx, cy = random.uniform(0, width), random.uniform(0, height)
        peak = random.uniform(0.1, 0.8) * random.uniform(0.7, 1.0, 3)
        left, top = max(0, int(cx) - 8), max(0, int(cy) - 8)
        part = (slice(top, top + 17), slice(left, left + 17))
        shape = numpy.exp(-((x[part] - cx) ** 2 + (y[part] - cy) ** 2) / 4.0)
        image[part] += shape[:, :, None] * peak
    image += random.normal(0, 0.004, image.shape)
    stored = numpy.round(numpy.clip(image, 0, 1) * levels)
    return stored.astype(numpy.uint16 if levels > 255 else numpy.uint8)


class StudioTest(unittest.TestCase):
    """Has a temporary folder for what a test needs beside its studio."""

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="studio-test-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
