import assert from "node:assert/strict";
import { test } from "node:test";

import { sceneOf, shownMode } from "../../../studio/web/view/scene.js";
import { PREVIEW, RESULT, readyImage, stateWith } from "./images.mjs";

const withResult = readyImage({ result: RESULT });

function visible(pane) {
  return pane.filter((layer) => layer.opacity > 0).map((layer) => layer.base.split("/").slice(3).join("/"));
}

function scene(image, settings) {
  return sceneOf(stateWith(image, settings), image);
}

test("without a result every mode shows the original", () => {
  for (const mode of ["source", "starless", "slider", "side", "mask", "difference", "blend"]) {
    const { panes, split } = scene(readyImage(), { remembered: { mode } });
    assert.deepEqual(panes.map(visible), [["i1/tiles/source"]]);
    assert.equal(split, false);
  }
});

test("the slider shows the starless image over the original, clipped", () => {
  const { panes, split } = scene(withResult, { remembered: { mode: "slider" } });
  assert.equal(split, true);
  assert.deepEqual(visible(panes[0]), ["i1/tiles/source", "i1/tiles/starless"]);
  assert.deepEqual(panes[0].filter((layer) => layer.clipped).map((layer) => layer.opacity), [1]);
});

test("side by side has the original in one pane and the starless image in the other", () => {
  const { panes } = scene(withResult, { remembered: { mode: "side" } });
  assert.deepEqual(visible(panes[0]), ["i1/tiles/source"]);
  assert.equal(visible(panes[1]).at(-1), "i1/tiles/starless");
});

test("mask and difference show the mask alone, the difference brightened", () => {
  const mask = scene(withResult, { remembered: { mode: "mask", gain: 8 } }).panes[0];
  const difference = scene(withResult, { remembered: { mode: "difference", gain: 8 } }).panes[0];
  const query = (pane) => pane.filter((layer) => layer.opacity > 0).map((layer) => layer.query);
  assert.deepEqual(visible(mask), ["i1/tiles/mask"]);
  assert.deepEqual(visible(difference), ["i1/tiles/mask"]);
  assert.deepEqual(query(mask), ["r=j3"]);
  assert.deepEqual(query(difference), ["r=j3&gain=8"]);
});

test("no two layers of a pane have the same key", () => {
  for (const mode of ["source", "starless", "slider", "side", "mask", "difference", "blend"]) {
    for (const gain of [1, 8]) {
      for (const rested of [true, false]) {
        const image = readyImage({ result: RESULT, preview: PREVIEW });
        for (const pane of scene(image, { remembered: { mode, gain }, view: { rested } }).panes) {
          assert.equal(new Set(pane.map((layer) => layer.key)).size, pane.length, `${mode} ${gain}`);
        }
      }
    }
  }
});

test("while the amount moves, the unscreen layer is screened over the starless image with that opacity", () => {
  const pane = scene(withResult, { remembered: { mode: "blend", amount: 0.3 }, view: { rested: false } }).panes[0];
  assert.deepEqual(visible(pane).slice(-2), ["i1/tiles/starless", "i1/tiles/unscreen"]);
  const unscreen = pane.find((layer) => layer.base.endsWith("unscreen"));
  assert.equal(unscreen.screen, true);
  assert.equal(unscreen.opacity, 0.3);
});

test("when it rests, the exact blend is shown", () => {
  const pane = scene(withResult, { remembered: { mode: "blend", amount: 0.3, curve: 2 } }).panes[0];
  const blend = pane.find((layer) => layer.base.endsWith("blend"));
  assert.equal(blend.opacity, 1);
  assert.equal(blend.query, "r=j3&curve=2&amount=0.3");
});

test("blinking alternates with the original, and from it with the starless image", () => {
  const mode = (remembered, other) => shownMode(stateWith(withResult, { remembered: { mode: remembered }, view: { other } }), withResult);
  assert.equal(mode("slider", true), "source");
  assert.equal(mode("source", true), "starless");
  assert.equal(mode("blend", false), "blend");
});

test("what blinking shows next is loaded beforehand", () => {
  const { panes } = scene(withResult, { remembered: { mode: "source" } });
  const hidden = panes[0].filter((layer) => layer.opacity === 0).map((layer) => layer.base.split("/").at(-1));
  assert.ok(hidden.includes("starless"));
});

test("a preview lies at its place, over the result", () => {
  const image = readyImage({ result: RESULT, preview: PREVIEW });
  const pane = scene(image, { remembered: { mode: "starless" } }).panes[0];
  assert.deepEqual(visible(pane), ["i1/tiles/source", "i1/tiles/starless", "i1/preview/tiles/starless"]);
  const top = pane.filter((layer) => layer.opacity > 0).at(-1);
  assert.deepEqual(top.place, { x: 40, y: 30, width: 512 });
  assert.equal(top.size.max_level, 9);
});

test("a preview that is not ready is not shown", () => {
  const image = readyImage({ preview: { ...PREVIEW, state: "running", layers: [] } });
  assert.deepEqual(visible(scene(image, { remembered: { mode: "slider" } }).panes[0]), ["i1/tiles/source"]);
});

test("a new preview does not load the original again", () => {
  const keys = (image) => scene(image, {}).panes[0][0].key;
  assert.equal(keys(readyImage({ revision: 5, preview: PREVIEW })), keys(readyImage({ revision: 4 })));
});

test("every layer gets the same stretch", () => {
  const { panes } = scene(withResult, { remembered: { mode: "slider" }, view: { stretchOn: { i1: true } } });
  for (const layer of panes[0]) {
    assert.match(layer.query, /stretch=1&shadows=-2.8&background=0.25/);
  }
});
