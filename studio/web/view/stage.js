import { byId, setText } from "../dom/element.js";
import { look } from "../state/actions.js";
import { currentImage } from "../state/selectors.js";
import { visibleArea } from "./area.js";
import { Pane } from "./pane.js";
import { PreviewFrame } from "./preview-frame.js";
import { sceneOf } from "./scene.js";

/** Where images are seen: one pane, or two of the same view, and the slider over them. */
export class Stage {
  /**
   * @param {Object} store
   */
  constructor(store) {
    this.store = store;
    this.root = byId("stage");
    this.panes = [];
    this.leader = null;
    this.slider = byId("split");
    this.frame = null;
    this.slider.addEventListener("input", () => look(store, { split: Number(this.slider.value) / 1000 }));
    store.watch(
      ({ remembered, view, ...state }) => [
        currentImage({ view, ...state }),
        ...[remembered.mode, remembered.shadows, remembered.background],
        ...[remembered.gain, remembered.amount, remembered.curve],
        ...[view.other, view.rested, view.stretchOn],
      ],
      () => this.draw(),
    );
    store.watch(
      (state) => state.view.split,
      () => this.drawSplit(),
    );
  }

  /** The pane that commands go to. */
  get pane() {
    return this.panes[0];
  }

  /** @returns {boolean} whether an image is in view */
  hasImage() {
    return Boolean(this.pane?.image);
  }

  /** @returns {{x: number, y: number, width: number, height: number}|null} what is visible, in its pixels */
  visibleArea() {
    return this.hasImage() ? visibleArea(this.pane.bounds(), this.pane.image) : null;
  }

  /** Tells whether something that is to be seen is still on its way. */
  drawBusy() {
    const shown = this.panes.filter((pane) => !pane.cell.hidden && pane.image);
    const busy = shown.some((pane) => !pane.stack.isSettled());
    this.root.setAttribute("aria-busy", String(busy));
  }

  draw() {
    const state = this.store.get();
    const image = currentImage(state);
    const ready = image?.state === "ready";
    this.root.dataset.state = image?.state ?? "empty";
    this.drawEmptiness(image);
    const scene = ready ? sceneOf(state, image) : { panes: [], split: false, labels: [] };
    if (!ready) {
      this.panes.forEach((pane) => pane.clear());
    }
    this.root.dataset.panes = String(scene.panes.length);
    scene.panes.forEach((layers, index) => this.drawPane(index, image, layers, scene.labels));
    this.panes.slice(Math.max(1, scene.panes.length)).forEach((pane) => {
      pane.cell.hidden = true;
      pane.clear();
    });
    this.drawLabels(scene);
    byId("split-line").hidden = !scene.split;
    this.slider.hidden = !scene.split;
    this.drawSplit();
    this.frame?.draw(ready ? image : null);
  }

  drawEmptiness(image) {
    byId("empty").hidden = image !== null;
    byId("reading").hidden = image?.state !== "reading";
    byId("damaged").hidden = image?.state !== "failed";
    setText(byId("reading-name"), image?.name ?? "");
    setText(byId("damaged-name"), image?.name ?? "");
    setText(byId("damaged-text"), image?.error ?? "");
  }

  drawPane(index, image, layers, labels) {
    const label = `${image.name}: ${labels.join(" and ")}. Arrow keys move, plus and minus zoom.`;
    if (!this.panes[index]) {
      this.addPane(index, image.tile_size, label);
    }
    const pane = this.panes[index];
    pane.cell.hidden = false;
    pane.label(label);
    if (index > 0 && !pane.image) {
      pane.pendingView = this.pane.view();
    }
    pane.show(image, layers);
  }

  addPane(index, tileSize, label) {
    const cell = byId(index === 0 ? "pane-first" : "pane-second");
    cell.hidden = false;
    const pane = new Pane(cell, tileSize, label, () => this.drawBusy());
    this.panes[index] = pane;
    const lead = () => {
      this.leader = pane;
    };
    this.leader ??= pane;
    for (const event of ["pointerdown", "wheel", "focusin", "pointerenter"]) {
      cell.addEventListener(event, lead, { capture: true, passive: true });
    }
    for (const event of ["viewport-change", "resize", "animation-finish"]) {
      pane.viewer.addHandler(event, () => this.viewChanged(pane));
    }
    if (index === 0) {
      this.frame = new PreviewFrame(pane);
    }
  }

  /** Makes the first pane the one that the other follows, for commands by key and button. */
  lead() {
    this.leader = this.pane;
  }

  viewChanged(pane) {
    if (!pane.image) {
      return;
    }
    // A pane that follows may move by itself as well, when it gets its size.
    for (const other of this.panes) {
      if (other !== this.leader && !other.cell.hidden && this.leader.image) {
        other.follow(this.leader.view());
      }
    }
    if (pane === this.pane) {
      this.moveSplit();
      look(this.store, { scale: pane.scale() * devicePixelRatio });
    }
  }

  drawLabels({ labels }) {
    const two = labels.length === 2;
    setText(byId("label-first"), labels[0] ?? "");
    setText(byId("label-second"), two ? labels[1] : "");
    byId("label-first").hidden = labels.length === 0;
    byId("label-second").hidden = !two;
  }

  drawSplit() {
    const value = String(Math.round(this.store.get().view.split * 1000));
    if (this.slider.value !== value) {
      this.slider.value = value;
    }
    const part = Math.round(Number(value) / 10);
    this.slider.setAttribute("aria-valuetext", `${part} % original, ${100 - part} % starless`);
    byId("split-line").style.insetInlineStart = `${Number(value) / 10}%`;
    this.moveSplit();
  }

  moveSplit() {
    if (this.hasImage()) {
      // From the cell, in which the line is drawn, to the view within it.
      const { cell, container } = this.pane;
      const x = this.store.get().view.split * cell.clientWidth - container.offsetLeft;
      this.pane.stack.clipAt(this.pane.imagePoint(x, 0).x);
    }
  }
}
