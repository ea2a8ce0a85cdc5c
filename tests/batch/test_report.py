"""The report, from statuses that a test writes."""

import html.parser
import os
import pathlib
import shutil
import tempfile
import types
import unittest

import batches  # noqa: F401 # makes the package known
import numpy
import tifffile
from astropy.io import fits

from nebulex_batch import BatchError, frames, records, report, report_files, thumbnails


class Page(html.parser.HTMLParser):
    """Text, addresses and elements of a page."""

    def __init__(self, text):
        super().__init__()
        self.words, self.addresses, self.elements, self.open = [], [], [], []
        self.feed(text)

    def handle_starttag(self, tag, attrs):
        self.elements.append(tag)
        self.addresses += [value for key, value in attrs if key in ("src", "href", "srcset")]
        if tag not in ("meta", "br", "img"):
            self.open.append(tag)

    def handle_startendtag(self, tag, attrs):
        self.elements.append(tag)

    def handle_endtag(self, tag):
        assert self.open[-1] == tag or tag in self.open, (tag, self.open)
        while self.open.pop() != tag:
            pass

    def handle_data(self, data):
        self.words.append(data)

    def text(self):
        return " ".join(" ".join(self.words).split())


class Report(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="nebulex2-report-"))
        self.addCleanup(shutil.rmtree, self.folder)
        self.out = self.folder / "out"
        self.state = self.out / records.STATE_FOLDER
        self.state.mkdir(parents=True)
        self.names = []
        self.batch = {"in": str(self.folder / "in"), "out": str(self.out), "options": ["--linear"],
                      "thumbnails": 0}

    def status(self, name, outcome, **values):
        self.names.append(name)
        records.write_record(
            records.status_path(self.state, frames.frame_id(name)),
            {"frame": name, "outcome": outcome, "status": 0, "warnings": [], "seconds": 10,
             "mem_mb": 200, "asked": {"mem_mb": 400, "minutes": 3},
             "request": {"results": {"--output": name}}, **values})

    def write(self):
        report.write(types.SimpleNamespace(names=self.names, state=self.state, batch=self.batch))
        self.html = (self.out / "report.html").read_text()
        self.page = Page(self.html)
        self.table = (self.out / "failed.tsv").read_text().splitlines()

    def test_counts_each_outcome(self):
        for number in range(3):
            self.status(f"done_{number}.tif", "done")
        self.status("kept.tif", "kept")
        self.status("bad.tif", "failed", status=255, message="It is bad.")
        self.names.append("never.tif")
        self.write()
        for text in ("3 done", "1 left alone", "1 failed", "1 not finished", "bad.tif It is bad.",
                     "never.tif No run of this frame came to an end", "kept.tif", "--linear"):
            self.assertIn(text, self.page.text())
        self.assertEqual(records.read_record(self.state / "summary.json"),
                         {"done": 3, "kept": 1, "failed": 1, "unfinished": 1})
        self.assertEqual(self.table[1:], [
            "frame\tstatus\tmessage", "bad.tif\t255\tIt is bad.", f"never.tif\t\t{report.UNFINISHED}"])

    def test_needs_nothing_from_elsewhere_and_runs_nothing(self):
        self.status("a.tif", "done")
        self.write()
        self.assertTrue(all(one.startswith("data:") for one in self.page.addresses))
        self.assertNotIn("script", self.page.elements)
        self.assertNotIn("http", self.html)
        self.assertNotIn("url(", self.html)

    def test_names_and_messages_are_text_and_nothing_else(self):
        name = "<script>alert(1)</script>\n\t\\n&amp;.tif"
        self.status(name, "failed", status=255, message="<b>\t'\"")
        self.status("<i>.tif", "done", warnings=[{"code": "<u>", "message": "<s>"}])
        self.status(os.fsdecode(b"latin-\xfc.tif"), "failed", status=1, message="x")
        self.write()
        for element in ("script", "u", "s", "i"):
            self.assertNotIn(element, self.page.elements)
        self.assertIn(name.split("\n", maxsplit=1)[0], self.page.text())
        self.assertEqual(self.table[2], "<script>alert(1)</script>\\n\\t\\\\n&amp;.tif\t255\t<b>\\t'\"")
        self.assertEqual(self.table[3], "latin-\\udcfc.tif\t1\tx")

    def test_warnings_are_told_by_kind_with_their_frames(self):
        loss = {"code": "data_loss", "message": "Samples were clipped."}
        self.status("a.tif", "done", warnings=[loss, loss])
        self.status("b.tif", "done", warnings=[loss, {"code": "output_fidelity", "message": "Hm."}])
        self.write()
        self.assertIn("data_loss : 2 frames", self.page.text())
        self.assertIn("output_fidelity : 1 frame b.tif Hm.", self.page.text())

    def test_tells_what_frames_took_beside_what_was_asked_for(self):
        self.status("a.tif", "done", seconds=100, mem_mb=300)
        self.status("b.tif", "done", seconds=20, mem_mb=100)
        self.write()
        self.assertIn("The most that was asked for a frame was 3 min and 400 MB; the most that one took "
                      "was 2 min and 300 MB.", self.page.text())
        self.assertEqual(self.page.elements.count("rect"), 4)

    def test_a_batch_of_which_nothing_is_done_has_a_report(self):
        self.names.append("never.tif")
        self.write()
        self.assertIn("0 done", self.page.text())

    def test_a_file_of_somebody_else_is_not_replaced(self):
        self.status("a.tif", "done")
        (self.out / "report.html").write_text("mine")
        with self.assertRaisesRegex(BatchError, "was not written by it"):
            self.write()
        self.assertEqual((self.out / "report.html").read_text(), "mine")

    def test_summary(self):
        text = report_files.summary_text("/o", {"done": 3, "kept": 0, "failed": 1, "unfinished": 0})
        self.assertEqual(text, "3 frames done, 1 failed. Report: /o/report.html\n"
                               "Which failed, and why: /o/failed.tsv\n"
                               "To have the failed ones tried again by the next run: "
                               f"{batches.BATCH / 'retry'} /o")
        text = report_files.summary_text("/o", {"done": 1, "kept": 0, "failed": 0, "unfinished": 2})
        self.assertEqual(text, "1 frame done, 2 not finished. Report: /o/report.html\n"
                               "Which failed, and why: /o/failed.tsv\n"
                               "The same command goes on with those that are not finished.")
        text = report_files.summary_text("/o", {"done": 3, "kept": 0, "failed": 0, "unfinished": 0})
        self.assertEqual(text, "3 frames done. Report: /o/report.html")


class Thumbnails(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="nebulex2-thumbnails-"))
        self.addCleanup(shutil.rmtree, self.folder)

    def make(self, *names):
        batch = {"in": str(self.folder), "out": str(self.folder)}
        return thumbnails.make(batch, [
            {"frame": name, "request": {"results": {"--output": name}}} for name in names])

    def test_are_made_of_every_kind_of_image(self):
        random = numpy.random.default_rng(1)
        image = random.integers(100, 5000, (60, 90), numpy.uint16)
        colour = random.integers(100, 5000, (60, 90, 3), numpy.uint16)
        tifffile.imwrite(self.folder / "grey.tif", image)
        tifffile.imwrite(self.folder / "colour.tif", colour, photometric="rgb")
        fits.PrimaryHDU(image).writeto(self.folder / "grey.fits")
        fits.PrimaryHDU(numpy.float32(numpy.moveaxis(colour, 2, 0) / 65535)).writeto(
            self.folder / "colour.fits")
        names = ["grey.tif", "colour.tif", "grey.fits", "colour.fits"]
        self.assertEqual([name for name, _, _ in self.make(*names)], names)

    def test_of_what_cannot_be_read_are_left_out(self):
        tifffile.imwrite(self.folder / "a.tif", numpy.zeros((60, 90), numpy.uint8))
        (self.folder / "text.tif").write_text("no image")
        self.assertEqual([name for name, _, _ in self.make("text.tif", "a.tif", "missing.fits")],
                         ["a.tif"])


if __name__ == "__main__":
    unittest.main()
