/**
 * Changes what is remembered between two starts.
 *
 * @param {Object} store
 * @param {Object} change members of `remembered`
 */
export function remember(store, change) {
  store.update((state) => ({ ...state, remembered: { ...state.remembered, ...change } }));
}

/**
 * Changes what is looked at, and how.
 *
 * @param {Object} store
 * @param {Object} change members of `view`
 */
export function look(store, change) {
  store.update((state) => ({ ...state, view: { ...state.view, ...change } }));
}

/**
 * Chooses a way to compare.
 *
 * @param {Object} store
 * @param {string} mode of view/modes.js
 */
export function chooseMode(store, mode) {
  remember(store, { mode });
  look(store, { other: false });
}
