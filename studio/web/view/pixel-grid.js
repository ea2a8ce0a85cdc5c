/**
 * How far an edge lies from the next screen pixel, towards the inside.
 *
 * @param {number} start of a box, in CSS pixels
 * @param {number} end of the box, in CSS pixels
 * @param {number} ratio screen pixels for each CSS pixel
 * @returns {{inset: number, length: number}} where a box of whole screen pixels begins in it, and how long it is
 */
export function onGrid(start, end, ratio) {
  const first = Math.ceil(start * ratio - 1e-6);
  const last = Math.floor(end * ratio + 1e-6);
  return { inset: first / ratio - start, length: Math.max(0, last - first) / ratio };
}

/**
 * Keeps an element on whole screen pixels within its parent, however the layout falls: a canvas between two
 * pixels would be shown blurred.
 *
 * @param {HTMLElement} parent positioned
 * @param {HTMLElement} child positioned absolutely in it
 */
export function keepOnGrid(parent, child) {
  const place = () => {
    const { left, top, right, bottom } = parent.getBoundingClientRect();
    const across = onGrid(left, right, devicePixelRatio);
    const down = onGrid(top, bottom, devicePixelRatio);
    Object.assign(child.style, {
      left: `${across.inset}px`,
      top: `${down.inset}px`,
      width: `${across.length}px`,
      height: `${down.length}px`,
    });
  };
  new ResizeObserver(place).observe(parent);
  place();
}
