/** What is remembered between two starts, with the values of the first one. */
export const REMEMBERED = Object.freeze({
  tab: "tab-view",
  mode: "slider",
  shadows: -2.8,
  background: 0.25,
  gain: 8,
  amount: 0.5,
  curve: 1,
  options: Object.freeze({}),
  keep: Object.freeze(["starless"]),
  pattern: "{name}_{role}",
  format: "source",
  letterKeys: true,
});

/**
 * The state before the server has said anything.
 *
 * `server` is what the server told, `messages` are the records of each job, `view` is what the person looks at
 * and how. Nothing else is kept anywhere.
 *
 * @returns {Object}
 */
export function initialState() {
  return {
    connection: "connecting",
    server: {
      version: "",
      program: null,
      folders: [],
      images: [],
      jobs: [],
      limits: { upload_bytes: 0, preview_min: 512, preview_max: 2048, tile_size: 256 },
    },
    messages: {},
    remembered: REMEMBERED,
    // The file behind the option of the program that names a network: {file, name} by option name.
    chosenFiles: {},
    view: {
      image: null,
      split: 0.5,
      other: false,
      rested: true,
      stretchOn: {},
      scale: 0,
      pointer: null,
    },
    saved: null,
    uploads: [],
  };
}
