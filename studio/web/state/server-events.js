import { REMEMBERED } from "./initial.js";

/**
 * What the state becomes with an event of the server.
 *
 * @param {Object} state
 * @param {string} name of the event
 * @param {Object} data of the event
 * @returns {Object} the new state
 */
export function applyServerEvent(state, name, data) {
  const apply = EVENTS[name];
  return apply ? apply(state, data) : state;
}

const EVENTS = {
  state(state, data) {
    const images = data.images.map((image) => withSourceRevision(null, image));
    const { settings, ...server } = data;
    const known = new Set(data.jobs.map((job) => job.id));
    const messages = Object.fromEntries(Object.entries(state.messages).filter(([id]) => known.has(id)));
    const next = { ...state, messages, server: { ...server, images } };
    // Later ones are this page's own, or another window's, and would undo what is being changed here.
    return keepImageInView(state.connection === "connecting" ? withSettings(next, settings) : next);
  },

  image(state, data) {
    const before = state.server.images.find((image) => image.id === data.id) ?? null;
    const images = upsert(state.server.images, withSourceRevision(before, data));
    return keepImageInView(withServer(state, { images }));
  },

  image_closed(state, data) {
    const images = state.server.images.filter((image) => image.id !== data.id);
    return keepImageInView(withServer(state, { images }));
  },

  job(state, data) {
    return withServer(state, { jobs: upsert(state.server.jobs, data) });
  },

  job_removed(state, data) {
    const messages = { ...state.messages };
    delete messages[data.id];
    const jobs = state.server.jobs.filter((job) => job.id !== data.id);
    return withServer({ ...state, messages }, { jobs });
  },

  message(state, data) {
    const before = state.messages[data.job] ?? [];
    return { ...state, messages: { ...state.messages, [data.job]: [...before, data.message] } };
  },

  program(state, data) {
    return withServer(state, { program: data });
  },
};

function withServer(state, change) {
  return { ...state, server: { ...state.server, ...change } };
}

// Settings of another version of the page may lack members, have others or hold them in another type.
function withSettings(state, settings) {
  const remembered = { ...REMEMBERED };
  for (const [name, standard] of Object.entries(REMEMBERED)) {
    const value = settings?.[name];
    if (value !== null && typeof value === typeof standard && Array.isArray(value) === Array.isArray(standard)) {
      remembered[name] = value;
    }
  }
  const same = JSON.stringify(remembered) === JSON.stringify(state.remembered);
  return same ? state : { ...state, remembered };
}

function upsert(list, item) {
  const at = list.findIndex((other) => other.id === item.id);
  return at < 0 ? [...list, item] : list.map((other, index) => (index === at ? item : other));
}

/**
 * An image with `source_revision`, which changes only when its file has been read again, while the server's
 * `revision` counts results too: tiles of the source need not be loaded again for a preview.
 */
function withSourceRevision(before, image) {
  if (image.state !== "ready") {
    return image;
  }
  const unchanged = before !== null && before.state === "ready";
  return { ...image, source_revision: unchanged ? before.source_revision : image.revision };
}

// The image in view is one that is open: the last one where the former is closed.
function keepImageInView(state) {
  const { images } = state.server;
  if (images.some((image) => image.id === state.view.image)) {
    return state;
  }
  const image = images.length > 0 ? images[images.length - 1].id : null;
  return { ...state, view: { ...state.view, image, other: false } };
}
