import { element, setText } from "../dom/element.js";
import { limitWords, optionWords } from "../help/option-words.js";

/**
 * The field of one option of the program.
 *
 * @param {Object} option of --machine-info
 * @param {{change: function(*): void, chooseFile: function(): void, dropFile: function(): void}} react
 * @returns {{node: HTMLElement, show: function({value: *, enabled: boolean, fault: string, file: Object}): void,
 *   focus: function(): void}}
 */
export function optionField(option, react) {
  switch (option.type) {
    case "boolean":
      return switchField(option, react);
    case "path":
      return fileField(option, react);
    default:
      return numberField(option, react);
  }
}

function ids(option) {
  const id = `option-${option.name}`;
  return { id, hint: `${id}-hint`, fault: `${id}-fault` };
}

function switchField(option, { change }) {
  const { id, hint } = ids(option);
  const words = optionWords(option);
  const input = element("input", {
    type: "checkbox",
    id,
    "aria-describedby": hint,
    on: { change: () => change(input.checked) },
  });
  const node = element(
    "div",
    { class: "field" },
    element("label", { class: "check", for: id }, input, element("span", {}, words.label)),
    element("p", { class: "hint", id: hint }, words.hint),
  );
  return {
    node,
    focus: () => input.focus(),
    show({ value, enabled }) {
      input.checked = value === true;
      input.disabled = !enabled;
      node.hidden = !enabled;
    },
  };
}

function numberField(option, { change }) {
  const { id, hint, fault } = ids(option);
  const words = optionWords(option);
  const input = element("input", {
    type: "text",
    inputmode: option.type === "integer" ? "numeric" : "decimal",
    id,
    class: "number",
    autocomplete: "off",
    spellcheck: "false",
    placeholder: option.default === undefined ? null : String(option.default),
    "aria-describedby": `${hint} ${fault}`,
    on: { input: () => change(input.value.trim()) },
  });
  const message = element("p", { class: "fault", id: fault });
  const node = element(
    "div",
    { class: "field" },
    element("div", { class: "row" }, element("label", { for: id }, words.label), input),
    element("p", { class: "hint", id: hint }, [words.hint, limitWords(option)].filter(Boolean).join(" ")),
    message,
  );
  return {
    node,
    focus: () => input.focus(),
    show({ value, enabled, fault: text }) {
      const shown = value === undefined || value === null ? "" : String(value);
      if (input.value.trim() !== shown) {
        input.value = shown;
      }
      input.disabled = !enabled;
      node.hidden = !enabled;
      input.setAttribute("aria-invalid", String(Boolean(text)));
      setText(message, text);
      message.hidden = !text;
    },
  };
}

function fileField(option, { chooseFile, dropFile }) {
  const { id, hint } = ids(option);
  const words = optionWords(option);
  const name = element("span", { class: "file-name" });
  const choose = element(
    "button",
    { type: "button", id, "aria-describedby": hint, on: { click: chooseFile } },
    "Choose…",
  );
  const drop = element("button", { type: "button", on: { click: dropFile } }, "Use the standard one");
  const node = element(
    "div",
    { class: "field", role: "group", "aria-label": words.label },
    element("div", { class: "row" }, element("span", {}, words.label), choose),
    name,
    element("p", { class: "hint", id: hint }, words.hint),
    drop,
  );
  return {
    node,
    focus: () => choose.focus(),
    show({ enabled, file }) {
      setText(name, file ? file.name : "");
      name.hidden = !file;
      drop.hidden = !file;
      choose.disabled = !enabled;
      node.hidden = !enabled;
    },
  };
}
