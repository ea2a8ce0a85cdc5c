"""Who may ask the studio, and for what: each door against each attack."""

import os
import unittest

import tifffile

from studio import Studio, StudioTest, star_field, status_of

# A door for each method and kind of address.
DOORS = [
    ("GET", "/"),
    ("GET", "/api/state"),
    ("GET", "/api/events"),
    ("GET", "/api/folders"),
    ("GET", "/api/images/i1/tiles/source/0/0_0.png"),
    ("GET", "/vendor/openseadragon.min.js"),
    ("POST", "/api/images"),
    ("POST", "/api/jobs"),
    ("POST", "/api/uploads?name=a.tif"),
    ("PUT", "/api/settings"),
    ("DELETE", "/api/images/i1"),
]


class Guard(StudioTest):
    @classmethod
    def setUpClass(cls):
        cls.studio = Studio()
        cls.studio.__enter__()
        cls.addClassCleanup(cls.studio.__exit__)
        tifffile.imwrite(cls.studio.folder / "a.tif", star_field(64, 48))

    def expect_refusal(self, headers, **more):
        for method, path in DOORS:
            with self.subTest(method=method, path=path):
                body = {} if method in ("POST", "PUT") else None
                answer = self.studio.request(method, path, body, headers, **more)
                self.assertEqual(answer.status, 403)

    def test_the_first_address_gives_a_cookie_that_scripts_and_other_sites_do_not_get(self):
        cookie = self.studio.welcome.headers["Set-Cookie"]
        self.assertIn("HttpOnly", cookie)
        self.assertIn("SameSite=Strict", cookie)
        self.assertNotIn(self.studio.token, cookie)

    def test_nothing_is_answered_without_the_cookie(self):
        self.expect_refusal({}, cookie=None)

    def test_nothing_is_answered_with_a_wrong_cookie(self):
        name = self.studio.cookie.split("=")[0]
        for wrong in (name + "=", name + "=0", name + "=" + "0" * 64, "x" + self.studio.cookie,
                      self.studio.cookie[:-1]):
            with self.subTest(cookie=wrong):
                self.assertEqual(
                    self.studio.request("GET", "/api/state", cookie=wrong).status, 403)

    def test_a_wrong_token_gives_no_cookie(self):
        for token in ("", "0" * 64, self.studio.token[:-1], self.studio.token + "0"):
            answer = self.studio.request("GET", "/?token=" + token, cookie=None)
            self.assertEqual(answer.status, 403)
            self.assertIsNone(answer.headers["Set-Cookie"])

    def test_a_host_name_that_leads_here_is_refused(self):
        for host in ("evil.example", f"evil.example:{self.studio.port}", "127.0.0.1",
                     f"127.0.0.1.evil.example:{self.studio.port}", f"127.0.0.1:{self.studio.port}0"):
            with self.subTest(host=host):
                self.expect_refusal({"Host": host})

    def test_a_foreign_host_gets_no_cookie_for_the_token(self):
        answer = self.studio.request("GET", "/?token=" + self.studio.token,
                                     headers={"Host": "evil.example"}, cookie=None)
        self.assertEqual(answer.status, 403)
        self.assertIsNone(answer.headers["Set-Cookie"])

    def test_two_host_headers_are_refused(self):
        raw = self.studio.raw(
            f"GET /api/state HTTP/1.1\r\nHost: 127.0.0.1:{self.studio.port}\r\nHost: evil.example\r\n"
            f"Cookie: {self.studio.cookie}\r\nConnection: close\r\n\r\n".encode())
        self.assertEqual(status_of(raw), 403)

    def test_no_host_header_is_refused(self):
        raw = self.studio.raw(f"GET /api/state HTTP/1.0\r\nCookie: {self.studio.cookie}\r\n\r\n"
                              .encode())
        self.assertEqual(status_of(raw), 403)

    def test_the_fetch_of_another_site_is_refused(self):
        for origin in ("http://evil.example", "null", "http://127.0.0.1:1",
                       f"https://127.0.0.1:{self.studio.port}",
                       f"http://127.0.0.1:{self.studio.port}.evil.example"):
            with self.subTest(origin=origin):
                self.expect_refusal({"Origin": origin})

    def test_the_form_of_another_site_is_refused(self):
        answer = self.studio.request(
            "POST", "/api/jobs", "files=f1",
            {"Origin": "http://evil.example", "Content-Type": "application/x-www-form-urlencoded"})
        self.assertEqual(answer.status, 403)

    def test_a_request_that_the_browser_says_another_site_has_sent_is_refused(self):
        for site in ("cross-site", "same-site"):
            self.expect_refusal({"Sec-Fetch-Site": site})

    def test_a_write_without_origin_is_refused(self):
        for method, path in DOORS:
            if method != "GET":
                with self.subTest(method=method, path=path):
                    answer = self.studio.request(method, path, {}, {"Origin": None})
                    self.assertEqual(answer.status, 403)

    def test_a_form_of_the_own_origin_is_no_request(self):
        answer = self.studio.request("POST", "/api/jobs", "files=f1",
                                     {"Content-Type": "application/x-www-form-urlencoded"})
        self.assertEqual(answer.status, 415)

    def test_refusals_are_logged_without_the_token(self):
        self.studio.request("GET", "/?token=0" + self.studio.token, cookie=None)
        log = self.studio.log.read_text()
        self.assertIn("403 GET /: no cookie", log)
        self.assertNotIn(self.studio.token, log)

    def test_every_answer_forbids_foreign_content(self):
        for path in ("/", "/api/state", "/nothing", "/api/nothing",
                     "/vendor/openseadragon.min.js"):
            with self.subTest(path=path):
                headers = self.studio.request("GET", path).headers
                policy = headers["Content-Security-Policy"]
                self.assertIn("default-src 'none'", policy)
                self.assertIn("frame-ancestors 'none'", policy)
                self.assertNotIn("unsafe", policy)
                self.assertEqual(headers["X-Content-Type-Options"], "nosniff")
                self.assertEqual(headers["Cache-Control"], "no-store")


class Paths(StudioTest):
    """No address and no link leads out of the opened folder."""

    @classmethod
    def setUpClass(cls):
        cls.studio = Studio()
        cls.studio.__enter__()
        cls.addClassCleanup(cls.studio.__exit__)
        images = cls.studio.folder
        outside = cls.studio.home / "images-not"  # the folder's name is its beginning
        outside.mkdir()
        tifffile.imwrite(outside / "secret.tif", star_field(64, 48))
        tifffile.imwrite(images / "a.tif", star_field(64, 48))
        (images / "sub").mkdir()
        tifffile.imwrite(images / "sub" / "b.tif", star_field(64, 48))
        (images / "out.tif").symlink_to(outside / "secret.tif")
        (images / "out-relative.tif").symlink_to("../images-not/secret.tif")
        (images / "out-folder").symlink_to(outside)
        (images / "nowhere.tif").symlink_to(outside / "nothing.tif")
        (images / "within.tif").symlink_to("sub/b.tif")
        os.mkfifo(images / "pipe.tif")

    def test_dots_and_encoded_slashes_lead_nowhere(self):
        for path in ("/../../../../etc/passwd", "/%2e%2e/%2e%2e/etc/passwd", "/..%2f..%2fetc/passwd",
                     "//etc/passwd", "/%2Fetc%2Fpasswd", "/vendor/../../CMakeLists.txt",
                     "/..%5c..%5cetc", "/index.html%00.js", "/vendor/%2e%2e/index"):
            with self.subTest(path=path):
                self.assertEqual(self.studio.request("GET", path).status, 404)

    def test_ids_are_no_paths(self):
        for name in ("..", "../secret.tif", "%2e%2e", "/etc", "d1/..", "d1%2f..", "d999999", "f1",
                     "d-1", "d1 ", "d1%00"):
            with self.subTest(name=name):
                answer = self.studio.request("GET", "/api/folders/" + name.replace(" ", "%20"))
                self.assertEqual(answer.status, 404)
        for name in ("/etc/passwd", "../images-not/secret.tif", "d1", "f999999", "", "f1/../f2"):
            with self.subTest(name=name):
                answer = self.studio.request("POST", "/api/images", {"file": name})
                self.assertEqual(answer.status, 404)

    def test_links_that_lead_out_are_not_shown(self):
        self.assertEqual(sorted(self.studio.entries()), ["a.tif", "sub", "within.tif"])

    def test_a_link_within_the_folder_is_opened(self):
        self.assertEqual(self.studio.open("within.tif")["state"], "ready")

    def test_a_file_that_becomes_a_link_out_is_refused(self):
        path = self.studio.folder / "turned.tif"
        tifffile.imwrite(path, star_field(64, 48))
        file = self.studio.file_id("turned.tif")
        path.unlink()
        path.symlink_to(self.studio.home / "images-not" / "secret.tif")
        answer = self.studio.request("POST", "/api/images", {"file": file})
        self.assertEqual(answer.status, 403)
        path.unlink()

    def test_a_folder_that_becomes_a_link_out_is_refused(self):
        path = self.studio.folder / "turning"
        path.mkdir()
        tifffile.imwrite(path / "secret.tif", star_field(64, 48))
        folder = self.studio.entries()["turning"]["id"]
        file = self.studio.entries(folder)["secret.tif"]["id"]
        (path / "secret.tif").unlink()
        path.rmdir()
        path.symlink_to(self.studio.home / "images-not")
        self.assertEqual(self.studio.request("GET", "/api/folders/" + folder).status, 403)
        self.assertEqual(
            self.studio.request("POST", "/api/images", {"file": file}).status, 403)
        self.assertEqual(self.studio.request("POST", "/api/jobs", {
            "files": [file]}).status, 403)
        path.unlink()

    def test_the_root_has_no_parent(self):
        listing = self.studio.get("/api/folders/" + self.studio.root())
        self.assertIsNone(listing["parent"])
        below = self.studio.get("/api/folders/" + self.studio.entries()["sub"]["id"])
        self.assertEqual(below["parent"], self.studio.root())

    def test_names_of_uploads_and_results_are_names(self):
        for name in ("../a.tif", "/etc/a.tif", "a/b.tif", "", ".hidden.tif", "a\\b.tif", "x" * 300,
                     "a%00.tif", "a%0a.tif", "%ff.tif"):
            with self.subTest(name=name):
                answer = self.studio.request("POST", "/api/uploads?name=" + name, b"x")
                self.assertEqual(answer.status, 400)
        file = self.studio.file_id("a.tif")
        for pattern in ("../{name}", "{name}/../{role}", "/tmp/{name}", "{role}{", "{other}", ".{name}",
                        "", "{name}"):
            with self.subTest(pattern=pattern):
                answer = self.studio.request("POST", "/api/jobs",
                                             {"files": [file], "pattern": pattern, "replace": True})
                self.assertEqual(answer.status, 400)


if __name__ == "__main__":
    unittest.main()
