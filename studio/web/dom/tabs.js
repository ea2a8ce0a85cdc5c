/**
 * Makes a tab list work by mouse and keyboard: arrows, Home and End move, as the ARIA pattern for tabs has it.
 *
 * @param {HTMLElement} list with role="tablist" and buttons with role="tab" and aria-controls
 * @param {function(string): void} choose called with the id of the tab that a person asked for
 * @returns {function(string): void} shows the tab with an id
 */
export function connectTabs(list, choose) {
  const tabs = [...list.querySelectorAll("[role=tab]")];
  list.addEventListener("click", (event) => {
    const tab = event.target.closest("[role=tab]");
    if (tab) {
      choose(tab.id);
    }
  });
  list.addEventListener("keydown", (event) => {
    const next = tabAfter(tabs, event);
    if (next) {
      event.preventDefault();
      choose(next.id);
      next.focus();
    }
  });
  return (id) => {
    for (const tab of tabs) {
      const chosen = tab.id === id;
      tab.setAttribute("aria-selected", String(chosen));
      tab.tabIndex = chosen ? 0 : -1;
      document.getElementById(tab.getAttribute("aria-controls")).hidden = !chosen;
    }
  };
}

function tabAfter(tabs, event) {
  const at = tabs.indexOf(event.target.closest("[role=tab]"));
  switch (event.key) {
    case "ArrowRight":
      return tabs[(at + 1) % tabs.length];
    case "ArrowLeft":
      return tabs[(at + tabs.length - 1) % tabs.length];
    case "Home":
      return tabs[0];
    case "End":
      return tabs[tabs.length - 1];
    default:
      return null;
  }
}
