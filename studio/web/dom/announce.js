import { byId } from "./element.js";

/**
 * Says something to screen readers when they have finished what they are saying.
 *
 * @param {string} text
 */
export function announce(text) {
  byId("announcements").textContent = text;
}

/**
 * Shows an error to everybody, and says it to screen readers at once. It stays until it is dismissed or
 * another one takes its place.
 *
 * @param {string} text for the person, as the server or the program has worded it
 */
export function showError(text) {
  byId("error-text").textContent = text;
  byId("error").hidden = false;
}

/** Takes the error away. */
export function hideError() {
  byId("error").hidden = true;
  byId("error-text").textContent = "";
}
