import { announce, showError } from "../dom/announce.js";
import { byId, setText } from "../dom/element.js";
import { stopJob } from "../run/commands.js";
import { isEnded } from "../state/selectors.js";
import { jobProgress } from "../text/format.js";

const QUARTER = 25;

/**
 * The line at the foot of the panel that tells what runs, and what screen readers hear of it.
 *
 * @param {Object} store
 */
export function connectActivity(store) {
  byId("activity-stop").addEventListener("click", () => stopJob(byId("activity-stop").dataset.job));
  const told = new Map();
  let first = true;
  store.watch(
    (state) => [state.server.jobs, state.connection],
    ([jobs, connection]) => {
      const running = jobs.find((job) => job.state === "running" || job.state === "writing") ?? null;
      draw(running, jobs.filter((job) => job.state === "waiting").length);
      for (const job of jobs) {
        const words = spoken(job);
        if (words !== told.get(job.id) && !first) {
          tell(job, words);
        }
        told.set(job.id, words);
      }
      first = first && connection !== "live";
    },
  );
}

function tell(job, words) {
  if (job.state === "failed") {
    showError(words);
  } else {
    announce(words);
  }
}

function draw(job, waiting) {
  byId("activity").hidden = job === null;
  if (job === null) {
    return;
  }
  setText(byId("activity-name"), `${job.kind === "preview" ? "Preview of " : ""}${job.name}`);
  setText(byId("activity-text"), jobProgress(job) + (waiting > 0 ? `; ${waiting} more in the queue` : ""));
  byId("activity-bar").value = job.state === "writing" ? 100 : job.percent;
  byId("activity-stop").dataset.job = job.id;
}

/**
 * What is said of a job: its state, and every quarter of its way.
 *
 * @param {Object} job
 * @returns {string}
 */
export function spoken(job) {
  const what = job.kind === "preview" ? `Preview of ${job.name}` : job.name;
  if (job.state === "running") {
    const quarters = Math.floor(job.percent / QUARTER) * QUARTER;
    return quarters > 0 ? `${what}: ${quarters} percent` : `${what}: running`;
  }
  if (!isEnded(job)) {
    return `${what}: ${job.state}`;
  }
  const warnings = job.warnings === 1 ? ", with a warning" : job.warnings > 1 ? `, with ${job.warnings} warnings` : "";
  return job.state === "failed" ? `${what}: failed. ${job.error ?? ""}` : `${what}: ${job.state}${warnings}`;
}
