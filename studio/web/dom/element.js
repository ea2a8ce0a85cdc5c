/**
 * Makes an element.
 *
 * @param {string} tag its name, such as "button"
 * @param {Object<string, *>} [properties] attributes by name; "class" and "dataset" as in HTML, "on" an
 *   object of event listeners. null, undefined and false are left out, true is the attribute without a value.
 * @param {...(Node|string|number|null|false|undefined)} children texts and elements, in order
 * @returns {HTMLElement} the element, not yet in the page
 */
export function element(tag, properties = {}, ...children) {
  const made = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    setProperty(made, name, value);
  }
  made.append(...children.filter((child) => child !== null && child !== undefined && child !== false));
  return made;
}

function setProperty(target, name, value) {
  if (name === "on") {
    for (const [event, listener] of Object.entries(value)) {
      target.addEventListener(event, listener);
    }
  } else if (name === "dataset") {
    Object.assign(target.dataset, value);
  } else if (value === true) {
    target.setAttribute(name, "");
  } else if (value !== null && value !== undefined && value !== false) {
    target.setAttribute(name, value);
  }
}

/**
 * The element with an id; the page is broken without it.
 *
 * @param {string} id
 * @returns {HTMLElement}
 */
export function byId(id) {
  const found = document.getElementById(id);
  if (!found) {
    throw new Error(`The page has no element "${id}".`);
  }
  return found;
}

/**
 * Puts other children into an element without touching those that are there already, so that focus
 * and open details survive. Children that are kept are given as the same nodes.
 *
 * @param {Element} parent
 * @param {Node[]} children
 */
export function replaceChildrenInPlace(parent, children) {
  const wanted = new Set(children);
  for (const node of [...parent.childNodes]) {
    if (!wanted.has(node)) {
      node.remove();
    }
  }
  children.forEach((child, index) => {
    if (parent.childNodes[index] !== child) {
      parent.insertBefore(child, parent.childNodes[index] ?? null);
    }
  });
}

/**
 * Sets a text only where it differs, so that nothing is drawn or read out again for nothing.
 *
 * @param {Element} target
 * @param {string} text
 */
export function setText(target, text) {
  if (target.textContent !== text) {
    target.textContent = text;
  }
}
