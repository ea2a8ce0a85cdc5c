import { tileSource } from "../remote/tiles.js";
import { rightOf } from "./area.js";
import { rectangle } from "./openseadragon.js";

// Tiles that cannot be had must not hold back those that can.
const PATIENCE_MS = 2500;

/**
 * The layers of one viewer. New layers are loaded behind the old ones and take their place together, so
 * that nothing flickers; those whose pixels stay are kept.
 */
export class LayerStack {
  /**
   * @param {Object} viewer of OpenSeadragon
   * @param {number} tileSize
   * @param {function(): void} changed called when {@link isSettled} may have become another
   */
  constructor(viewer, tileSize, changed) {
    this.viewer = viewer;
    this.tileSize = tileSize;
    this.items = new Map(); // by key: {layer, image: TiledImage or null while it is made}
    this.wanted = [];
    this.imageWidth = 1;
    this.splitX = 0;
    this.deadline = 0;
    this.changed = changed;
  }

  /**
   * Shows these layers, the first one below.
   *
   * @param {import("./scene.js").SceneLayer[]} layers
   * @param {number} imageWidth of the whole image, in pixels: the width 1 of the viewer's coordinates
   */
  show(layers, imageWidth) {
    this.wanted = layers;
    this.imageWidth = imageWidth;
    const keys = new Set(layers.map((layer) => layer.key));
    for (const [key, item] of this.items) {
      if (!keys.has(key) && !this.isVisible(item)) {
        this.remove(key);
      }
    }
    for (const layer of layers) {
      if (!this.items.has(layer.key)) {
        this.add(layer);
      }
    }
    this.deadline = performance.now() + PATIENCE_MS;
    this.exchangeWhenLoaded();
  }

  /**
   * Moves the edge from which on clipped layers are shown.
   *
   * @param {number} x in pixels of the image
   */
  clipAt(x) {
    this.splitX = x;
    for (const item of this.items.values()) {
      this.clip(item);
    }
  }

  /** Takes all layers away. */
  clear() {
    this.wanted = [];
    for (const key of [...this.items.keys()]) {
      this.remove(key);
    }
  }

  /** @returns {boolean} whether everything that is to be seen is loaded and shown */
  isSettled() {
    return (
      this.wanted.length > 0 &&
      this.wanted.every((layer) => {
        const item = this.items.get(layer.key);
        return item?.image && (layer.opacity === 0 || (this.isVisible(item) && item.image.getFullyLoaded()));
      }) &&
      this.items.size === this.wanted.length
    );
  }

  isVisible(item) {
    return item.image !== null && item.image.getOpacity() > 0;
  }

  add(layer) {
    const item = { layer, image: null };
    this.items.set(layer.key, item);
    this.viewer.addTiledImage({
      tileSource: tileSource(layer.base, layer.query, layer.size, this.tileSize),
      x: layer.place.x / this.imageWidth,
      y: layer.place.y / this.imageWidth,
      width: layer.place.width / this.imageWidth,
      opacity: 0,
      preload: true,
      compositeOperation: layer.screen ? "screen" : null,
      success: ({ item: image }) => {
        if (this.items.get(layer.key) !== item) {
          this.viewer.world.removeItem(image);
          return;
        }
        item.image = image;
        image.addHandler("fully-loaded-change", () => this.exchangeWhenLoaded());
        this.exchangeWhenLoaded();
      },
    });
  }

  remove(key) {
    const { image } = this.items.get(key);
    this.items.delete(key);
    if (image) {
      this.viewer.world.removeItem(image);
    }
  }

  exchangeWhenLoaded() {
    clearTimeout(this.timer);
    this.changed();
    const made = this.wanted.every((layer) => this.items.get(layer.key)?.image);
    if (!made) {
      return;
    }
    const shown = [...this.items.values()].some((item) => this.isVisible(item));
    const loaded = this.wanted.every(
      (layer) => layer.opacity === 0 || this.items.get(layer.key).image.getFullyLoaded(),
    );
    const left = this.deadline - performance.now();
    if (loaded || !shown || left <= 0) {
      this.exchange();
    } else {
      this.timer = setTimeout(() => this.exchangeWhenLoaded(), left);
    }
  }

  exchange() {
    const keys = new Set(this.wanted.map((layer) => layer.key));
    for (const key of [...this.items.keys()]) {
      if (!keys.has(key)) {
        this.remove(key);
      }
    }
    this.wanted.forEach((layer, index) => {
      const item = this.items.get(layer.key);
      item.layer = layer;
      if (this.viewer.world.getIndexOfItem(item.image) !== index) {
        this.viewer.world.setItemIndex(item.image, index);
      }
      if (item.image.getOpacity() !== layer.opacity) {
        item.image.setOpacity(layer.opacity);
      }
      this.clip(item);
    });
    this.changed();
  }

  clip({ layer, image }) {
    if (!image) {
      return;
    }
    if (!layer.clipped) {
      if (image.getClip()) {
        image.setClip(null);
      }
      return;
    }
    const { x, y, width, height } = rightOf(this.splitX, layer.place, layer.size);
    image.setClip(rectangle(x, y, width, height));
  }
}
