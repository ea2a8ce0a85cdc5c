const integers = new Intl.NumberFormat("en", { maximumFractionDigits: 0 });

/**
 * A size of a file, in the largest unit that leaves a number of at least 1.
 *
 * @param {number} bytes
 * @returns {string} such as "3.1 MB"
 */
export function fileSize(bytes) {
  const units = ["bytes", "kB", "MB", "GB", "TB"];
  let value = bytes;
  let unit = 0;
  while (value >= 1000 && unit < units.length - 1) {
    value /= 1000;
    unit += 1;
  }
  const digits = unit === 0 || value >= 100 ? 0 : 1;
  return `${value.toFixed(digits)} ${units[unit]}`;
}

/**
 * A time that is left, as coarse as it is known.
 *
 * @param {number} seconds
 * @returns {string} such as "about 3 min left"
 */
export function timeLeft(seconds) {
  if (seconds < 1.5) {
    return "about a second left";
  }
  if (seconds < 90) {
    return `about ${Math.round(seconds)} s left`;
  }
  if (seconds < 5400) {
    return `about ${Math.round(seconds / 60)} min left`;
  }
  return `about ${(seconds / 3600).toFixed(1)} h left`;
}

/**
 * A sample's value as the file has it: integers whole, others with six significant digits.
 *
 * @param {number|null} value null for one that is not finite, which JSON cannot hold
 * @returns {string}
 */
export function sample(value) {
  if (value === null || value === undefined) {
    return "undefined";
  }
  return Number.isInteger(value) ? String(value) : String(Number(value.toPrecision(6)));
}

/**
 * @param {number} part 0 to 1
 * @returns {string} whole percent, such as "37 %"
 */
export function percent(part) {
  return `${Math.round(part * 100)} %`;
}

/**
 * @param {number} count
 * @returns {string} with separators of thousands
 */
export function count(count) {
  return integers.format(count);
}

/**
 * The scale of the view.
 *
 * @param {number} scale screen pixels for each pixel of the image
 * @returns {string} such as "1:1" or "37 %"
 */
export function scaleText(scale) {
  return Math.abs(scale - 1) < 0.002 ? "1:1" : `${Number((scale * 100).toPrecision(3))} %`;
}

/**
 * The name of a file without the suffix of an image, also where it has two ("m31.fits.gz").
 *
 * @param {string} name
 * @returns {string}
 */
export function stem(name) {
  return name.replace(/\.(tiff?|png|jpe?g|fits?|fts)(\.gz)?$/i, "");
}

/**
 * What a job does at the moment, in a line.
 *
 * @param {Object} job as the server describes it
 * @returns {string}
 */
export function jobProgress(job) {
  switch (job.state) {
    case "waiting":
      return job.position > 0 ? `Waiting, ${job.position} before it` : "Waiting";
    case "running":
      return runningText(job);
    case "writing":
      return "Writing the results";
    case "done":
      return "Done";
    case "stopped":
      return "Stopped";
    default:
      return "Failed";
  }
}

function runningText(job) {
  if (!job.total) {
    return "Starting";
  }
  const parts = [`${job.current} of ${job.total} tiles`, `${Math.floor(job.percent)} %`];
  if (job.remaining_s !== null && job.remaining_s !== undefined) {
    parts.push(timeLeft(job.remaining_s));
  }
  return parts.join(", ");
}
