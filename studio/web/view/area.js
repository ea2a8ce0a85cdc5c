/**
 * The part of an image that is visible, in whole pixels.
 *
 * @param {{x: number, y: number, width: number, height: number}} bounds of the view, in pixels of the image;
 *   may lie outside of it
 * @param {{width: number, height: number}} image
 * @returns {{x: number, y: number, width: number, height: number}|null} null where nothing of it is visible
 */
export function visibleArea(bounds, image) {
  const left = Math.max(0, Math.floor(bounds.x));
  const top = Math.max(0, Math.floor(bounds.y));
  const right = Math.min(image.width, Math.ceil(bounds.x + bounds.width));
  const bottom = Math.min(image.height, Math.ceil(bounds.y + bounds.height));
  return right > left && bottom > top ? { x: left, y: top, width: right - left, height: bottom - top } : null;
}

/**
 * What of a layer lies right of the slider, in the layer's own pixels.
 *
 * @param {number} x of the slider in pixels of the image
 * @param {{x: number, width: number}} place of the layer in the image
 * @param {{width: number, height: number}} size of the layer
 * @returns {{x: number, y: number, width: number, height: number}} without width where nothing is
 */
export function rightOf(x, place, size) {
  const left = Math.min(Math.max(0, x - place.x), size.width);
  return { x: left, y: 0, width: size.width - left, height: size.height };
}
