/**
 * The image that the person looks at.
 *
 * @param {Object} state
 * @returns {Object|null} as the server describes it, null where none is open
 */
export function currentImage(state) {
  return state.server.images.find((image) => image.id === state.view.image) ?? null;
}

/**
 * The stretch with which the image is shown: switched by the person, else as the server proposes.
 *
 * @param {Object} state
 * @param {Object} image that is ready
 * @returns {{on: boolean, shadows: number, background: number}}
 */
export function stretchOf(state, image) {
  return {
    on: state.view.stretchOn[image.id] ?? image.stretch.on,
    shadows: state.remembered.shadows,
    background: state.remembered.background,
  };
}

/**
 * Whether there is anything to compare the image with.
 *
 * @param {Object|null} image
 * @returns {boolean}
 */
export function hasAfter(image) {
  return image?.state === "ready" && (image.result !== null || image.preview?.state === "ready");
}

const ENDED = ["done", "failed", "stopped"];

/**
 * Whether a job is over.
 *
 * @param {Object} job
 * @returns {boolean}
 */
export function isEnded(job) {
  return ENDED.includes(job.state);
}
