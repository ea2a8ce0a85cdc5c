/**
 * Holds the page's state in one place and tells who listens when it has changed.
 *
 * @template State
 * @param {State} initial
 * @returns {{get: function(): State, update: function(function(State): State): void,
 *   watch: function(function(State): *, function(*, State): void): void}}
 */
export function createStore(initial) {
  let state = initial;
  let told = true;
  const watchers = [];

  function tell() {
    told = true;
    for (const watcher of watchers) {
      const selected = watcher.select(state);
      if (!isSame(selected, watcher.last)) {
        watcher.last = selected;
        watcher.react(selected, state);
      }
    }
  }

  return {
    get: () => state,

    /** Replaces the state by what `change` makes of it; watchers are told once, after the running script. */
    update(change) {
      const next = change(state);
      if (next !== state) {
        state = next;
        if (told) {
          told = false;
          queueMicrotask(tell);
        }
      }
    },

    /** Calls `react` with what `select` finds, at once and whenever that is no longer the same. */
    watch(select, react) {
      const watcher = { select, react, last: select(state) };
      watchers.push(watcher);
      react(watcher.last, state);
    },
  };
}

/**
 * Whether two selections are the same: identical, or arrays of identical members.
 *
 * @param {*} first
 * @param {*} second
 * @returns {boolean}
 */
export function isSame(first, second) {
  if (Array.isArray(first) && Array.isArray(second)) {
    return first.length === second.length && first.every((member, index) => Object.is(member, second[index]));
  }
  return Object.is(first, second);
}
