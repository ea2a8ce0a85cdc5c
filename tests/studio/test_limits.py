"""Nobody keeps the studio from answering: many connections, slow ones, endless ones."""

import contextlib
import os
import resource
import socket
import threading
import time
import unittest

from studio import Events, Studio, StudioTest, read_all, status_of

SOME_TIME_S = 20
# The sanitizers keep memory that was given back.
JUDGES_MEMORY = not os.environ.get("NEBULEX2_SANITIZERS")


def descriptors(studio):
    return len(os.listdir(f"/proc/{studio.process.pid}/fd"))


def memory_mb(studio):
    with open(f"/proc/{studio.process.pid}/status") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS")) / 1024


class Limits(StudioTest):
    def setUp(self):
        super().setUp()
        self.studio = self.enterContext(Studio())

    def head(self, line="GET /api/state HTTP/1.1"):
        return (f"{line}\r\nHost: 127.0.0.1:{self.studio.port}\r\nOrigin: {self.studio.origin}\r\n"
                f"Cookie: {self.studio.cookie}\r\n")

    def expect_little_memory_since(self, before, most):
        if JUDGES_MEMORY:
            self.assertLess(memory_mb(self.studio) - before, most)

    def expect_answers(self, seconds=SOME_TIME_S):
        """The page gets its answers, soon at least."""
        end = time.monotonic() + seconds
        while True:
            with contextlib.suppress(OSError, Exception):
                if self.studio.request("GET", "/api/state", timeout=5).status == 200:
                    return
            self.assertLess(time.monotonic(), end, "no answer any more")
            time.sleep(0.2)

    def test_ten_thousand_connections_are_bounded(self):
        soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
        if hard != resource.RLIM_INFINITY and hard < 11000:
            self.skipTest(f"only {hard} files may be open here")
        resource.setrlimit(resource.RLIMIT_NOFILE, (11000, hard))
        self.addCleanup(resource.setrlimit, resource.RLIMIT_NOFILE, (soft, hard))
        before = memory_mb(self.studio)
        opened = []
        most = 0
        try:
            for number in range(10000):
                with contextlib.suppress(OSError):
                    opened.append(socket.create_connection(("127.0.0.1", self.studio.port), 1))
                if number % 500 == 0:
                    most = max(most, descriptors(self.studio))
            most = max(most, descriptors(self.studio))
            self.assertGreater(len(opened), 9000)
            # 64 at a time, 128 that wait, and what the server itself has open.
            self.assertLess(most, 300)
            self.expect_little_memory_since(before, 100)
            self.expect_answers()
        finally:
            for connection in opened:
                connection.close()
        self.expect_answers()

    def test_a_line_of_headers_that_comes_slowly_ends(self):
        with socket.create_connection(("127.0.0.1", self.studio.port), 1) as connection:
            begin = time.monotonic()
            with contextlib.suppress(OSError):
                for byte in self.head().encode():
                    connection.sendall(bytes([byte]))
                    time.sleep(0.25)
                    self.assertLess(time.monotonic() - begin, SOME_TIME_S)
            self.assertLess(time.monotonic() - begin, SOME_TIME_S)
        self.expect_answers()

    def test_as_many_slow_clients_as_there_are_threads_do_not_last(self):
        slow = [socket.create_connection(("127.0.0.1", self.studio.port), 1) for _ in range(80)]
        try:
            for connection in slow:
                connection.sendall(b"GET / HTTP/1.1\r\nHost: ")
            self.expect_answers()
        finally:
            for connection in slow:
                connection.close()

    def test_huge_headers_end_the_connection(self):
        for what in (b"X: " + b"x" * 200_000 + b"\r\n", b"X: y\r\n" * 50_000):
            with self.subTest(size=len(what)):
                with contextlib.suppress(ConnectionError):
                    raw = self.studio.raw(self.head().encode() + what + b"\r\n")
                    self.assertNotEqual(status_of(raw), 200)
                self.expect_answers()

    def test_a_request_line_without_end_ends(self):
        before = memory_mb(self.studio)
        with contextlib.suppress(ConnectionError):
            self.studio.raw(b"GET /" + b"x" * 20_000_000)
        self.expect_little_memory_since(before, 50)
        self.expect_answers()

    def test_long_ranges_and_addresses_are_harmless(self):
        for line, more in (("GET /" + "a/" * 4000 + " HTTP/1.1", ""),
                           ("GET /api/state?" + "a=b&" * 2000 + " HTTP/1.1", ""),
                           ("GET /api/state HTTP/1.1", "Range: bytes=" + "0-1," * 1900 + "\r\n"),
                           ("GET /api/state HTTP/1.1", "Range: bytes=5-1\r\n"),
                           ("GET /api/state HTTP/1.1", "Accept-Encoding: gzip, br, identity\r\n")):
            with self.subTest(line=line[:30], more=more[:30]):
                with contextlib.suppress(ConnectionError):
                    self.studio.raw((self.head(line) + more + "Connection: close\r\n\r\n").encode())
                self.expect_answers()

    def test_a_body_larger_than_what_is_taken_is_not_read(self):
        length = 2 << 20
        raw = self.studio.raw((self.head("POST /api/jobs HTTP/1.1") +
                               f"Content-Type: application/json\r\nContent-Length: {length}\r\n\r\n{{"
                               ).encode())
        self.assertEqual(status_of(raw), 413)
        raw = self.studio.raw((self.head("POST /api/uploads?name=a.tif HTTP/1.1") +
                               f"Content-Length: {1 << 60}\r\n\r\nx").encode())
        self.assertEqual(status_of(raw), 413)

    def test_a_body_without_a_length_is_refused(self):
        for more in ("", "Transfer-Encoding: chunked\r\n"):
            for path in ("/api/jobs", "/api/uploads?name=a.tif"):
                with self.subTest(path=path, more=more):
                    raw = self.studio.raw((self.head(f"POST {path} HTTP/1.1") +
                                           f"Content-Type: application/json\r\n{more}\r\n"
                                           "5\r\nabcde\r\n").encode())
                    self.assertEqual(status_of(raw), 411)

    def test_a_body_that_never_ends_leaves_nothing(self):
        before = memory_mb(self.studio)
        with socket.create_connection(("127.0.0.1", self.studio.port), 1) as connection:
            connection.sendall((self.head("POST /api/uploads?name=a.tif HTTP/1.1") +
                                f"Content-Length: {4 << 30}\r\n\r\n").encode())
            block = b"x" * (1 << 20)
            for _ in range(100):
                connection.settimeout(10)
                connection.sendall(block)
            uploads = next((self.studio.cache / "nebulex2-studio").glob("session-*/uploads-*"))
            self.assertEqual(len(list(uploads.iterdir())), 1)
            self.expect_little_memory_since(before, 50)
        end = time.monotonic() + SOME_TIME_S
        while list(uploads.iterdir()) and time.monotonic() < end:
            time.sleep(0.1)
        self.assertEqual(list(uploads.iterdir()), [])

    def test_one_that_does_not_read_its_answer_keeps_nobody(self):
        slow = []
        try:
            for _ in range(70):
                connection = socket.create_connection(("127.0.0.1", self.studio.port), 1)
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
                connection.sendall((self.head("GET /vendor/openseadragon.min.js HTTP/1.1") +
                                    "\r\n").encode() * 20)
                slow.append(connection)
            self.expect_answers(90)
        finally:
            for connection in slow:
                connection.close()

    def test_windows_are_bounded_and_give_their_place_back(self):
        events = [Events(self.studio) for _ in range(16)]
        refused = self.studio.request("GET", "/api/events")
        self.assertEqual(refused.status, 503)
        for each in events:
            each.close()
        end = time.monotonic() + 3 * SOME_TIME_S
        while True:
            one = Events(self.studio)
            status = one.response.status
            one.close()
            if status == 200:
                break
            self.assertLess(time.monotonic(), end, "closed windows are not noticed")
            time.sleep(0.5)

    def test_a_window_that_does_not_read_is_let_go_of(self):
        with socket.create_connection(("127.0.0.1", self.studio.port), 1) as connection:
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            connection.sendall((self.head("GET /api/events HTTP/1.1") + "\r\n").encode())
            before = memory_mb(self.studio)
            big = {"x": "y" * 60000}
            for number in range(300):
                self.studio.request("PUT", "/api/settings", {**big, "n": number})
            self.expect_little_memory_since(before, 100)
        self.expect_answers()

    def test_several_requests_share_a_connection(self):
        request = (self.head() + "\r\n").encode()
        last = (self.head() + "Connection: close\r\n\r\n").encode()
        raw = self.studio.raw(request + request + last)
        self.assertEqual(raw.count(b"HTTP/1.1 200"), 3)

    def test_ctrl_c_ends_it_while_windows_are_open(self):
        events = Events(self.studio)
        events.wait_for(lambda name, _: name == "state")
        begin = time.monotonic()
        self.studio.process.send_signal(2)
        self.assertEqual(self.studio.process.wait(SOME_TIME_S), 0)
        self.assertLess(time.monotonic() - begin, 10)
        events.close()
        self.assertEqual(list((self.studio.cache / "nebulex2-studio").glob("session-*")), [])


if __name__ == "__main__":
    unittest.main()
