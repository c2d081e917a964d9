// Brings the style of our elements into shadow trees that are written in the page's HTML, where no
// script makes them and an extension's style sheets do not reach. The others are element.js's.
'use strict';
if (self.origin !== 'null') {
  /** @type {CSSStyleSheet | undefined} */
  let sheet;

  /**
   * @param {Element} element
   * @returns {ShadowRoot | null} also a closed one
   */
  function rootOf(element) {
    if (!(element instanceof HTMLElement)) return null;
    return chrome.dom ? chrome.dom.openOrClosedShadowRoot(element) : element.openOrClosedShadowRoot ?? null;
  }

  /** @param {ShadowRoot} root */
  function adopt(root) {
    // Firefox takes only sheets of the page's own window, and only from the page's side of a root.
    const own = window.wrappedJSObject ?? window;
    const target = root.wrappedJSObject ?? root;
    if (!sheet) {
      sheet = /** @type {CSSStyleSheet} */ (new own.CSSStyleSheet());
      sheet.replaceSync(CONFIG.style);
    }
    target.adoptedStyleSheets.push(sheet);
  }

  const known = new WeakSet();
  const observer = new MutationObserver((records) => {
    for (const { addedNodes } of records) {
      for (const node of addedNodes) {
        if (node instanceof Element) visit(node);
      }
    }
  });

  /** @param {Document | ShadowRoot} tree */
  function watch(tree) {
    observer.observe(tree, { childList: true, subtree: true });
    for (const element of tree.querySelectorAll('*')) enter(element);
  }

  /** @param {Element} element */
  function enter(element) {
    const root = rootOf(element);
    if (!root || known.has(root)) return;
    known.add(root);
    adopt(root);
    watch(root);
  }

  /** @param {Element} element */
  function visit(element) {
    enter(element);
    for (const below of element.querySelectorAll('*')) enter(below);
  }

  watch(document);
  // An element whose shadow tree had not been parsed when it was added.
  document.addEventListener('DOMContentLoaded', () => watch(document), { once: true });
}
