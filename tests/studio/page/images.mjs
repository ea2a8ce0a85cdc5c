import { initialState } from "../../../studio/web/state/initial.js";

/** An image of 600 x 400 pixels as the server describes it, with what `change` says besides. */
export function readyImage(change = {}) {
  return {
    id: "i1",
    file: "f1",
    name: "m31.fits",
    state: "ready",
    width: 600,
    height: 400,
    max_level: 10,
    tile_size: 256,
    revision: 1,
    source_revision: 1,
    stretch: { on: false, shadows_clipping: -2.8, target_background: 0.25 },
    result: null,
    preview: null,
    ...change,
  };
}

/** The state of a page that shows an image. */
export function stateWith(image, { remembered = {}, view = {} } = {}) {
  const state = initialState();
  return {
    ...state,
    connection: "live",
    server: { ...state.server, images: [image] },
    remembered: { ...state.remembered, ...remembered },
    view: { ...state.view, image: image.id, ...view },
  };
}

export const RESULT = { job: "j3", options: {}, layers: ["source", "starless", "mask", "unscreen", "blend"], files: [] };

/** A preview of 512 x 512 pixels that lies at column 40, row 30. */
export const PREVIEW = {
  job: "j4",
  state: "ready",
  error: null,
  x: 40,
  y: 30,
  width: 512,
  height: 512,
  max_level: 9,
  options: {},
  layers: ["source", "starless", "mask", "unscreen", "blend"],
};
