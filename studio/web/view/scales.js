// From 1:1 on, scales at which each pixel of the image is a square of whole screen pixels.
const ABOVE = [1, 2, 3, 4, 6, 8, 12, 16, 24, 32];
const STEP_BELOW = Math.SQRT2;

/**
 * The scale that a press of a zoom button leads to.
 *
 * @param {number} scale screen pixels for each pixel of the image
 * @param {1|-1} direction in or out
 * @returns {number}
 */
export function nextScale(scale, direction) {
  const near = 1e-3;
  if (direction > 0) {
    const above = ABOVE.find((stop) => stop > scale * (1 + near)) ?? ABOVE.at(-1);
    return scale * STEP_BELOW < 1 - near ? scale * STEP_BELOW : above;
  }
  const below = ABOVE.findLast((stop) => stop < scale * (1 - near));
  return below ?? scale / STEP_BELOW;
}

/**
 * Whether each pixel of the image takes a whole number of screen pixels.
 *
 * @param {number} scale screen pixels for each pixel of the image
 * @returns {boolean}
 */
export function isWhole(scale) {
  return scale > 0.5 && Math.abs(scale - Math.round(scale)) < 1e-6;
}
