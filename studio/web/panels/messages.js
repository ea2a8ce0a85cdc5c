import { element } from "../dom/element.js";
import { explain } from "../help/guide-dialog.js";

/**
 * Warnings and errors of a run, word for word, each with a way to what it means.
 *
 * @param {Object[]} messages as the server sends them
 * @returns {HTMLElement[]} list items
 */
export function messageList(messages) {
  return messages
    .filter((message) => message.kind === "warning" || message.kind === "error")
    .map((message) =>
      element(
        "li",
        { class: `message ${message.kind}` },
        element("strong", {}, message.kind === "warning" ? "Warning" : "Error"),
        " ",
        element("span", { class: "message-text" }, message.text),
        " ",
        element(
          "button",
          {
            type: "button",
            class: "link",
            "aria-label": `What it means: ${message.text}`,
            on: { click: () => explain(message) },
          },
          "What it means",
        ),
      ),
    );
}
