import { request, upload } from "../remote/client.js";
import { announce, showError } from "../dom/announce.js";
import { tryIt } from "../run/commands.js";
import { look } from "../state/actions.js";
import { currentImage } from "../state/selectors.js";
import { percent } from "../text/format.js";
import { applyServerEvent } from "../state/server-events.js";

/**
 * Opens files as images and shows the last one.
 *
 * @param {Object} store
 * @param {string[]} files ids
 */
export async function openFiles(store, files) {
  for (const file of files) {
    const image = await tryIt(() => request("POST", "/api/images", { file }));
    if (image) {
      store.update((state) => withImage(state, image));
      look(store, { image: image.id, other: false });
    }
  }
}

// The event that tells of the image may have come before the answer, and know more.
function withImage(state, image) {
  const known = state.server.images.some((one) => one.id === image.id);
  return known ? state : applyServerEvent(state, "image", image);
}

/**
 * Closes an image; its results and runs stay.
 *
 * @param {string} id
 */
export async function closeImage(id) {
  await tryIt(() => request("DELETE", `/api/images/${id}`));
}

/**
 * Hands files of this computer to the studio, one after another, and opens them.
 *
 * @param {Object} store
 * @param {File[]} files
 */
export async function openUploads(store, files) {
  const limit = store.get().server.limits.upload_bytes;
  for (const file of files) {
    if (limit > 0 && file.size > limit) {
      showError(`${file.name} is larger than what can be handed over by the browser. Open it from its folder.`);
      continue;
    }
    announce(`Handing over ${file.name}.`);
    const sent = await tryIt(() => upload(file, (part) => showUpload(store, file.name, part)));
    showUpload(store, null, 0);
    if (sent) {
      await openFiles(store, [sent.file]);
    }
  }
}

function showUpload(store, name, part) {
  const uploads = name === null ? [] : [{ name, text: percent(part) }];
  store.update((state) => ({ ...state, uploads }));
}

/**
 * Shows the next open image, or the one before.
 *
 * @param {Object} store
 * @param {1|-1} step
 */
export function showNextImage(store, step) {
  const state = store.get();
  const { images } = state.server;
  const at = images.findIndex((image) => image.id === state.view.image);
  if (images.length > 1) {
    look(store, { image: images[(at + step + images.length) % images.length].id, other: false });
    announce(currentImage(store.get()).name);
  }
}

/**
 * Opens what is dropped on the page.
 *
 * @param {Object} store
 */
export function connectDrop(store) {
  const { dataset } = document.body;
  const carriesFiles = (event) => [...(event.dataTransfer?.types ?? [])].includes("Files");
  document.addEventListener("dragover", (event) => {
    if (carriesFiles(event)) {
      event.preventDefault();
      dataset.dropping = "true";
    }
  });
  document.addEventListener("dragleave", (event) => {
    if (event.relatedTarget === null) {
      delete dataset.dropping;
    }
  });
  document.addEventListener("drop", (event) => {
    delete dataset.dropping;
    if (carriesFiles(event)) {
      event.preventDefault();
      openUploads(store, [...event.dataTransfer.files]);
    }
  });
}
