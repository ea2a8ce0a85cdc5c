/**
 * The query of a layer's tiles: only what changes its pixels, so that equal pixels have equal addresses.
 *
 * @param {string} layer "source", "starless", "mask", "unscreen" or "blend"
 * @param {Object} look
 * @param {{on: boolean, shadows: number, background: number}} look.stretch the stretch for the eye
 * @param {number} [look.gain] brightens the mask
 * @param {number} [look.amount] of stars in a blend, 0 to 1
 * @param {number} [look.curve] exponent of the unscreen layer
 * @param {string|number} revision tells pixels of one run or reading from those of another
 * @returns {string} without the question mark
 */
export function tileQuery(layer, { stretch, gain = 1, amount = 1, curve = 1 }, revision) {
  const query = new URLSearchParams({ r: String(revision) });
  if (stretch.on) {
    query.set("stretch", "1");
    query.set("shadows", String(stretch.shadows));
    query.set("background", String(stretch.background));
  }
  if (layer === "mask" && gain !== 1) {
    query.set("gain", String(gain));
  }
  if ((layer === "unscreen" || layer === "blend") && curve !== 1) {
    query.set("curve", String(curve));
  }
  if (layer === "blend") {
    query.set("amount", String(amount));
  }
  return query.toString();
}

/**
 * How OpenSeadragon gets the tiles of a layer.
 *
 * @param {string} base address of the layer's levels, such as "/api/images/i1/tiles/source"
 * @param {string} query of {@link tileQuery}
 * @param {{width: number, height: number, max_level: number}} size of the whole pyramid, in pixels
 * @param {number} tileSize
 * @returns {Object} a custom tile source
 */
export function tileSource(base, query, size, tileSize) {
  return {
    width: size.width,
    height: size.height,
    tileSize,
    tileOverlap: 0,
    minLevel: 0,
    maxLevel: size.max_level,
    getTileUrl: (level, x, y) => `${base}/${level}/${x}_${y}.png?${query}`,
  };
}
