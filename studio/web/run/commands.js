import { request } from "../remote/client.js";
import { announce, hideError, showError } from "../dom/announce.js";
import { askToReplace } from "../dom/dialog.js";
import { look, remember } from "../state/actions.js";
import { currentImage } from "../state/selectors.js";
import { chosenOptions, faults, runOptions } from "./options.js";

/**
 * Does something that the server may refuse, and shows its words where it does.
 *
 * @param {function(): Promise<*>} act
 * @returns {Promise<*>} what it gave, undefined where it failed
 */
export async function tryIt(act) {
  hideError();
  try {
    return await act();
  } catch (error) {
    showError(error.message);
    return undefined;
  }
}

/**
 * The options of the next run.
 *
 * @param {Object} state
 * @returns {{options: Object, fault: [string, string]|null}} `fault` is the first one's option name and words
 */
export function currentOptions(state) {
  const info = state.server.program?.machine_info;
  const described = info ? chosenOptions(info) : [];
  const values = { ...state.remembered.options };
  for (const [name, file] of Object.entries(state.chosenFiles)) {
    values[name] = file.file;
  }
  const wrong = Object.entries(faults(described, values));
  return { options: runOptions(described, values), fault: wrong[0] ?? null };
}

/**
 * Tries the removal on the visible part.
 *
 * @param {Object} store
 * @param {import("../view/stage.js").Stage} stage
 */
export async function startPreview(store, stage) {
  const image = currentImage(store.get());
  const area = stage.visibleArea();
  const options = checkedOptions(store);
  if (image?.state !== "ready" || !area || !options) {
    return;
  }
  await tryIt(async () => {
    await request("POST", `/api/images/${image.id}/preview`, { ...area, options });
    announce("Preview started.");
    if (store.get().remembered.mode === "source") {
      remember(store, { mode: "slider" });
    }
    look(store, { other: false });
  });
}

/**
 * Takes the preview of the image in view away.
 *
 * @param {Object} store
 */
export async function dropPreview(store) {
  const image = currentImage(store.get());
  if (image?.preview) {
    await tryIt(() => request("DELETE", `/api/images/${image.id}/preview`));
  }
}

/**
 * Queues runs over whole images; asks before anything that exists is replaced.
 *
 * @param {Object} store
 * @param {string[]} files ids
 * @returns {Promise<boolean>} whether they were queued
 */
export async function startRuns(store, files) {
  const options = checkedOptions(store);
  if (!options) {
    return false;
  }
  const { keep, pattern, format } = store.get().remembered;
  const order = { files, options, keep, pattern, format };
  const answer = await tryIt(() => askingToReplace("/api/jobs", order));
  if (!answer) {
    return false;
  }
  announce(answer.jobs.length === 1 ? "Queued." : `${answer.jobs.length} files queued.`);
  if (store.get().remembered.mode === "source") {
    remember(store, { mode: "slider" });
  }
  return true;
}

/**
 * Sends an order that may not replace anything, and once more where the person allows it.
 *
 * @param {string} path
 * @param {Object} order
 * @returns {Promise<Object|null>} the answer, null where the person said no
 * @throws {import("../remote/client.js").ApiError} for any other refusal
 */
export async function askingToReplace(path, order) {
  try {
    return await request("POST", path, { ...order, replace: false });
  } catch (error) {
    if (error.code !== "exists") {
      throw error;
    }
    const replace = await askToReplace(error.message, error.details.names ?? []);
    return replace ? request("POST", path, { ...order, replace: true }) : null;
  }
}

/**
 * Stops a job.
 *
 * @param {string} id
 */
export async function stopJob(id) {
  await tryIt(() => request("POST", `/api/jobs/${id}/stop`, {}));
}

function checkedOptions(store) {
  const { options, fault } = currentOptions(store.get());
  if (!fault) {
    return options;
  }
  remember(store, { tab: "tab-remove" });
  showError(`An option cannot be used as it is. ${fault[1]}`);
  // The panel shows the field before it can take the focus.
  setTimeout(() => document.getElementById(`option-${fault[0]}`)?.focus(), 0);
  return null;
}
