import { announce } from "../dom/announce.js";
import { byId, element } from "../dom/element.js";
import { showOpenDialog } from "../open/open-dialog.js";
import { showNextImage } from "../open/opening.js";
import { changeAmount } from "../panels/blend-panel.js";
import { toggleStretch } from "../panels/view-panel.js";
import { startPreview, startRuns } from "../run/commands.js";
import { chooseMode, look, remember } from "../state/actions.js";
import { currentImage, hasAfter } from "../state/selectors.js";
import { MODES } from "../view/modes.js";
import { blink, viewCommand } from "../view/toolbar.js";

const SPLIT_STEP = 0.02;

/**
 * The page's keys. Letters, digits and signs can be switched off for those who dictate; they never count while a
 * text is typed or a dialog is open.
 *
 * @param {Object} store
 * @param {import("../view/stage.js").Stage} stage
 * @param {{sayMiddle: function(): void}} readout
 */
export function connectShortcuts(store, stage, readout) {
  const shortcuts = list(store, stage, readout);
  const byKey = new Map(shortcuts.flatMap((one) => one.keys.map((key) => [key, one])));
  drawList(shortcuts);
  byId("shortcuts-open").addEventListener("click", () => byId("shortcuts").showModal());
  connectSwitch(store);
  document.addEventListener("keydown", (event) => {
    const shortcut = byKey.get(event.key);
    if (shortcut && counts(event, shortcut, store, stage)) {
      event.preventDefault();
      shortcut.act();
    }
  });
}

function counts(event, { key, inImage }, store, stage) {
  if (event.defaultPrevented || event.ctrlKey || event.altKey || event.metaKey) {
    return false;
  }
  if (document.querySelector("dialog[open]") || isTyping(event.target)) {
    return false;
  }
  if (inImage) {
    return stage.root.contains(event.target) && event.target !== stage.slider;
  }
  return store.get().remembered.letterKeys || key === "?";
}

function isTyping(target) {
  return target.matches("textarea, select, input:not([type=checkbox], [type=radio], [type=range])");
}

function list(store, stage, readout) {
  const view = (act) => () => viewCommand(stage, act);
  const moved = (act) => () => {
    viewCommand(stage, act);
    readout.sayMiddle();
  };
  const mode = (one) => ({
    keys: [one.key],
    shown: one.key,
    text: one.label,
    act: () => {
      if (!one.needsAfter || hasAfter(currentImage(store.get()))) {
        chooseMode(store, one.id);
        announce(one.label);
      }
    },
  });
  const split = (step) => () =>
    look(store, { split: Math.min(1, Math.max(0, store.get().view.split + step * SPLIT_STEP)) });
  const run = () => {
    const image = currentImage(store.get());
    if (image?.state === "ready") {
      startRuns(store, [image.file]);
    }
  };
  return [
    { keys: ["o", "O"], shown: "O", text: "Open images", act: () => showOpenDialog(store) },
    { keys: ["p", "P"], shown: "P", text: "Preview the visible part", act: () => startPreview(store, stage) },
    { keys: ["R"], shown: "Shift R", text: "Remove the stars from the whole image", act: run },
    { keys: ["b", "B"], shown: "B", text: "Blink: the other of before and after", act: () => blink(store) },
    ...MODES.map(mode),
    { keys: ["s", "S"], shown: "S", text: "Stretch for the eye on or off", act: () => toggleStretch(store) },
    { keys: ["["], shown: "[", text: "Move the comparison slider left", act: split(-1) },
    { keys: ["]"], shown: "]", text: "Move the comparison slider right", act: split(1) },
    { keys: [","], shown: ",", text: "Fewer stars in the blend", act: () => changeAmount(store, -5) },
    { keys: ["."], shown: ".", text: "More stars in the blend", act: () => changeAmount(store, 5) },
    { keys: ["+", "="], shown: "+", text: "Zoom in", act: view((pane) => pane.zoomIn()) },
    { keys: ["-"], shown: "−", text: "Zoom out", act: view((pane) => pane.zoomOut()) },
    { keys: ["f", "F", "0"], shown: "F", text: "Show the whole image", act: view((pane) => pane.fit()) },
    { keys: ["z", "Z"], shown: "Z", text: "One screen pixel for each pixel", act: view((pane) => pane.oneToOne()) },
    { keys: ["v", "V"], shown: "V", text: "Say the value in the middle of the view", act: () => readout.sayMiddle() },
    { keys: ["n"], shown: "N", text: "Next image", act: () => showNextImage(store, 1) },
    { keys: ["N"], shown: "Shift N", text: "Image before", act: () => showNextImage(store, -1) },
    { keys: ["ArrowLeft"], shown: "←", text: "In the image: move left", inImage: true, act: moved((pane) => pane.pan(-1, 0)) },
    { keys: ["ArrowRight"], shown: "→", text: "In the image: move right", inImage: true, act: moved((pane) => pane.pan(1, 0)) },
    { keys: ["ArrowUp"], shown: "↑", text: "In the image: move up", inImage: true, act: moved((pane) => pane.pan(0, -1)) },
    { keys: ["ArrowDown"], shown: "↓", text: "In the image: move down", inImage: true, act: moved((pane) => pane.pan(0, 1)) },
    { keys: ["?"], shown: "?", text: "This list", key: "?", act: () => byId("shortcuts").showModal() },
  ];
}

function drawList(shortcuts) {
  byId("shortcut-list").replaceChildren(
    ...shortcuts.flatMap(({ shown, text }) => [
      element("div", {}, element("dt", {}, element("kbd", {}, shown)), element("dd", {}, text)),
    ]),
  );
}

function connectSwitch(store) {
  const box = byId("letter-keys");
  box.addEventListener("change", () => remember(store, { letterKeys: box.checked }));
  store.watch(
    (state) => state.remembered.letterKeys,
    (on) => {
      box.checked = on;
    },
  );
}
