import { element } from "../dom/element.js";
import { rectangle } from "./openseadragon.js";

/** The outline of the previewed part in the image. */
export class PreviewFrame {
  /**
   * @param {import("./pane.js").Pane} pane
   */
  constructor(pane) {
    this.pane = pane;
    this.outline = element("div", { class: "preview-frame", "aria-hidden": "true" });
    this.shown = "";
  }

  /**
   * @param {Object|null} image that is ready, or none
   */
  draw(image) {
    const preview = image?.preview ?? null;
    const shown = preview && preview.state !== "failed" ? JSON.stringify([image.id, preview.job, preview.state]) : "";
    if (shown === this.shown) {
      return;
    }
    this.shown = shown;
    const { viewer } = this.pane;
    viewer.removeOverlay(this.outline);
    if (shown) {
      this.outline.dataset.state = preview.state;
      const { x, y, width, height } = preview;
      const unit = image.width;
      viewer.addOverlay({
        element: this.outline,
        location: rectangle(x / unit, y / unit, width / unit, height / unit),
      });
    }
  }
}
