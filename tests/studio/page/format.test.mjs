import assert from "node:assert/strict";
import { test } from "node:test";

import { resultNames } from "../../../studio/web/run/result-names.js";
import { fileSize, jobProgress, sample, scaleText, stem, timeLeft } from "../../../studio/web/text/format.js";

test("sizes of files are told in the unit that fits", () => {
  assert.equal(fileSize(0), "0 bytes");
  assert.equal(fileSize(999), "999 bytes");
  assert.equal(fileSize(3124388), "3.1 MB");
  assert.equal(fileSize(240_000_000), "240 MB");
});

test("times that are left are told as coarsely as they are known", () => {
  assert.equal(timeLeft(0), "about a second left");
  assert.equal(timeLeft(7.2), "about 7 s left");
  assert.equal(timeLeft(200), "about 3 min left");
  assert.equal(timeLeft(9000), "about 2.5 h left");
});

test("values are told as the file has them", () => {
  assert.equal(sample(65535), "65535");
  assert.equal(sample(-3), "-3");
  assert.equal(sample(0.0123456789), "0.0123457");
  assert.equal(sample(null), "undefined");
});

test("the scale is 1:1 only where it is", () => {
  assert.equal(scaleText(1), "1:1");
  assert.equal(scaleText(0.9167), "91.7 %");
  assert.equal(scaleText(8), "800 %");
});

test("a name loses the suffix of an image, also a doubled one", () => {
  assert.equal(stem("m31.tar.TIFF"), "m31.tar");
  assert.equal(stem("m31.fits.gz"), "m31");
  assert.equal(stem("notes.txt"), "notes.txt");
});

test("results get names by the pattern", () => {
  const settings = { keep: ["starless", "mask"], pattern: "{name}-{role}", format: "source" };
  assert.deepEqual(resultNames("m31.fits.gz", settings), ["m31-starless.fits", "m31-mask.fits"]);
  assert.deepEqual(resultNames("m31.tif", { ...settings, keep: [], format: "png" }), ["m31-starless.png"]);
});

test("a job tells where it is", () => {
  const job = { state: "running", current: 3, total: 8, percent: 37.5, remaining_s: 7 };
  assert.equal(jobProgress(job), "3 of 8 tiles, 37 %, about 7 s left");
  assert.equal(jobProgress({ ...job, remaining_s: null }), "3 of 8 tiles, 37 %");
  assert.equal(jobProgress({ state: "running", current: 0, total: 0, percent: 0 }), "Starting");
  assert.equal(jobProgress({ state: "waiting", position: 2 }), "Waiting, 2 before it");
  assert.equal(jobProgress({ state: "writing" }), "Writing the results");
});
