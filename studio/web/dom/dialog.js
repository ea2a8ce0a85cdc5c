import { byId, element } from "./element.js";

/**
 * Asks whether files that exist may be replaced.
 *
 * @param {string} message what the server said
 * @param {string[]} names of the files that exist
 * @returns {Promise<boolean>} true only where the person chose to replace them
 */
export function askToReplace(message, names) {
  const dialog = byId("replace");
  byId("replace-message").textContent = message;
  byId("replace-names").replaceChildren(...names.map((name) => element("li", {}, name)));
  dialog.returnValue = "";
  dialog.showModal();
  // The harmless answer has the focus: Enter alone replaces nothing.
  byId("replace-no").focus();
  return new Promise((resolve) => {
    dialog.addEventListener("close", () => resolve(dialog.returnValue === "replace"), { once: true });
  });
}

/** Makes every button with data-close close the dialog around it. */
export function connectDialogs() {
  for (const button of document.querySelectorAll("dialog [data-close]")) {
    button.addEventListener("click", () => button.closest("dialog").close(button.dataset.close));
  }
}
