/**
 * The options in an order to read: first those that others require, each followed by these, then the rest as the
 * program lists them, files last.
 *
 * @param {Object[]} options
 * @returns {Object[]}
 */
export function inReadingOrder(options) {
  const names = new Set(options.map((option) => option.name));
  const free = options.filter((option) => !names.has(option.requires));
  const after = (name) => options.filter((option) => option.requires === name && option.name !== name);
  const rank = (option) => (after(option.name).length > 0 ? 0 : option.type === "path" ? 2 : 1);
  const ranked = [0, 1, 2].flatMap((wanted) => free.filter((option) => rank(option) === wanted));
  return ranked.flatMap((option) => [option, ...after(option.name)]);
}
