import { request } from "../remote/client.js";

const PAUSE_MS = 600;

/**
 * Hands what is to be remembered to the server, a moment after the last change.
 *
 * @param {Object} store
 */
export function rememberSettings(store) {
  let timer = 0;
  let last = null;
  store.watch(
    (state) => [state.remembered, state.connection],
    ([remembered, connection]) => {
      if (connection !== "live") {
        return;
      }
      const text = JSON.stringify(remembered);
      // The first is what the server itself has sent.
      if (last === null || text === last) {
        last = text;
        return;
      }
      last = text;
      clearTimeout(timer);
      timer = setTimeout(() => {
        // A failure is told by the connection's own banner, and the next change tries again.
        request("PUT", "/api/settings", remembered).catch(() => {});
      }, PAUSE_MS);
    },
  );
}
