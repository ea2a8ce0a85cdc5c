import { announce } from "../dom/announce.js";
import { byId, element, setText } from "../dom/element.js";
import { chooseMode, look } from "../state/actions.js";
import { currentImage, hasAfter } from "../state/selectors.js";
import { scaleText } from "../text/format.js";
import { MODES } from "./modes.js";
import { shownMode } from "./scene.js";

/**
 * The ways to compare and the buttons for the view.
 *
 * @param {Object} store
 * @param {import("./stage.js").Stage} stage
 */
export function connectToolbar(store, stage) {
  const radios = MODES.map((mode) => modeRadio(store, mode));
  byId("modes").append(...radios.map(({ label }) => label));
  store.watch(
    (state) => [state.remembered.mode, hasAfter(currentImage(state))],
    ([mode, comparable]) => {
      for (const { input, mode: own } of radios) {
        input.disabled = own.needsAfter && !comparable;
        input.checked = own.id === (comparable ? mode : "source");
      }
      byId("blink").disabled = !comparable;
      byId("compare-note").hidden = comparable;
    },
  );
  store.watch(
    (state) => state.view.other,
    (other) => byId("blink").setAttribute("aria-pressed", String(other)),
  );
  store.watch(
    (state) => [state.view.scale, currentImage(state)?.state],
    ([scale, state]) => setText(byId("scale"), state === "ready" && scale > 0 ? scaleText(scale) : ""),
  );
  byId("blink").addEventListener("click", () => blink(store));
  const command = (id, act) => byId(id).addEventListener("click", () => viewCommand(stage, act));
  command("zoom-in", (pane) => pane.zoomIn());
  command("zoom-out", (pane) => pane.zoomOut());
  command("fit", (pane) => pane.fit());
  command("one-to-one", (pane) => pane.oneToOne());
}

/**
 * Changes the view of the image, where there is one.
 *
 * @param {import("./stage.js").Stage} stage
 * @param {function(import("./pane.js").Pane): void} act
 */
export function viewCommand(stage, act) {
  if (stage.hasImage()) {
    stage.lead();
    act(stage.pane);
  }
}

/**
 * Shows the other of before and after; once more goes back.
 *
 * @param {Object} store
 */
export function blink(store) {
  const image = currentImage(store.get());
  if (hasAfter(image)) {
    look(store, { other: !store.get().view.other });
    announce(shownMode(store.get(), image) === "source" ? "Original" : "Without stars");
  }
}

function modeRadio(store, mode) {
  const input = element("input", {
    type: "radio",
    name: "mode",
    value: mode.id,
    on: { change: () => chooseMode(store, mode.id) },
  });
  const label = element(
    "label",
    { class: "segment", title: `${mode.label} (${mode.key})` },
    input,
    element("span", {}, mode.label),
  );
  return { input, label, mode };
}
