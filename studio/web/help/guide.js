/**
 * The user guide's tables of warnings and errors, as they stand there.
 *
 * @param {string} markdown the guide
 * @returns {{section: "Warnings"|"Errors", cells: string[]}[]} the rows; the cells are markdown: the message, then
 *   what it means and what to do
 */
export function guideRows(markdown) {
  const rows = [];
  let section = "";
  for (const line of markdown.split("\n")) {
    const heading = /^## +(.*)$/.exec(line);
    if (heading) {
      section = heading[1].trim();
    } else if ((section === "Warnings" || section === "Errors") && line.startsWith("|")) {
      const cells = tableCells(line);
      if (!/^(:?-+:?|warning|error)$/.test(cells[0])) {
        rows.push({ section, cells });
      }
    }
  }
  return rows;
}

/**
 * The row that tells about a message: the one whose words, in their order, are in it.
 *
 * @param {{cells: string[]}[]} rows of {@link guideRows}
 * @param {{kind: string, code: string|null, text: string}} message of a run
 * @returns {number} its index, -1 where none does
 */
export function rowFor(rows, message) {
  const text = plain(message.text).toLowerCase();
  return rows.findIndex(({ cells }) => {
    const code = /^`\[(\w+)\]`/.exec(cells[0])?.[1];
    return (!code || code === message.code) && pattern(cells[0]).test(text);
  });
}

/**
 * Markdown of a cell as pieces of text.
 *
 * @param {string} markdown with `code`, **strong**, *emphasis* and [links](address)
 * @returns {{kind: "text"|"code"|"strong"|"em", text: string}[]} links become their text
 */
export function pieces(markdown) {
  const found = [];
  const marks = /`([^`]+)`|(?<!\\)\*\*([^*]+)\*\*|(?<!\\)\*([^*]+)(?<!\\)\*|\[((?:[^\]\\]|\\.)+)\]\([^)]*\)/g;
  let end = 0;
  for (const match of markdown.matchAll(marks)) {
    push(found, "text", markdown.slice(end, match.index));
    const [, code, strong, em, link] = match;
    push(found, code ? "code" : strong ? "strong" : em ? "em" : "text", code ?? strong ?? em ?? link);
    end = match.index + match[0].length;
  }
  push(found, "text", markdown.slice(end));
  return found;
}

function push(found, kind, text) {
  if (text) {
    found.push({ kind, text: kind === "code" ? text : text.replace(/\\(.)/g, "$1") });
  }
}

function tableCells(line) {
  return line
    .replace(/^\|/, "")
    .replace(/\|\s*$/, "")
    .split(/(?<!\\)\|/)
    .map((cell) => cell.trim());
}

// "..." and *placeholders* of the guide stand for anything; code marks are no part of the words.
function pattern(cell) {
  const words = cell
    .replace(/^`\[\w+\]`\s*/, "")
    .replace(/(?<!\\)\*[^*]+(?<!\\)\*/g, "...")
    .split("...")
    .map((part) => plain(part).toLowerCase().replace(/[()]+$/, "").trim())
    .filter((part) => part.length > 1);
  return new RegExp(words.map((part) => part.replace(/[.*+?^${}()|[\]\\]/g, "\\$&")).join(".*"), "s");
}

function plain(text) {
  return text.replace(/[`\\]/g, "");
}
