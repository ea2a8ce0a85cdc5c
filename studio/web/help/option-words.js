// Labels and hints of the options that this page knows. Others are shown all the same, with what the program
// itself says about them.
const WORDS = {
  linear: {
    label: "Linear data",
    hint: "For images that have not been stretched yet, as they come from stacking.",
  },
  shadows_clipping: {
    label: "Shadows",
    hint: "Where the network's stretch puts black, in deviations from the median. Lower, such as -4, clips less of the shadows.",
  },
  target_background: {
    label: "Background",
    hint: "How bright the network sees the background. Raise it towards 0.3 where faint stars remain.",
  },
  stride: {
    label: "Stride",
    hint: "Pixels between tiles. Smaller is smoother and slower: half of it takes four times as long.",
  },
  upsample: {
    label: "Double the grid",
    hint: "For small images and for stars hardly wider than a pixel. Takes four times as long.",
  },
  disable_highlights_protection: {
    label: "No highlight protection",
    hint: "Shows what the network itself makes of very bright, nearly white cores that are no stars, such as a galaxy's.",
  },
  weights: {
    label: "Another network",
    hint: "A file that ends with .onnx, instead of the network that the program brings along.",
  },
};

/**
 * How an option is called on the page, and what is said about it.
 *
 * @param {Object} option of --machine-info
 * @returns {{label: string, hint: string}}
 */
export function optionWords(option) {
  return WORDS[option.name] ?? { label: humanised(option.name), hint: `The program's option ${option.flags.at(-1)}.` };
}

/**
 * The limits and the default of an option in words.
 *
 * @param {Object} option of --machine-info
 * @returns {string} such as "Even, 2 to 512; 256 if left empty.", empty where there are none
 */
export function limitWords(option) {
  const parts = [];
  if (option.constraints?.even) {
    parts.push("even");
  }
  const { minimum, maximum, exclusive_minimum: above, exclusive_maximum: below } = option;
  if (minimum !== undefined && maximum !== undefined) {
    parts.push(`${minimum} to ${maximum}`);
  } else if (minimum !== undefined) {
    parts.push(`at least ${minimum}`);
  } else if (maximum !== undefined) {
    parts.push(`at most ${maximum}`);
  }
  if (above !== undefined && below !== undefined) {
    parts.push(`between ${above} and ${below}`);
  } else if (above !== undefined) {
    parts.push(`greater than ${above}`);
  } else if (below !== undefined) {
    parts.push(`less than ${below}`);
  }
  const limits = parts.join(", ");
  const standard = option.default === undefined || option.default === "" ? "" : `${option.default} if left empty`;
  const text = [limits, standard].filter(Boolean).join("; ");
  return text ? `${text[0].toUpperCase()}${text.slice(1)}.` : "";
}

function humanised(name) {
  const words = name.replaceAll("_", " ");
  return words[0].toUpperCase() + words.slice(1);
}
