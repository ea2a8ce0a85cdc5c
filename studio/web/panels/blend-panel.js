import { announce } from "../dom/announce.js";
import { byId, element, setText } from "../dom/element.js";
import { openFiles } from "../open/opening.js";
import { askingToReplace, tryIt } from "../run/commands.js";
import { look, remember } from "../state/actions.js";
import { currentImage, hasAfter } from "../state/selectors.js";
import { percent, stem } from "../text/format.js";

// How long a slider has to rest until the exact blend is asked for.
const REST_MS = 350;

/**
 * How many stars come back, and saving.
 *
 * @param {Object} store
 */
export function connectBlendPanel(store) {
  connectAmount(store);
  connectCurve(store);
  connectNote(store);
  connectSave(store);
}

/**
 * Changes the amount of stars by steps of a hundredth.
 *
 * @param {Object} store
 * @param {number} steps
 */
export function changeAmount(store, steps) {
  if (hasAfter(currentImage(store.get()))) {
    const { amount } = store.get().remembered;
    setAmount(store, Math.min(100, Math.max(0, Math.round(amount * 100) + steps)) / 100);
  }
}

let resting = 0;

function setAmount(store, amount) {
  remember(store, { amount, mode: "blend" });
  look(store, { rested: false, other: false });
  clearTimeout(resting);
  resting = setTimeout(() => look(store, { rested: true }), REST_MS);
}

function connectAmount(store) {
  const range = byId("amount");
  range.addEventListener("input", () => setAmount(store, Number(range.value) / 100));
  store.watch(
    (state) => state.remembered.amount,
    (amount) => {
      range.value = String(Math.round(amount * 100));
      range.setAttribute("aria-valuetext", `${percent(amount)} of the stars`);
      setText(byId("amount-value"), percent(amount));
    },
  );
}

/**
 * What a curve does, in words.
 *
 * @param {number} curve exponent of the layer
 * @returns {string}
 */
export function curveWords(curve) {
  if (Math.abs(curve - 1) < 0.01) {
    return "as they are";
  }
  return `${curve > 1 ? "held back" : "lifted"}, exponent ${curve.toFixed(2)}`;
}

// To the right faint stars get brighter: equal steps divide the exponent by equal factors.
function curveAt(position) {
  return Math.min(4, Math.max(0.25, Number((2 ** -position).toFixed(3))));
}

function connectCurve(store) {
  const range = byId("curve");
  let timer = 0;
  range.addEventListener("input", () => {
    const curve = curveAt(Number(range.value));
    setText(byId("curve-value"), curveWords(curve));
    range.setAttribute("aria-valuetext", curveWords(curve));
    clearTimeout(timer);
    timer = setTimeout(() => {
      remember(store, { curve, mode: "blend" });
      look(store, { rested: true, other: false });
    }, REST_MS / 2);
  });
  byId("curve-reset").addEventListener("click", () => remember(store, { curve: 1 }));
  store.watch(
    (state) => state.remembered.curve,
    (curve) => {
      if (curveAt(Number(range.value)) !== curve) {
        range.value = String(-Math.log2(curve));
      }
      range.setAttribute("aria-valuetext", curveWords(curve));
      setText(byId("curve-value"), curveWords(curve));
    },
  );
}

function connectNote(store) {
  store.watch(
    (state) => {
      const image = currentImage(state);
      return [hasAfter(image), Boolean(image?.result), state.view.rested, state.remembered.mode];
    },
    ([comparable, whole, rested, mode]) => {
      byId("amount").disabled = !comparable;
      byId("curve").disabled = !comparable;
      byId("curve-reset").disabled = !comparable;
      byId("save").disabled = !whole;
      setText(byId("blend-note"), blendNote(comparable, whole, rested, mode));
    },
  );
}

function blendNote(comparable, whole, rested, mode) {
  if (!comparable) {
    return "Remove the stars first, or preview a part: then choose here how many of them come back.";
  }
  if (mode === "blend") {
    const exact = rested ? "What you see is what is saved" : "While the slider moves, a quick blend is shown";
    return whole ? `${exact}.` : `${exact}. Saving needs a run over the whole image.`;
  }
  return whole
    ? "Move a slider to see the blend."
    : "Move a slider to see the blend. Saving needs a run over the whole image.";
}

function connectSave(store) {
  const name = byId("save-name");
  const format = byId("save-format");
  let of = null;
  store.watch(currentImage, (image) => {
    if (image?.state === "ready" && image.id !== of) {
      of = image.id;
      name.value = `${stem(image.name)}_blend`;
      format.value = image.format === "FITS" ? "fits" : "tif";
    }
  });
  byId("save-form").addEventListener("submit", (event) => {
    event.preventDefault();
    save(store, name.value.trim(), format.value);
  });
  store.watch((state) => state.saved, (saved) => drawSaved(store, saved));
}

async function save(store, name, format) {
  const state = store.get();
  const image = currentImage(state);
  if (!image?.result) {
    return;
  }
  const { amount, curve } = state.remembered;
  const button = byId("save");
  button.setAttribute("aria-busy", "true");
  const answer = await tryIt(() =>
    askingToReplace(`/api/images/${image.id}/save`, { amount, curve, format, name }),
  );
  button.removeAttribute("aria-busy");
  if (answer) {
    store.update((before) => ({ ...before, saved: { image: image.id, file: answer.file } }));
    announce(`Saved as ${answer.file.name}.`);
  }
}

function drawSaved(store, saved) {
  const place = byId("saved");
  place.hidden = !saved;
  place.replaceChildren();
  if (saved) {
    place.append(`Saved as `, element("span", { class: "path" }, saved.file.shown_path));
    if (saved.file.file) {
      place.append(
        " ",
        element(
          "button",
          { type: "button", class: "link", on: { click: () => openFiles(store, [saved.file.file]) } },
          "Open it",
        ),
      );
    }
  }
}
