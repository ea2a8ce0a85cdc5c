import { request } from "../remote/client.js";
import { byId, setText } from "../dom/element.js";
import { currentImage, stretchOf } from "../state/selectors.js";
import { columnHeights, histogramSummary } from "../view/histogram-shape.js";

const COLOURS = { 1: ["#c9ced6"], 3: ["#ff7b72", "#7ee787", "#79b8ff"] };
const BINS = 256;

/**
 * The histogram of the source as it is shown.
 *
 * @param {Object} store
 */
export function connectHistogram(store) {
  let asked = null;
  store.watch(
    (state) => {
      const image = currentImage(state);
      // With another revision the same address tells of other pixels.
      return image?.state === "ready" ? [address(state, image), image.source_revision] : [null];
    },
    async ([path]) => {
      asked?.abort();
      asked = new AbortController();
      byId("histogram").hidden = path === null;
      if (path === null) {
        setText(byId("histogram-text"), "");
        return;
      }
      try {
        draw(await request("GET", path, undefined, asked.signal));
      } catch (error) {
        if (error.name !== "AbortError") {
          setText(byId("histogram-text"), error.message);
        }
      }
    },
  );
}

function address(state, image) {
  const { on, shadows, background } = stretchOf(state, image);
  const stretch = on ? `&stretch=1&shadows=${shadows}&background=${background}` : "";
  return `/api/images/${image.id}/histogram?layer=source&bins=${BINS}${stretch}`;
}

function draw({ channels, sampled }) {
  const canvas = byId("histogram");
  const { width, height } = canvas;
  const context = canvas.getContext("2d");
  context.clearRect(0, 0, width, height);
  context.globalCompositeOperation = "screen";
  columnHeights(channels).forEach((heights, index) => {
    context.fillStyle = COLOURS[channels.length]?.[index] ?? COLOURS[1][0];
    context.globalAlpha = channels.length === 1 ? 0.9 : 0.62;
    context.beginPath();
    context.moveTo(0, height);
    heights.forEach((part, bin) => {
      const x = (bin * width) / heights.length;
      context.lineTo(x, height - part * (height - 2));
      context.lineTo(x + width / heights.length, height - part * (height - 2));
    });
    context.lineTo(width, height);
    context.fill();
  });
  const summary = histogramSummary(channels);
  canvas.setAttribute("aria-label", `Histogram. ${summary}`);
  setText(byId("histogram-text"), summary + (sampled ? " Counted on a grid of samples." : ""));
}
