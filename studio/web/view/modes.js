/**
 * The ways to compare, in the order of their keys.
 *
 * `needsAfter` are those that show nothing without a result or a preview.
 */
export const MODES = Object.freeze([
  { id: "source", label: "Original", key: "1", needsAfter: false },
  { id: "starless", label: "Starless", key: "2", needsAfter: true },
  { id: "slider", label: "Slider", key: "3", needsAfter: true },
  { id: "side", label: "Side by side", key: "4", needsAfter: true },
  { id: "mask", label: "Mask", key: "5", needsAfter: true },
  { id: "difference", label: "Difference", key: "6", needsAfter: true },
  { id: "blend", label: "Blend", key: "7", needsAfter: true },
]);
