import { byId, element, setText } from "../dom/element.js";
import { guideRows, pieces, rowFor } from "./guide.js";

let rows = null;

/**
 * Shows what a warning or an error means and what to do, from the user guide that is packed with the page.
 *
 * @param {{kind: string, code: string|null, text: string}} message
 */
export async function explain(message) {
  const dialog = byId("guide");
  setText(byId("guide-message"), message.text);
  dialog.showModal();
  try {
    rows ??= guideRows(await guideText());
  } catch {
    setText(byId("guide-note"), "The guide cannot be read at the moment: the studio does not answer.");
    return;
  }
  show(rowFor(rows, message), message.kind === "warning" ? "Warnings" : "Errors");
}

async function guideText() {
  const response = await fetch("/docs/user-guide.txt");
  if (!response.ok) {
    throw new Error(`status ${response.status}`);
  }
  return response.text();
}

function show(index, section) {
  const found = index >= 0;
  setText(
    byId("guide-note"),
    found ? "" : `The guide has no entry for exactly these words. These are all of its ${section.toLowerCase()}:`,
  );
  const shown = found ? [rows[index]] : rows.filter((row) => row.section === section);
  byId("guide-rows").replaceChildren(...shown.map(entry));
}

function entry({ section, cells }) {
  const [title, ...texts] = cells;
  const headings = section === "Warnings" ? ["What it means", "What to do"] : ["What to do"];
  return element(
    "section",
    { class: "guide-entry" },
    element("h3", {}, ...inline(title)),
    ...texts.flatMap((text, index) => [element("h4", {}, headings[index] ?? ""), element("p", {}, ...inline(text))]),
  );
}

function inline(markdown) {
  return pieces(markdown).map(({ kind, text }) => (kind === "text" ? text : element(kind, {}, text)));
}
