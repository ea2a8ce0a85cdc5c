import { request } from "../remote/client.js";
import { byId, element, setText } from "../dom/element.js";
import { tryIt } from "../run/commands.js";
import { look } from "../state/actions.js";
import { closeImage } from "./opening.js";

/**
 * The open images in the head of the page.
 *
 * @param {Object} store
 */
export function connectImageStrip(store) {
  store.watch(
    (state) => [state.server.images, state.view.image, state.uploads],
    ([images, current, uploads]) => {
      const hadFocus = document.activeElement?.closest?.("#images") ? document.activeElement.dataset.image : null;
      byId("images").replaceChildren(
        ...images.map((image) => tab(store, image, image.id === current)),
        ...uploads.map(({ name, text }) => element("li", { class: "uploading" }, `${name}: ${text}`)),
      );
      if (hadFocus) {
        byId("images").querySelector(`[data-image="${CSS.escape(hadFocus)}"]`)?.focus();
      }
      setTitle(images.find((image) => image.id === current));
    },
  );
  byId("reload").addEventListener("click", () =>
    tryIt(() => request("POST", `/api/images/${store.get().view.image}/reload`, {})),
  );
  byId("damaged-close").addEventListener("click", () => closeImage(store.get().view.image));
}

function tab(store, image, current) {
  const show = element(
    "button",
    {
      type: "button",
      class: "image-name",
      "aria-current": current ? "true" : null,
      title: image.shown_path,
      dataset: { image: image.id, state: image.state },
      on: { click: () => look(store, { image: image.id, other: false }) },
    },
    image.name,
  );
  const close = element(
    "button",
    { type: "button", class: "image-close", "aria-label": `Close ${image.name}`, on: { click: () => closeImage(image.id) } },
    "×",
  );
  return element("li", { class: current ? "current" : null }, show, close);
}

function setTitle(image) {
  const title = image ? `${image.name} – nebulex2 studio` : "nebulex2 studio";
  if (document.title !== title) {
    document.title = title;
  }
  setText(byId("reading-name"), image?.name ?? "");
}
