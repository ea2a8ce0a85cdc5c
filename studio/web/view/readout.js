import { request } from "../remote/client.js";
import { announce } from "../dom/announce.js";
import { byId, setText } from "../dom/element.js";
import { currentImage } from "../state/selectors.js";
import { sample } from "../text/format.js";

/**
 * The value under the pointer, or in the middle of the view for those who use the keyboard.
 *
 * @param {Object} store
 * @param {import("./stage.js").Stage} stage
 * @returns {{sayMiddle: function(): void}}
 */
export function connectReadout(store, stage) {
  const root = byId("stage");
  let next = null;
  let asking = false;

  async function ask() {
    if (asking || !next) {
      return;
    }
    asking = true;
    const { image, x, y, then } = next;
    next = null;
    try {
      const value = await request("GET", `/api/images/${image}/value?x=${x}&y=${y}`);
      show(value);
      then?.(value);
    } catch {
      clear(); // what is wrong is said elsewhere; a value that is not known is no value
    } finally {
      asking = false;
      ask();
    }
  }

  function at(pane, x, y, then) {
    const image = currentImage(store.get());
    if (image?.state !== "ready" || !pane?.image) {
      return;
    }
    const point = pane.imagePoint(x, y);
    const column = Math.floor(point.x);
    const row = Math.floor(point.y);
    if (column < 0 || row < 0 || column >= image.width || row >= image.height) {
      next = null;
      clear();
      return;
    }
    next = { image: image.id, x: column, y: row, then };
    ask();
  }

  root.addEventListener("pointermove", (event) => {
    const pane = stage.panes.find((one) => one.container.contains(event.target));
    if (pane) {
      const box = pane.container.getBoundingClientRect();
      root.dataset.crosshair = "false";
      // The middle of the screen's pixel: its edge may be another pixel of the image.
      const half = 0.5 / devicePixelRatio;
      at(pane, event.clientX - box.left + half, event.clientY - box.top + half);
    }
  });
  root.addEventListener("pointerleave", () => {
    next = null;
    clear();
  });

  return {
    sayMiddle() {
      if (stage.hasImage()) {
        root.dataset.crosshair = "true";
        const { clientWidth, clientHeight } = stage.pane.container;
        at(stage.pane, clientWidth / 2, clientHeight / 2, (value) => announce(sentence(value)));
      }
    },
  };
}

function show(value) {
  setText(byId("position"), `x ${value.x}  y ${value.y}`);
  setText(byId("value"), stored(value.source, value.unit));
  setText(byId("value-starless"), value.starless ? `starless ${stored(value.starless, value.unit)}` : "");
  setText(byId("sky"), value.sky ? `RA ${value.sky.ra}  Dec ${value.sky.dec}  ${value.sky.frame}` : "");
}

function clear() {
  for (const id of ["position", "value", "value-starless", "sky"]) {
    setText(byId(id), "");
  }
}

function stored({ stored: samples }, unit) {
  const names = samples.length === 3 ? ["R ", "G ", "B "] : [""];
  return samples.map((one, index) => names[index] + sample(one)).join("  ") + (unit ? ` ${unit}` : "");
}

function sentence(value) {
  const sky = value.sky ? `, right ascension ${value.sky.ra}, declination ${value.sky.dec}` : "";
  return `Column ${value.x}, row ${value.y}: ${stored(value.source, value.unit)}${sky}`;
}
