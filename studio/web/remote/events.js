import { request } from "./client.js";

const NAMES = ["state", "image", "image_closed", "job", "job_removed", "message", "program"];
const RETRY_MS = 1500;

/**
 * Listens to what changes on the server for as long as the page is open, and connects again when the
 * server has gone away and come back.
 *
 * @param {function(string, Object): void} receive called with the name of each event and its data
 * @param {function("live"|"lost"|"refused"): void} connection called when it changes: "lost" while the server
 *   does not answer, "refused" where it was started again and knows this page no more
 */
export function listen(receive, connection) {
  const events = new EventSource("/api/events");
  for (const name of NAMES) {
    events.addEventListener(name, (event) => {
      receive(name, JSON.parse(event.data));
      if (name === "state") {
        connection("live");
      }
    });
  }
  events.addEventListener("error", async () => {
    connection("lost");
    // The browser itself connects again unless the server answered with an error.
    if (events.readyState === EventSource.CLOSED) {
      if (await isRefused()) {
        connection("refused");
      } else {
        setTimeout(() => listen(receive, connection), RETRY_MS);
      }
    }
  });
}

async function isRefused() {
  try {
    await request("GET", "/api/state");
    return false;
  } catch (error) {
    return error.status === 403;
  }
}
