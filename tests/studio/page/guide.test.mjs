import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { test } from "node:test";

import { guideRows, pieces, rowFor } from "../../../studio/web/help/guide.js";

const rows = guideRows(readFileSync(new URL("../../../docs/user-guide.md", import.meta.url), "utf8"));
const found = (kind, code, text) => rows[rowFor(rows, { kind, code, text })]?.cells[0] ?? null;

test("the guide's two tables are found, without their heads", () => {
  const sections = new Set(rows.map((row) => row.section));
  assert.deepEqual([...sections], ["Warnings", "Errors"]);
  assert.ok(rows.filter((row) => row.section === "Warnings").every((row) => row.cells.length === 3));
  assert.ok(rows.filter((row) => row.section === "Errors").every((row) => row.cells.length === 2));
});

test("each warning of a run leads to its row", () => {
  const clipped = "--linear clips 3 of 12 samples (25 %) above 1 after fixed sample-format conversion; maximum 2.";
  assert.match(found("warning", "data_loss", clipped), /^`\[data_loss\]` --linear clips/);
  const pages = "The file holds 3 images. Only the first is processed.";
  assert.match(found("warning", "output_fidelity", pages), /Only the first is processed$/);
  const high = "clipped 7 integer FITS output samples to the source storage limits";
  assert.match(found("warning", "data_loss", high), /^`\[data_loss\]` clipped/);
  assert.match(found("warning", "output_fidelity", high), /^`\[output_fidelity\]` clipped/);
});

test("each error leads to its row", () => {
  assert.equal(found("error", null, "Stride should be even!"), "Stride should be even!");
  assert.equal(
    found("error", null, "Image size is too small for the window! 300x200"),
    "Image size is too small for the window!",
  );
  assert.match(
    found("error", null, "Unable to write output image: /a/b.tif (Permission denied)"),
    /Permission denied/,
  );
});

test("words that the guide does not have lead nowhere", () => {
  assert.equal(found("error", null, "The moon is too bright."), null);
  assert.equal(found("warning", "execution_fallback", "Something new."), null);
});

test("marks become pieces, links their text", () => {
  assert.deepEqual(pieces("a `b` **c** [d](#e) *f* L\\*a\\*b\\*"), [
    { kind: "text", text: "a " },
    { kind: "code", text: "b" },
    { kind: "text", text: " " },
    { kind: "strong", text: "c" },
    { kind: "text", text: " " },
    { kind: "text", text: "d" },
    { kind: "text", text: " " },
    { kind: "em", text: "f" },
    { kind: "text", text: " L*a*b*" },
  ]);
});
