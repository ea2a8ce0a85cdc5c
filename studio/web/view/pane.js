import { element } from "../dom/element.js";
import { LayerStack } from "./layer-stack.js";
import { makeViewer, point, rectangle } from "./openseadragon.js";
import { keepOnGrid } from "./pixel-grid.js";
import { isWhole, nextScale } from "./scales.js";

const PAN_PART = 0.15;
const NEAR = 1e-3;

/** One viewer of OpenSeadragon with its layers. Coordinates are pixels of the whole image. */
export class Pane {
  /**
   * @param {HTMLElement} cell of the layout; the viewer takes its whole screen pixels
   * @param {number} tileSize
   * @param {string} label of what is shown, for screen readers
   * @param {function(): void} changed called when layers have been loaded, shown or taken away
   */
  constructor(cell, tileSize, label, changed) {
    this.cell = cell;
    this.container = element("div", { class: "pane-view" });
    cell.append(this.container);
    keepOnGrid(cell, this.container);
    this.viewer = makeViewer({
      element: this.container,
      drawer: "canvas",
      showNavigationControl: false,
      prefixUrl: "/vendor/",
      maxImageCacheCount: 700,
      imageLoaderLimit: 6,
      maxTilesPerFrame: 6,
      maxZoomPixelRatio: 32,
      minZoomImageRatio: 0.5,
      visibilityRatio: 0.2,
      preserveImageSizeOnResize: true,
      animationTime: matchMedia("(prefers-reduced-motion: reduce)").matches ? 0 : 0.35,
      springStiffness: 9,
      gestureSettingsMouse: { clickToZoom: false, dblClickToZoom: true, flickEnabled: false },
      timeout: 120000,
      // A connection that the server closes while it idles may take a request with it.
      tileRetryMax: 4,
      tileRetryDelay: 300,
    });
    this.stack = new LayerStack(this.viewer, tileSize, changed);
    this.image = null;
    this.label(label);
    // The page has keys of its own, which a screen reader's user finds in the list of shortcuts.
    this.viewer.addHandler("canvas-key", (event) => {
      event.preventDefaultAction = true;
      event.preventVerticalPan = true;
      event.preventHorizontalPan = true;
    });
    this.viewer.addHandler("viewport-change", () => this.sharpen());
    this.viewer.addHandler("animation-finish", () => this.snap());
    // Between tiles that lie next to each other on whole screen pixels there is no seam to be covered, and
    // making them larger for that would move their pixels.
    this.viewer.drawer.minimumOverlapRequired = () => !this.isOnGrid();
    this.viewer.world.addHandler("add-item", () => this.placeFirst());
  }

  label(text) {
    const canvas = this.viewer.canvas;
    canvas.setAttribute("role", "application");
    canvas.setAttribute("aria-roledescription", "image viewer");
    canvas.setAttribute("aria-label", text);
  }

  /**
   * Shows layers of an image; another image than before is shown whole.
   *
   * @param {Object} image
   * @param {import("./scene.js").SceneLayer[]} layers
   */
  show(image, layers) {
    const key = `${image.id} ${image.source_revision} ${image.width} ${image.height}`;
    if (this.image?.key !== key) {
      this.stack.clear();
      this.unplaced = this.image?.id !== image.id;
      this.image = { key, id: image.id, width: image.width, height: image.height };
    }
    this.stack.show(layers, image.width);
  }

  /** Takes everything away. */
  clear() {
    this.image = null;
    this.stack.clear();
  }

  // The viewer knows where an image lies only when its first layer is there.
  placeFirst() {
    if (this.unplaced) {
      this.unplaced = false;
      if (this.pendingView) {
        this.follow(this.pendingView);
      } else {
        this.fit(true);
      }
    }
  }

  /** Screen pixels for each pixel of the image, at the end of a running animation or now. */
  scale(now = true) {
    const zoom = this.viewer.viewport.getZoom(now);
    return (zoom * this.viewer.viewport.getContainerSize().x) / this.image.width;
  }

  /** Shows pixels as pixels from 1:1 on. */
  sharpen() {
    if (this.image) {
      const smooth = this.scale() * devicePixelRatio < 0.999;
      if (smooth !== this.smooth) {
        this.smooth = smooth;
        this.viewer.drawer.setImageSmoothingEnabled(smooth);
      }
    }
  }

  /** How far the image's corner is from a whole screen pixel, in screen pixels, right and down. */
  offGrid() {
    const corner = this.viewer.viewport.pixelFromPoint(point(0, 0), true).times(devicePixelRatio);
    return point(Math.round(corner.x) - corner.x, Math.round(corner.y) - corner.y);
  }

  /** Whether each pixel of the image is shown as a square of whole screen pixels. */
  isOnGrid() {
    if (!this.image || !isWhole(this.scale() * devicePixelRatio)) {
      return false;
    }
    const { x, y } = this.offGrid();
    return Math.max(Math.abs(x), Math.abs(y)) < NEAR;
  }

  /** Moves the image by less than a pixel, so that {@link isOnGrid} holds where the scale allows it. */
  snap() {
    if (this.image && isWhole(this.scale() * devicePixelRatio) && !this.isOnGrid()) {
      const { viewport } = this.viewer;
      viewport.panBy(viewport.deltaPointsFromPixels(this.offGrid().divide(-devicePixelRatio), true), true);
    }
  }

  fit(immediately = false) {
    if (this.image) {
      const { width, height } = this.image;
      this.viewer.viewport.fitBounds(rectangle(0, 0, 1, height / width), immediately);
    }
  }

  oneToOne() {
    this.zoomTo(1 / devicePixelRatio);
  }

  zoomTo(scale) {
    if (this.image) {
      const { viewport } = this.viewer;
      viewport.zoomTo((scale * this.image.width) / viewport.getContainerSize().x);
      viewport.applyConstraints();
    }
  }

  zoomIn() {
    if (this.image) {
      this.zoomTo(nextScale(this.scale(false) * devicePixelRatio, 1) / devicePixelRatio);
    }
  }

  zoomOut() {
    if (this.image) {
      this.zoomTo(nextScale(this.scale(false) * devicePixelRatio, -1) / devicePixelRatio);
    }
  }

  /**
   * Moves the view.
   *
   * @param {number} right -1, 0 or 1
   * @param {number} down -1, 0 or 1
   */
  pan(right, down) {
    if (this.image) {
      const bounds = this.viewer.viewport.getBounds();
      const step = point(right * bounds.width * PAN_PART, down * bounds.height * PAN_PART);
      this.viewer.viewport.panBy(step);
      this.viewer.viewport.applyConstraints();
    }
  }

  /** The part of the plane that is in view, in pixels of the image; may reach beyond it. */
  bounds() {
    const { x, y, width, height } = this.viewer.viewport.getBounds(true);
    const { width: unit } = this.image;
    return { x: x * unit, y: y * unit, width: width * unit, height: height * unit };
  }

  /**
   * Where a point of the pane lies.
   *
   * @param {number} x pixels from the pane's left edge
   * @param {number} y pixels from its upper edge
   * @returns {{x: number, y: number}} in pixels of the image, with fractions
   */
  imagePoint(x, y) {
    const { x: across, y: down } = this.viewer.viewport.pointFromPixel(point(x, y), true);
    return { x: across * this.image.width, y: down * this.image.width };
  }

  hasView({ center, scale }) {
    const { viewport } = this.viewer;
    const apart = viewport.deltaPixelsFromPoints(viewport.getCenter(true).minus(center), true);
    const isNear = Math.max(Math.abs(apart.x), Math.abs(apart.y)) < 1 / devicePixelRatio;
    return isNear && Math.abs(scale / this.scale() - 1) < 1e-9;
  }

  /** Centre and scale, for {@link follow}. */
  view() {
    const { viewport } = this.viewer;
    return { center: viewport.getCenter(true), scale: this.scale() };
  }

  /**
   * Takes the view of another pane; to be less than a screen pixel aside is no difference.
   *
   * @param {{center: Object, scale: number}} view
   */
  follow(view) {
    this.pendingView = view;
    if (this.image && !this.unplaced && !this.hasView(view)) {
      const { viewport } = this.viewer;
      viewport.zoomTo((view.scale * this.image.width) / viewport.getContainerSize().x, null, true);
      viewport.panTo(view.center, true);
    }
  }
}
