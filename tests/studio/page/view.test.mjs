import assert from "node:assert/strict";
import { test } from "node:test";

import { errorOfAnswer } from "../../../studio/web/remote/client.js";
import { tileSource } from "../../../studio/web/remote/tiles.js";
import { createStore } from "../../../studio/web/state/store.js";
import { rightOf, visibleArea } from "../../../studio/web/view/area.js";
import { onGrid } from "../../../studio/web/view/pixel-grid.js";
import { isWhole, nextScale } from "../../../studio/web/view/scales.js";
import { columnHeights, histogramSummary } from "../../../studio/web/view/histogram-shape.js";

test("the visible part is held within the image, in whole pixels", () => {
  const image = { width: 600, height: 400 };
  assert.deepEqual(visibleArea({ x: -20.5, y: 10.2, width: 100, height: 50 }, image), {
    x: 0,
    y: 10,
    width: 80,
    height: 51,
  });
  assert.deepEqual(visibleArea({ x: -500, y: -500, width: 5000, height: 5000 }, image), {
    x: 0,
    y: 0,
    width: 600,
    height: 400,
  });
  assert.equal(visibleArea({ x: 700, y: 0, width: 50, height: 50 }, image), null);
});

test("the slider cuts a layer at its own place", () => {
  const place = { x: 100, y: 50, width: 200 };
  const size = { width: 200, height: 80 };
  assert.deepEqual(rightOf(150, place, size), { x: 50, y: 0, width: 150, height: 80 });
  assert.deepEqual(rightOf(20, place, size), { x: 0, y: 0, width: 200, height: 80 });
  assert.deepEqual(rightOf(900, place, size), { x: 200, y: 0, width: 0, height: 80 });
});

test("tiles have the addresses that the server serves", () => {
  const source = tileSource("/api/images/i1/tiles/mask", "r=3&gain=8", { width: 600, height: 400, max_level: 10 }, 256);
  assert.equal(source.getTileUrl(10, 2, 1), "/api/images/i1/tiles/mask/10/2_1.png?r=3&gain=8");
  assert.equal(source.maxLevel, 10);
});

test("a refusal carries the server's words and details", () => {
  const body = JSON.stringify({ error: { code: "exists", message: "a.tif exists already.", names: ["a.tif"] } });
  const error = errorOfAnswer(409, body);
  assert.equal(error.message, "a.tif exists already.");
  assert.equal(error.code, "exists");
  assert.deepEqual(error.details, { names: ["a.tif"] });
});

test("a refusal without such a body is told all the same", () => {
  assert.match(errorOfAnswer(403, "Forbidden").message, /was started again/);
  assert.equal(errorOfAnswer(500, "").message, "The studio answered with status 500.");
});

test("watchers hear once of several changes, and only of what they look at", async () => {
  const store = createStore({ a: 1, b: 1 });
  const heard = [];
  store.watch((state) => state.a, (a) => heard.push(a));
  store.update((state) => ({ ...state, a: 2 }));
  store.update((state) => ({ ...state, a: 3 }));
  store.update((state) => ({ ...state, b: 2 }));
  await null;
  store.update((state) => ({ ...state, b: 3 }));
  await null;
  assert.deepEqual(heard, [1, 3]);
});

test("what a watcher changes is told as well", async () => {
  const store = createStore({ a: 1, doubled: 2 });
  const heard = [];
  store.watch((state) => state.doubled, (doubled) => heard.push(doubled));
  store.watch((state) => state.a, (a) => store.update((state) => ({ ...state, doubled: 2 * a })));
  store.update((state) => ({ ...state, a: 5 }));
  await null;
  await null;
  assert.equal(heard.at(-1), 10);
});

test("clipped ends do not flatten a histogram", () => {
  assert.deepEqual(columnHeights([[900, 25, 100, 900]]), [[1, 0.5, 1, 1]]);
});

test("the median of a histogram is told in percent of white", () => {
  const flat = Array(100).fill(10);
  assert.equal(histogramSummary([flat]), "Median as shown: all 50 % of white.");
});

test("a view begins and ends on whole screen pixels", () => {
  assert.deepEqual(onGrid(98.25, 687.75, 1), { inset: 0.75, length: 588 });
  assert.deepEqual(onGrid(98.25, 687.75, 2), { inset: 0.25, length: 589 });
  assert.deepEqual(onGrid(10, 20, 1), { inset: 0, length: 10 });
});

test("zooming meets 1:1 and goes on by whole numbers", () => {
  assert.equal(nextScale(0.9, 1), 1);
  assert.equal(nextScale(1, 1), 2);
  assert.equal(nextScale(2.3, 1), 3);
  assert.equal(nextScale(32, 1), 32);
  assert.equal(nextScale(1.7, -1), 1);
  assert.ok(Math.abs(nextScale(1, -1) - Math.SQRT1_2) < 1e-12);
  assert.ok(Math.abs(nextScale(0.25, 1) - 0.25 * Math.SQRT2) < 1e-12);
});

test("only whole scales show pixels as equal squares", () => {
  assert.equal(isWhole(1), true);
  assert.equal(isWhole(3 - 1e-9), true);
  assert.equal(isWhole(1.4), false);
  assert.equal(isWhole(0), false);
});
