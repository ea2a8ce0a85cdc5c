import { element } from "../dom/element.js";
import { explain } from "../help/guide-dialog.js";

/**
 * Shows warnings and errors of a run in a list, word for word, each with a way to what it means.
 *
 * @param {HTMLElement} list
 * @returns {function(Object[]|undefined): void} takes the messages as the server sends them
 */
export function messageView(list) {
  let shown;
  return (messages) => {
    if (messages !== shown) {
      shown = messages;
      list.replaceChildren(...items(messages ?? []));
    }
  };
}

function items(messages) {
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
