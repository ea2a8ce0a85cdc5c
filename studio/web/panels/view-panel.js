import { byId, setText } from "../dom/element.js";
import { look, remember } from "../state/actions.js";
import { currentImage, hasAfter, stretchOf } from "../state/selectors.js";
import { count } from "../text/format.js";
import { connectHistogram } from "./histogram.js";

/**
 * How the image is shown: the stretch for the eye, the brightening of differences, the histogram.
 *
 * @param {Object} store
 */
export function connectViewPanel(store) {
  connectStretch(store);
  connectGain(store);
  connectFacts(store);
  connectHistogram(store);
}

/**
 * Switches the stretch of the image in view.
 *
 * @param {Object} store
 */
export function toggleStretch(store) {
  const state = store.get();
  const image = currentImage(state);
  if (image?.state === "ready") {
    const on = !stretchOf(state, image).on;
    look(store, { stretchOn: { ...state.view.stretchOn, [image.id]: on } });
  }
}

function connectStretch(store) {
  const box = byId("stretch");
  box.addEventListener("change", () => toggleStretch(store));
  connectRange(store, "shadows", (value) => value.toFixed(1));
  connectRange(store, "background", (value) => value.toFixed(2));
  byId("stretch-reset").addEventListener("click", () => remember(store, { shadows: -2.8, background: 0.25 }));
  store.watch(
    (state) => [currentImage(state), state.view.stretchOn],
    ([image]) => {
      const ready = image?.state === "ready";
      const on = ready && stretchOf(store.get(), image).on;
      box.disabled = !ready;
      box.checked = on;
      byId("stretch-settings").disabled = !on;
    },
  );
}

function connectGain(store) {
  const range = byId("gain");
  // Equal steps of the slider are equal factors.
  range.addEventListener("input", () => remember(store, { gain: Math.round(2 ** Number(range.value)) }));
  store.watch(
    (state) => state.remembered.gain,
    (gain) => {
      if (Math.round(2 ** Number(range.value)) !== gain) {
        range.value = String(Math.log2(gain));
      }
      range.setAttribute("aria-valuetext", `${gain} times`);
      setText(byId("gain-value"), `${gain} ×`);
    },
  );
}

const PAUSE_MS = 120;

// Each step asks for other tiles: only where the hand rests for a moment are they worth it.
function connectRange(store, name, words) {
  const range = byId(name);
  let timer = 0;
  range.addEventListener("input", () => {
    const value = Number(range.value);
    setText(byId(`${name}-value`), words(value));
    clearTimeout(timer);
    timer = setTimeout(() => remember(store, { [name]: value }), PAUSE_MS);
  });
  store.watch(
    (state) => state.remembered[name],
    (value) => {
      range.value = String(value);
      setText(byId(`${name}-value`), words(value));
    },
  );
}

function connectFacts(store) {
  store.watch(currentImage, (image) => {
    const ready = image?.state === "ready";
    byId("facts").hidden = !ready;
    if (!ready) {
      return;
    }
    setText(byId("fact-name"), image.shown_path);
    setText(byId("fact-size"), `${count(image.width)} × ${count(image.height)} pixels, ${colours(image)}`);
    setText(byId("fact-format"), `${image.format}, ${image.stored_type}${image.unit ? `, ${image.unit}` : ""}`);
    setText(byId("fact-warnings"), image.warnings.join("\n"));
    byId("fact-warnings").hidden = image.warnings.length === 0;
    byId("changed").hidden = !image.changed_on_disk;
  });
  store.watch(
    (state) => hasAfter(currentImage(state)),
    (comparable) => {
      byId("gain").disabled = !comparable;
    },
  );
}

function colours(image) {
  return image.grayscale ? "grey" : "colour";
}
