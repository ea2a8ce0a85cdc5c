import assert from "node:assert/strict";
import { test } from "node:test";

import { REMEMBERED, initialState } from "../../../studio/web/state/initial.js";
import { applyServerEvent } from "../../../studio/web/state/server-events.js";
import { readyImage } from "./images.mjs";

const EMPTY = { version: "1", program: null, folders: [], images: [], jobs: [], settings: {}, limits: {} };
const reading = { id: "i1", file: "f1", name: "m31.fits", state: "reading", error: null };

function after(...events) {
  return events.reduce((state, [name, data]) => applyServerEvent(state, name, data), initialState());
}

test("the first image is looked at, and the last one when it is closed", () => {
  const state = after(["state", EMPTY], ["image", reading], ["image", { ...reading, id: "i2" }]);
  assert.equal(state.view.image, "i1");
  assert.equal(applyServerEvent(state, "image_closed", { id: "i1" }).view.image, "i2");
});

test("the source's revision changes only when the file has been read again", () => {
  const { source_revision: own, ...sent } = readyImage();
  const revision = (state) => state.server.images[0].source_revision;
  let state = after(["state", EMPTY], ["image", reading], ["image", { ...sent, revision: 1 }]);
  assert.equal(revision(state), own);
  state = applyServerEvent(state, "image", { ...sent, revision: 2 });
  assert.equal(revision(state), 1);
  state = applyServerEvent(state, "image", reading);
  state = applyServerEvent(state, "image", { ...sent, revision: 3 });
  assert.equal(revision(state), 3);
});

test("a job keeps its place in the list when it goes on", () => {
  const job = (id, state) => ({ id, state, kind: "run" });
  const state = after(["job", job("j1", "running")], ["job", job("j2", "waiting")], ["job", job("j1", "done")]);
  assert.deepEqual(state.server.jobs, [job("j1", "done"), job("j2", "waiting")]);
});

test("messages are kept by job, in their order, and go with it", () => {
  const message = (text) => ({ job: "j1", message: { kind: "warning", code: null, text } });
  const state = after(["job", { id: "j1" }], ["message", message("a")], ["message", message("b")]);
  assert.deepEqual(state.messages.j1.map(({ text }) => text), ["a", "b"]);
  const removed = applyServerEvent(state, "job_removed", { id: "j1" });
  assert.deepEqual(removed.messages, {});
  assert.deepEqual(removed.server.jobs, []);
});

test("settings are taken at the start, but only where they are of the right type", () => {
  const settings = { mode: "mask", gain: "8", keep: { 0: "mask" }, options: null, unknown: 1 };
  const { remembered } = after(["state", { ...EMPTY, settings }]);
  assert.deepEqual(remembered, { ...REMEMBERED, mode: "mask" });
});

test("settings of a later connection do not undo what was changed here", () => {
  let state = after(["state", EMPTY]);
  state = { ...state, connection: "live", remembered: { ...state.remembered, mode: "blend" } };
  state = applyServerEvent(state, "state", { ...EMPTY, settings: { mode: "mask" } });
  assert.equal(state.remembered.mode, "blend");
});

test("an event of a newer server changes nothing", () => {
  const state = initialState();
  assert.equal(applyServerEvent(state, "weather", {}), state);
});
