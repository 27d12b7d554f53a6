// The first script of every web view's document (a sandboxed frame): it runs the program's
// script calls, answers the page's pings, and reports loads, links, forms and keys to the
// page that holds the frame. The frame can only post messages: it has no cookie, and the
// program's page forwards nothing but what is listed there.
(() => {
  'use strict';
  const post = (m) => parent.postMessage(m, '*');
  // A navigation the program should see: its own schemes ("rivotap://", "rivolog://"), or a
  // link the user followed ('link').
  window.rivoSignal = (url, navigation) =>
    post({ rivo: 'navigate', url: String(url), navigation: navigation === 'link' ? 'link' : 'other' });
  window.rivoGesture = (gesture) => post({ rivo: 'gesture', gesture });

  window.addEventListener('message', (e) => {
    if (e.source !== parent || !e.data || typeof e.data !== 'object') return;
    const m = e.data;
    if (m.rivo === 'eval') {
      let result = '';
      try {
        const v = (0, eval)(m.script);
        result = v === undefined || v === null ? '' : String(v);
      } catch (err) {
        result = '';
      }
      if (m.call) post({ rivo: 'result', call: m.call, result });
    } else if (m.rivo === 'ping') {
      post({ rivo: 'pong', seq: m.seq });
    } else if (m.rivo === 'inputFocus') {
      // The page's own text field holds the input (a typed answer).
      window.rivoInputFocused = !!m.on;
    }
  });

  // Links never load here: the program decides what they do.
  document.addEventListener('click', (e) => {
    const a = e.target.closest && e.target.closest('a[href]');
    if (!a) return;
    const href = a.getAttribute('href');
    if (href.startsWith('#')) return;
    e.preventDefault();
    window.rivoSignal(href, 'link');
  }, true);
  document.addEventListener('submit', (e) => { e.preventDefault(); }, true);

  // Keys reach the page's shortcuts, unless a field in the frame takes them.
  document.addEventListener('keydown', (e) => {
    if (e.ctrlKey || e.metaKey || e.altKey) return;
    if (e.target.closest && e.target.closest('input, textarea, select, [contenteditable=""], [contenteditable="true"]')) return;
    if (window.rivoKeys && window.rivoKeys.includes(e.key)) e.preventDefault();
    post({ rivo: 'key', key: e.key });
  });
  window.addEventListener('load', () => post({ rivo: 'loaded' }));
})();
