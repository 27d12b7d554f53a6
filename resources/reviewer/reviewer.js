// The review page's side of the card contract: the `rivo` object the program calls, the
// tap zones, swipes and pinches it reports, and `latexError`. Runs inside the card frame.
'use strict';

window.rivoKeys = [' ', 'Enter', '1', '2', '3', '4', 'r'];

window.rivo = (() => {
  let tapReady = true;
  let readyTimer = null;
  let errors = 0;

  // Taps that come right after new content belong to the old one.
  function markTapUnready() {
    tapReady = false;
    errors = 0;
    clearTimeout(readyTimer);
    readyTimer = setTimeout(() => { tapReady = true; }, 250);
  }

  // Setting innerHTML doesn't run scripts: each is replaced by a fresh copy, which runs. One
  // that throws is logged and the others still run.
  function runScripts() {
    for (const old of document.querySelectorAll('#qa script')) {
      const fresh = document.createElement('script');
      for (const a of old.attributes) fresh.setAttribute(a.name, a.value);
      fresh.text = old.text;
      old.replaceWith(fresh);
    }
  }

  // The typed answer's field belongs to the screen, outside the card: nothing to prepare.
  function setupType() {}

  // 1 fits pictures to the width, 0 shows them at their own size.
  function resizeImages(shrink) {
    document.documentElement.classList.toggle('natural-images', !shrink);
  }

  function log(text) {
    if (errors++ < 5) window.rivoSignal('rivolog://card/' + encodeURIComponent(String(text).slice(0, 300)));
  }

  return { markTapUnready, runScripts, setupType, resizeImages, log };
})();

// The picture of a LaTeX expression that was never made on a computer.
window.latexError = function latexError(img) {
  const note = document.createElement('span');
  note.className = 'latex-missing';
  note.textContent = 'LaTeX';
  note.title = 'The picture of this expression is missing: ' + img.getAttribute('src');
  img.replaceWith(note);
};

window.addEventListener('error', (e) => { window.rivo.log(e.message || 'error'); });

// The program's text scale: the page's text-size adjustment does nothing on a desktop, so
// setting it scales the card instead.
(() => {
  const style = document.documentElement.style;
  const apply = (value) => {
    const scale = parseFloat(value) / 100;
    if (scale > 0) style.setProperty('--rivo-text-scale', String(scale));
  };
  const install = () => {
    let current = '100%';
    Object.defineProperty(document.body.style, 'webkitTextSizeAdjust', {
      configurable: true,
      get() { return current; },
      set(value) { current = String(value); apply(current); },
    });
  };
  if (document.body) install();
  else document.addEventListener('DOMContentLoaded', install);
})();

// Taps: nine zones, three rows by three columns of the frame.
(() => {
  let typingAtPress = false;
  document.addEventListener('pointerdown', () => { typingAtPress = !!window.rivoInputFocused; }, true);
  document.addEventListener('click', (e) => {
    if (e.defaultPrevented || e.button !== 0) return;
    if (e.target.closest('a, button, input, textarea, select, label, summary, video, audio, [onclick], [contenteditable]')) return;
    // The tap that takes the input away from the typed answer only does that.
    if (typingAtPress) { typingAtPress = false; return; }
    if (String(window.getSelection()).length) return;
    const col = e.clientX < innerWidth / 3 ? 'Left' : e.clientX < (2 * innerWidth) / 3 ? 'Center' : 'Right';
    const row = e.clientY < innerHeight / 3 ? 'top' : e.clientY < (2 * innerHeight) / 3 ? 'mid' : 'bottom';
    window.rivoSignal('rivotap://' + row + col);
  });
})();

// Swipes with one finger and pinches with two; a trackpad's pinch arrives as a wheel with Ctrl.
(() => {
  let swipe = null;
  let pinch = null;
  const distance = (t) => Math.hypot(t[0].clientX - t[1].clientX, t[0].clientY - t[1].clientY);
  const sendPinch = (velocity) => {
    const now = performance.now();
    if (pinch && now - pinch.sent < 100) return;
    if (pinch) pinch.sent = now;
    window.rivoGesture({ kind: 'pinch', velocity });
  };
  document.addEventListener('touchstart', (e) => {
    if (e.touches.length === 1) {
      const t = e.touches[0];
      swipe = { x: t.clientX, y: t.clientY, time: performance.now() };
    } else if (e.touches.length === 2) {
      swipe = null;
      pinch = { start: distance(e.touches), last: distance(e.touches), time: performance.now(), sent: 0 };
    }
  }, { passive: true });
  document.addEventListener('touchmove', (e) => {
    if (!pinch || e.touches.length !== 2) return;
    e.preventDefault();
    const now = performance.now();
    const d = distance(e.touches);
    const seconds = Math.max((now - pinch.time) / 1000, 0.001);
    const velocity = (d - pinch.last) / pinch.start / seconds;
    pinch.last = d;
    pinch.time = now;
    sendPinch(velocity);
  }, { passive: false });
  document.addEventListener('touchend', (e) => {
    if (e.touches.length < 2) pinch = null;
    if (!swipe || !e.changedTouches.length) return;
    const t = e.changedTouches[0];
    const dx = t.clientX - swipe.x, dy = t.clientY - swipe.y;
    const quick = performance.now() - swipe.time < 700;
    const start = swipe;
    swipe = null;
    if (!quick || Math.max(Math.abs(dx), Math.abs(dy)) < 50) return;
    let direction = null;
    if (Math.abs(dx) > 2 * Math.abs(dy)) direction = dx > 0 ? 'right' : 'left';
    else if (Math.abs(dy) > 2 * Math.abs(dx)) direction = dy > 0 ? 'down' : 'up';
    if (direction) window.rivoGesture({ kind: 'swipe', direction, x: start.x, width: innerWidth });
  });
  document.addEventListener('wheel', (e) => {
    if (!e.ctrlKey) return;
    e.preventDefault();
    if (!pinch) pinch = { sent: 0 };
    sendPinch(e.deltaY > 0 ? -1 : 1);
    clearTimeout(pinch.timer);
    pinch.timer = setTimeout(() => { pinch = null; }, 300);
  }, { passive: false });
})();
