import { tileQuery } from "../remote/tiles.js";
import { hasAfter, stretchOf } from "../state/selectors.js";

/**
 * @typedef {Object} SceneLayer one pyramid of tiles in a pane
 * @property {string} key equal for equal pixels
 * @property {string} base address of its levels
 * @property {string} query of its tiles
 * @property {{width: number, height: number, max_level: number}} size in pixels
 * @property {{x: number, y: number, width: number}} place in the image, in its pixels
 * @property {number} opacity 0 to 1; with 0 it is loaded but not shown
 * @property {boolean} screen whether it is screened over what is below
 * @property {boolean} clipped whether it is shown only right of the slider
 */

/**
 * What the panes show: before and after of an image, from the state alone.
 *
 * The layers of a pane are drawn from the first to the last. Everything that a press of a key may show next is
 * among them with opacity 0, so that it is there without waiting.
 *
 * @param {Object} state
 * @param {Object} image that is ready
 * @returns {{panes: SceneLayer[][], split: boolean, labels: string[]}} one or two panes
 */
export function sceneOf(state, image) {
  const mode = shownMode(state, image);
  const make = layerMaker(state, image);
  const { amount } = state.remembered;
  switch (mode) {
    case "starless":
      return onePane(layers(make, { source: 1, starless: 1 }), "Starless");
    case "slider":
      return { panes: [layers(make, { source: 1, starless: 1 }, true)], split: true, labels: ["Original", "Starless"] };
    case "side":
      return {
        panes: [[make.source(1)], layers(make, { source: 1, starless: 1 })],
        split: false,
        labels: ["Original", "Starless"],
      };
    case "mask":
      return onePane(layers(make, { mask: 1 }), "Mask");
    case "difference":
      return onePane(layers(make, state.remembered.gain === 1 ? { mask: 1 } : { difference: 1 }), "Difference");
    case "blend":
      return state.view.rested
        ? onePane(layers(make, { source: 1, blend: 1 }), "Blend")
        : onePane(layers(make, { source: 1, starless: 1, unscreen: amount }), "Blend");
    default:
      return onePane(layers(make, { source: 1 }), "Original");
  }
}

/**
 * The mode that is shown: the one chosen, the original where there is nothing to compare with, and what
 * blinking alternates with.
 *
 * @param {Object} state
 * @param {Object} image that is ready
 * @returns {string} id of view/modes.js
 */
export function shownMode(state, image) {
  if (!hasAfter(image)) {
    return "source";
  }
  const { mode } = state.remembered;
  if (!state.view.other) {
    return mode;
  }
  return mode === "source" ? "starless" : "source";
}

function onePane(pane, label) {
  return { panes: [pane], split: false, labels: [label] };
}

/** The layers of a pane: the source below, then those of the run, then those of the preview. */
function layers(make, opacities, clipped = false) {
  const { source = 0, starless = 0, unscreen = 0, mask = 0, difference = 0, blend = 0 } = opacities;
  const pane = [make.source(source)];
  for (const target of make.targets) {
    pane.push(make.after(target, "starless", starless, { clipped }));
    pane.push(make.after(target, "unscreen", unscreen, { screen: true }));
    pane.push(make.after(target, "mask", mask, {}));
    if (difference > 0) {
      pane.push(make.after(target, "mask", difference, { gain: make.gain }));
    }
    if (blend > 0) {
      pane.push(make.after(target, "blend", blend, {}));
    }
  }
  return pane;
}

function layerMaker(state, image) {
  const stretch = stretchOf(state, image);
  const { amount, curve, gain } = state.remembered;
  const whole = { x: 0, y: 0, width: image.width };

  function layer(base, query, size, place, opacity, { screen = false, clipped = false } = {}) {
    return { key: `${base}?${query}`, base, query, size, place, opacity, screen, clipped };
  }

  return {
    gain,
    targets: targetsOf(image),
    source(opacity) {
      const query = tileQuery("source", { stretch }, image.source_revision);
      return layer(`/api/images/${image.id}/tiles/source`, query, image, whole, opacity);
    },
    after(target, name, opacity, how) {
      const query = tileQuery(name, { stretch, amount, curve, gain: how.gain ?? 1 }, target.revision);
      return layer(`${target.base}/${name}`, query, target.size, target.place, opacity, how);
    },
  };
}

// A preview lies over the result of a run: it is there to see what another choice would change.
function targetsOf(image) {
  const targets = [];
  if (image.result) {
    targets.push({
      base: `/api/images/${image.id}/tiles`,
      size: image,
      place: { x: 0, y: 0, width: image.width },
      revision: image.result.job,
    });
  }
  if (image.preview?.state === "ready") {
    const { x, y, width } = image.preview;
    targets.push({
      base: `/api/images/${image.id}/preview/tiles`,
      size: image.preview,
      place: { x, y, width },
      revision: image.preview.job,
    });
  }
  return targets;
}
