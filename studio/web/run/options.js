/**
 * The options of the program that a person chooses, from its own description: those that steer a run, without
 * the ones that the studio sets itself (input, outputs, quiet and the switch of the progress stream).
 *
 * @param {Object} machineInfo the document of --machine-info
 * @returns {Object[]} as they stand there, in their order
 */
export function chosenOptions(machineInfo) {
  const own = new Set(["input", "quiet", machineInfo.progress?.machine?.option]);
  return machineInfo.options.filter(
    (option) => option.mode === "processing" && !own.has(option.name) && !option.creates_output,
  );
}

/**
 * What is wrong with the values that a person has typed.
 *
 * @param {Object[]} options of {@link chosenOptions}
 * @param {Object<string, *>} values by option name; numbers may be texts as typed, empty ones stand for the default
 * @returns {Object<string, string>} words by option name; empty where all is well
 */
export function faults(options, values) {
  const found = {};
  for (const option of options) {
    const text = isInForce(option, values) ? fault(option, values[option.name]) : "";
    if (text) {
      found[option.name] = text;
    }
  }
  return found;
}

/**
 * Whether an option counts: the one that it requires is switched on, if there is one.
 *
 * @param {Object} option
 * @param {Object<string, *>} values
 * @returns {boolean}
 */
export function isInForce(option, values) {
  return !option.requires || isGiven(values[option.requires]);
}

/**
 * The options of a run: what was chosen and counts, without what the program does by itself.
 *
 * @param {Object[]} options of {@link chosenOptions}
 * @param {Object<string, *>} values without faults
 * @returns {Object<string, boolean|number|string>}
 */
export function runOptions(options, values) {
  const result = {};
  for (const option of options) {
    const value = values[option.name];
    if (isGiven(value) && isInForce(option, values)) {
      const isNumber = option.type === "integer" || option.type === "number";
      result[option.name] = isNumber ? Number(value) : value;
    }
  }
  return result;
}

function isGiven(value) {
  return value !== undefined && value !== null && value !== false && String(value).trim() !== "";
}

function fault(option, value) {
  if (!isGiven(value) || option.type === "boolean" || option.type === "path") {
    return "";
  }
  const number = Number(value);
  if (!Number.isFinite(number)) {
    return "This is no number.";
  }
  if (option.type === "integer" && !Number.isInteger(number)) {
    return "Only whole numbers can be used here.";
  }
  if (option.constraints?.even && number % 2 !== 0) {
    return "Only even numbers can be used here.";
  }
  return limitFault(option, number);
}

function limitFault(option, number) {
  const { minimum, maximum, exclusive_minimum: above, exclusive_maximum: below } = option;
  if (minimum !== undefined && number < minimum) {
    return `It cannot be less than ${minimum}.`;
  }
  if (maximum !== undefined && number > maximum) {
    return `It cannot be more than ${maximum}.`;
  }
  if (above !== undefined && number <= above) {
    return `It has to be greater than ${above}.`;
  }
  if (below !== undefined && number >= below) {
    return `It has to be less than ${below}.`;
  }
  return "";
}
