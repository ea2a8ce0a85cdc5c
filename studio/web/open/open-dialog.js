import { request } from "../remote/client.js";
import { byId, element, setText } from "../dom/element.js";
import { startRuns } from "../run/commands.js";
import { fileSize } from "../text/format.js";
import { openFiles, openUploads } from "./opening.js";

const state = { folder: null, purpose: "open", chosen: new Map(), done: null };

/**
 * Makes the dialog that opens images from the folders of the studio.
 *
 * @param {Object} store
 */
export function connectOpenDialog(store) {
  const dialog = byId("open-dialog");
  const picker = byId("upload");
  byId("open").addEventListener("click", () => showOpenDialog(store));
  byId("empty-open").addEventListener("click", () => showOpenDialog(store));
  byId("open-chosen").addEventListener("click", () => {
    dialog.close();
    openFiles(store, [...state.chosen.keys()]);
  });
  byId("queue-chosen").addEventListener("click", async () => {
    dialog.close();
    await startRuns(store, [...state.chosen.keys()]);
  });
  byId("upload-choose").addEventListener("click", () => picker.click());
  picker.addEventListener("change", () => {
    dialog.close();
    openUploads(store, [...picker.files]);
    picker.value = "";
  });
  dialog.addEventListener("close", () => {
    state.done?.(null);
    state.done = null;
  });
}

/**
 * Shows the dialog for opening images.
 *
 * @param {Object} store
 */
export function showOpenDialog(store) {
  show(store, "open");
}

/**
 * Lets the person choose a file that is no image, such as a network.
 *
 * @param {Object} store
 * @returns {Promise<{file: string, name: string}|null>} null where none was chosen
 */
export function chooseFile(store) {
  show(store, "file");
  return new Promise((resolve) => {
    state.done = resolve;
  });
}

async function show(store, purpose) {
  const dialog = byId("open-dialog");
  if (dialog.open) {
    return;
  }
  state.purpose = purpose;
  setText(byId("open-title"), purpose === "open" ? "Open images" : "Choose a file");
  byId("open-actions").hidden = purpose !== "open";
  choose(new Map());
  byId("entries").replaceChildren();
  dialog.showModal();
  const roots = store.get().server.folders;
  const folder = state.folder ?? roots[0]?.id;
  if (folder) {
    await enter(store, folder);
  }
}

async function enter(store, id) {
  setText(byId("folder-note"), "Reading the folder…");
  let folder;
  try {
    folder = await request("GET", `/api/folders/${id}`);
  } catch (error) {
    setText(byId("folder-note"), error.message);
    state.folder = null;
    drawRoots(store, id);
    return;
  }
  state.folder = id;
  choose(new Map());
  setText(byId("folder-path"), folder.shown_path);
  setText(byId("folder-note"), noteOf(folder));
  drawRoots(store, id, folder.parent);
  const rows = folder.entries.filter((entry) => isOffered(entry)).map((entry) => row(store, entry));
  byId("entries").replaceChildren(...rows);
  if (byId("open-dialog").open) {
    (byId("entries").querySelector("button") ?? byId("open-close")).focus();
  }
}

function isOffered(entry) {
  return entry.kind === "folder" || (state.purpose === "open" ? entry.kind === "image" : entry.kind === "file");
}

function noteOf(folder) {
  const offered = folder.entries.filter(isOffered).length;
  if (folder.truncated) {
    return "The folder holds more than can be listed; these are the first.";
  }
  if (offered === 0) {
    return state.purpose === "open" ? "There are no images in this folder." : "There are no such files here.";
  }
  return folder.writable ? "" : "Results cannot be written into this folder.";
}

function drawRoots(store, id, parent = null) {
  const roots = store.get().server.folders;
  const buttons = roots.map((root) =>
    element(
      "button",
      { type: "button", "aria-current": root.id === id ? "true" : null, on: { click: () => enter(store, root.id) } },
      root.name,
    ),
  );
  if (parent) {
    const up = { type: "button", on: { click: () => enter(store, parent) } };
    buttons.push(element("button", up, "Folder above"));
  }
  byId("roots").replaceChildren(...buttons);
}

function row(store, entry) {
  if (entry.kind === "folder") {
    const open = element(
      "button",
      { type: "button", class: "entry folder", on: { click: () => enter(store, entry.id) } },
      element("span", { class: "entry-name" }, entry.name),
      element("span", { class: "entry-kind" }, "folder"),
    );
    return element("li", {}, open);
  }
  const open = element(
    "button",
    { type: "button", class: "entry", on: { click: () => take(store, entry) } },
    element("span", { class: "entry-name" }, entry.name),
    element("span", { class: "entry-kind" }, `${entry.modified.slice(0, 10)}  ${fileSize(entry.size)}`),
  );
  const several = state.purpose === "open" ? checkbox(entry) : null;
  return element("li", {}, several, open);
}

function checkbox(entry) {
  const box = element("input", {
    type: "checkbox",
    "aria-label": `Choose ${entry.name}`,
    on: {
      change: () => {
        const chosen = new Map(state.chosen);
        if (box.checked) {
          chosen.set(entry.id, entry.name);
        } else {
          chosen.delete(entry.id);
        }
        choose(chosen);
      },
    },
  });
  return box;
}

function choose(chosen) {
  state.chosen = chosen;
  const { size } = chosen;
  byId("open-chosen").disabled = size === 0;
  byId("queue-chosen").disabled = size === 0;
  setText(byId("chosen-count"), size === 0 ? "None chosen" : `${size} chosen`);
}

function take(store, entry) {
  const done = state.done;
  state.done = null;
  byId("open-dialog").close();
  if (state.purpose === "open") {
    openFiles(store, [entry.id]);
  } else {
    done?.({ file: entry.id, name: entry.name });
  }
}
