import { stem } from "../text/format.js";

/**
 * The names that a run's results will get.
 *
 * @param {string} source name of the file
 * @param {{keep: string[], pattern: string, format: string}} settings
 * @returns {string[]}
 */
export function resultNames(source, { keep, pattern, format }) {
  const base = stem(source);
  const suffix = format === "source" ? sourceSuffix(source) : format;
  return ["starless", "mask", "unscreen"]
    .filter((role) => role === "starless" || keep.includes(role))
    .map((role) => `${pattern.replaceAll("{name}", base).replaceAll("{role}", role)}.${suffix}`);
}

// Results are not compressed: "m31.fits.gz" gives "m31_starless.fits".
function sourceSuffix(source) {
  return source.slice(stem(source).length + 1).replace(/\.gz$/i, "") || "tif";
}
