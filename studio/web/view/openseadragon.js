/**
 * Makes a viewer of OpenSeadragon under the page's Content-Security-Policy.
 *
 * The library would put a style element into the page, which the policy refuses, unless one with its mark is
 * there: this one has only the name of one, and what the library's would say stands in styles/stage.css.
 *
 * @param {Object} options of OpenSeadragon
 * @returns {Object} the viewer
 */
export function makeViewer(options) {
  if (!document.querySelector("style[data-openseadragon-mobile-css]")) {
    const mark = document.createElementNS(null, "style");
    mark.setAttribute("data-openseadragon-mobile-css", "");
    document.head.append(mark);
  }
  return OpenSeadragon(options);
}

/**
 * @param {number} x
 * @param {number} y
 * @returns {Object} a point of OpenSeadragon
 */
export function point(x, y) {
  return new OpenSeadragon.Point(x, y);
}

/**
 * @param {number} x
 * @param {number} y
 * @param {number} width
 * @param {number} height
 * @returns {Object} a rectangle of OpenSeadragon
 */
export function rectangle(x, y, width, height) {
  return new OpenSeadragon.Rect(x, y, width, height);
}
