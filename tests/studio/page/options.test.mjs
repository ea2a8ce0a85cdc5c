import assert from "node:assert/strict";
import { readFileSync } from "node:fs";
import { test } from "node:test";

import { limitWords, optionWords } from "../../../studio/web/help/option-words.js";
import { inReadingOrder } from "../../../studio/web/run/option-order.js";
import { chosenOptions, faults, runOptions } from "../../../studio/web/run/options.js";

const info = JSON.parse(readFileSync(new URL("../../data/machine-info.json", import.meta.url), "utf8"));
const options = chosenOptions(info);
const names = (list) => list.map((option) => option.name);

test("the person chooses what the studio does not set itself", () => {
  assert.deepEqual(names(options), [
    "weights",
    "stride",
    "upsample",
    "linear",
    "shadows_clipping",
    "target_background",
    "disable_highlights_protection",
  ]);
});

test("an option that the page does not know appears with its flag", () => {
  const option = { name: "star_size", flags: ["-x", "--star-size"], type: "integer", mode: "processing", minimum: 1 };
  assert.deepEqual(names(chosenOptions({ ...info, options: [...info.options, option] })).at(-1), "star_size");
  assert.deepEqual(optionWords(option), { label: "Star size", hint: "The program's option --star-size." });
  assert.equal(limitWords(option), "At least 1.");
});

test("limits are told in words", () => {
  const words = Object.fromEntries(options.map((option) => [option.name, limitWords(option)]));
  assert.equal(words.stride, "Even, 2 to 512; 256 if left empty.");
  assert.equal(words.target_background, "Between 0 and 1; 0.25 if left empty.");
  assert.equal(words.shadows_clipping, "Less than 0; -2.8 if left empty.");
});

test("options follow the one that they require, files come last", () => {
  assert.deepEqual(names(inReadingOrder(options)), [
    "linear",
    "shadows_clipping",
    "target_background",
    "stride",
    "upsample",
    "disable_highlights_protection",
    "weights",
  ]);
});

for (const [value, words] of [
  ["abc", "This is no number."],
  ["3.5", "Only whole numbers can be used here."],
  ["255", "Only even numbers can be used here."],
  ["0", "It cannot be less than 2."],
  ["514", "It cannot be more than 512."],
]) {
  test(`a stride of ${value} is refused`, () => {
    assert.deepEqual(faults(options, { stride: value }), { stride: words });
  });
}

for (const value of ["", "2", "512", 128, undefined]) {
  test(`a stride of ${JSON.stringify(value)} is taken`, () => {
    assert.deepEqual(faults(options, { stride: value }), {});
  });
}

test("exclusive limits exclude themselves", () => {
  const wrong = faults(options, { linear: true, target_background: "1", shadows_clipping: "0" });
  assert.deepEqual(wrong, { shadows_clipping: "It has to be less than 0.", target_background: "It has to be less than 1." });
  assert.deepEqual(faults(options, { linear: true, target_background: "0" }), {
    target_background: "It has to be greater than 0.",
  });
});

test("what requires a switch that is off is neither checked nor sent", () => {
  const values = { target_background: "7", shadows_clipping: "-3" };
  assert.deepEqual(faults(options, values), {});
  assert.deepEqual(runOptions(options, values), {});
});

test("numbers are sent as numbers, and only what was chosen", () => {
  const values = { linear: true, shadows_clipping: "-3.5", stride: "", upsample: false, weights: "f8" };
  assert.deepEqual(runOptions(options, values), { weights: "f8", linear: true, shadows_clipping: -3.5 });
});
