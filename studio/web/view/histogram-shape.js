import { percent } from "../text/format.js";

/**
 * The heights of a histogram's columns: square roots, so that faint parts show beside the peak.
 *
 * @param {number[][]} channels counts by channel
 * @returns {number[][]} each within 0 and 1
 */
export function columnHeights(channels) {
  // The ends hold everything that was clipped, and would flatten the rest.
  const highest = Math.max(1, ...channels.flatMap((counts) => counts.slice(1, -1)));
  return channels.map((counts) => counts.map((one) => Math.min(1, Math.sqrt(one / highest))));
}

/**
 * A histogram in words.
 *
 * @param {number[][]} channels counts by channel
 * @returns {string}
 */
export function histogramSummary(channels) {
  const names = channels.length === 3 ? ["red", "green", "blue"] : ["all"];
  const medians = channels.map((counts, index) => `${names[index]} ${percent(medianBin(counts) / counts.length)}`);
  return `Median as shown: ${medians.join(", ")} of white.`;
}

function medianBin(counts) {
  const half = counts.reduce((sum, one) => sum + one, 0) / 2;
  let below = 0;
  for (let bin = 0; bin < counts.length; bin += 1) {
    if (below + counts[bin] >= half) {
      return counts[bin] > 0 ? bin + (half - below) / counts[bin] : bin;
    }
    below += counts[bin];
  }
  return counts.length;
}
