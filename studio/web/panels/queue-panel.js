import { request } from "../remote/client.js";
import { byId, element, replaceChildrenInPlace, setText } from "../dom/element.js";
import { openFiles } from "../open/opening.js";
import { stopJob, tryIt } from "../run/commands.js";
import { isEnded } from "../state/selectors.js";
import { jobProgress } from "../text/format.js";
import { messageView } from "./messages.js";

/**
 * The queue: what runs, what waits, what has ended.
 *
 * @param {Object} store
 */
export function connectQueuePanel(store) {
  const cards = new Map();
  store.watch(
    (state) => [state.server.jobs, state.messages],
    ([jobs, messages]) => {
      const shown = inQueueOrder(jobs.filter((job) => job.kind !== "preview"));
      const known = new Set(shown.map((job) => job.id));
      for (const id of [...cards.keys()]) {
        if (!known.has(id)) {
          cards.delete(id);
        }
      }
      const nodes = shown.map((job) => {
        if (!cards.has(job.id)) {
          cards.set(job.id, jobCard(store, job.id));
        }
        const card = cards.get(job.id);
        card.show(job, messages[job.id]);
        return card.node;
      });
      replaceChildrenInPlace(byId("jobs"), nodes);
      byId("jobs-empty").hidden = shown.length > 0;
      byId("jobs-clear").hidden = !shown.some(isEnded);
      drawBadge(shown);
    },
  );
  byId("jobs-clear").addEventListener("click", () => tryIt(() => request("POST", "/api/jobs/clear", {})));
  fetchMissingMessages(store);
}

/**
 * What runs and waits in its order, then what has ended, the last first.
 *
 * @param {Object[]} jobs oldest first
 * @returns {Object[]}
 */
export function inQueueOrder(jobs) {
  return [...jobs.filter((job) => !isEnded(job)), ...jobs.filter(isEnded).reverse()];
}

function drawBadge(jobs) {
  const open = jobs.filter((job) => !isEnded(job)).length;
  const badge = byId("queue-count");
  badge.hidden = open === 0;
  setText(badge, String(open));
  badge.setAttribute("aria-label", `${open} not done`);
}

function jobCard(store, id) {
  const title = element("h3", { class: "job-name" });
  const state = element("p", { class: "job-state" });
  const bar = element("progress", { max: "100", "aria-label": "Progress" });
  const messages = element("ul", { class: "messages" });
  const error = element("p", { class: "fault" });
  const details = element("details", {}, element("summary", {}, "More of the program's message"));
  const detailText = element("p", { class: "small" });
  details.append(detailText);
  const notes = element("ul", { class: "notes" });
  const files = element("ul", { class: "files" });
  const stop = element("button", { type: "button", on: { click: () => stopJob(id) } }, "Stop");
  const remove = element(
    "button",
    { type: "button", on: { click: () => tryIt(() => request("DELETE", `/api/jobs/${id}`)) } },
    "Remove from list",
  );
  const open = element("button", { type: "button" }, "Show");
  const node = element(
    "li",
    { class: "job", dataset: { job: id } },
    title,
    state,
    bar,
    error,
    details,
    messages,
    notes,
    files,
    element("div", { class: "buttons" }, open, stop, remove),
  );
  const showMessages = messageView(messages);
  let lastFiles = null;
  open.addEventListener("click", () => openFiles(store, [open.dataset.file]));

  return {
    node,
    show(job, records) {
      node.dataset.state = job.state;
      setText(title, job.name);
      setText(state, job.kind === "save" ? `Saving: ${jobProgress(job)}` : jobProgress(job));
      const ended = isEnded(job);
      bar.hidden = ended;
      bar.value = job.state === "writing" ? 100 : job.percent;
      bar.setAttribute("aria-label", `Progress of ${job.name}`);
      setText(error, job.error ?? "");
      error.hidden = !job.error;
      setText(detailText, job.error_details ?? "");
      details.hidden = !job.error_details;
      stop.hidden = ended;
      stop.setAttribute("aria-label", `Stop ${job.name}`);
      remove.hidden = !ended;
      remove.setAttribute("aria-label", `Remove from list: ${job.name}`);
      open.dataset.file = job.file ?? "";
      open.hidden = !job.file;
      open.setAttribute("aria-label", `Show ${job.name}`);
      showMessages(records);
      notes.replaceChildren(...job.notes.map((note) => element("li", {}, note)));
      if (lastFiles !== JSON.stringify(job.files)) {
        lastFiles = JSON.stringify(job.files);
        files.replaceChildren(...job.files.filter((file) => file.kept).map(fileItem));
      }
    },
  };
}

function fileItem(file) {
  return element(
    "li",
    {},
    element("span", { class: "path" }, file.shown_path),
    " ",
    element("a", { href: file.download, download: file.name, "aria-label": `Download ${file.name}` }, "Download"),
  );
}

/** Warnings of runs that came before this page was opened, or while it was not connected. */
function fetchMissingMessages(store) {
  const asked = new Set();
  store.watch(
    (state) => [state.server.jobs, state.connection],
    async ([jobs, connection]) => {
      if (connection !== "live") {
        asked.clear();
        return;
      }
      for (const job of jobs) {
        const known = store.get().messages[job.id] ?? [];
        const warnings = known.filter((message) => message.kind === "warning").length;
        if (isEnded(job) && (job.warnings > warnings || (job.state === "failed" && known.length === 0))) {
          fetchMessages(store, job.id, asked);
        }
      }
    },
  );
}

async function fetchMessages(store, id, asked) {
  if (asked.has(id)) {
    return;
  }
  asked.add(id);
  try {
    const { messages } = await request("GET", `/api/jobs/${id}`);
    store.update((state) => ({ ...state, messages: { ...state.messages, [id]: messages } }));
  } catch {
    asked.delete(id); // removed in the meantime, or asked again after the next connection
  }
}
