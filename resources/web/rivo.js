// The renderer of Rivo's screens. The program sends what to show over one event stream (the
// top screen, the open alerts, the popup, web pages); this page draws it and posts what the
// user did. It keeps no state of its own that the program doesn't know: a reload, or a second
// tab, shows the same thing.
'use strict';

const state = { screen: null, alerts: [], popup: null, web: {} };
const $ = (id) => document.getElementById(id);
let busyScreenEvent = false;  // one screen event in flight at a time: no double actions

// --- Talking to the program ---

async function post(event) {
  try {
    const res = await fetch('/event', {
      method: 'POST',
      headers: { 'Content-Type': 'application/json' },
      body: JSON.stringify(event),
      credentials: 'same-origin',
    });
    return res.status;
  } catch (e) {
    return 0;
  }
}

// A screen event; dropped while the previous one is unanswered or input is frozen.
async function sendScreen(element, id, kind, value) {
  if (!state.screen || busyScreenEvent || frozen()) return;
  busyScreenEvent = true;
  const event = { screen: state.screen.id, element };
  if (id !== undefined) event.id = id;
  if (kind !== undefined) event.kind = kind;
  if (value !== undefined) event.value = value;
  try {
    await post(event);
  } finally {
    busyScreenEvent = false;
  }
}

function frozen() {
  return state.popup !== null && state.popup !== undefined;
}

let failures = 0;
function connect() {
  const source = new EventSource('/events');
  source.addEventListener('open', () => {
    failures = 0;
    $('connection').hidden = true;
  });
  source.addEventListener('error', () => {
    failures += 1;
    const note = $('connection');
    note.textContent = failures > 3 ? 'Rivo isn\u2019t running. Start it again to go on.' : 'Reconnecting\u2026';
    note.hidden = false;
  });
  const on = (name, fn) => source.addEventListener(name, (m) => fn(JSON.parse(m.data)));
  on('state', (s) => {
    state.web = s.web || {};
    setTint(s.tint);
    setScreen(s.screen);
    setAlerts(s.alerts || []);
    setPopup(s.popup);
  });
  on('screen', setScreen);
  on('alerts', setAlerts);
  on('popup', setPopup);
  on('tint', setTint);
  on('web', (page) => {
    state.web[page.id] = page;
    const frame = document.querySelector(`iframe[data-web="${CSS.escape(page.id)}"]`);
    if (frame) loadFrame(frame, page);
  });
  on('webGone', (g) => { delete state.web[g.id]; });
  on('eval', (call) => {
    const frame = document.querySelector(`iframe[data-web="${CSS.escape(call.web)}"]`);
    if (frame && frame.contentWindow) frame.contentWindow.postMessage({ rivo: 'eval', call: call.call, script: call.script }, '*');
  });
}

function setTint(tint) {
  if (tint) document.documentElement.style.setProperty('--tint', tint);
}

// --- Icons ---

const ICONS = {
  back: '<path d="M15 5l-7 7 7 7" fill="none" stroke="currentColor" stroke-width="2.4" stroke-linecap="round" stroke-linejoin="round"/>',
  chevron: '<path d="M9 5l7 7-7 7" fill="none" stroke="currentColor" stroke-width="2.4" stroke-linecap="round" stroke-linejoin="round"/>',
  check: '<path d="M5 12.5l4.5 4.5L19 7.5" fill="none" stroke="currentColor" stroke-width="2.6" stroke-linecap="round" stroke-linejoin="round"/>',
  help: '<circle cx="12" cy="12" r="9.2" fill="none" stroke="currentColor" stroke-width="1.9"/><path d="M9.6 9.4a2.5 2.5 0 1 1 3.6 2.3c-.8.4-1.2.9-1.2 1.8v.4" fill="none" stroke="currentColor" stroke-width="1.9" stroke-linecap="round"/><circle cx="12" cy="17.2" r="1.2" fill="currentColor"/>',
  refresh: '<path d="M19.5 12a7.5 7.5 0 1 1-2.2-5.3M19.5 4.5v4.3h-4.3" fill="none" stroke="currentColor" stroke-width="2" stroke-linecap="round" stroke-linejoin="round"/>',
  add: '<path d="M12 5v14M5 12h14" fill="none" stroke="currentColor" stroke-width="2.2" stroke-linecap="round"/>',
  import: '<path d="M12 4v10M8 10.5l4 4 4-4" fill="none" stroke="currentColor" stroke-width="2" stroke-linecap="round" stroke-linejoin="round"/><path d="M4.5 14.5v3a2 2 0 0 0 2 2h11a2 2 0 0 0 2-2v-3" fill="none" stroke="currentColor" stroke-width="2" stroke-linecap="round"/>',
  trash: '<path d="M5 7h14M10 7V5h4v2M7 7l1 12h8l1-12" fill="none" stroke="currentColor" stroke-width="1.9" stroke-linecap="round" stroke-linejoin="round"/>',
};
function icon(name) {
  const svg = document.createElementNS('http://www.w3.org/2000/svg', 'svg');
  svg.setAttribute('viewBox', '0 0 24 24');
  svg.setAttribute('aria-hidden', 'true');
  svg.innerHTML = ICONS[name] || '';
  return svg;
}

function el(tag, className, text) {
  const node = document.createElement(tag);
  if (className) node.className = className;
  if (text !== undefined) node.textContent = text;
  return node;
}

// --- Screens ---

function barButton(b, onClick) {
  const button = el('button', 'bar-button');
  button.type = 'button';
  button.dataset.button = b.id;
  button.title = b.title;
  button.setAttribute('aria-label', b.title);
  if (b.icon && ICONS[b.icon]) button.append(icon(b.icon));
  button.append(el('span', 'label' + (b.icon ? ' optional' : ''), b.title));
  button.disabled = b.enabled === false;
  button.addEventListener('click', onClick);
  return button;
}

// A button with `accept` chooses a file and sends it; the program hands it to the screen.
function toolbarButton(b) {
  if (!b.accept) return [barButton(b, () => sendScreen('button', b.id))];
  const input = el('input');
  input.type = 'file';
  input.accept = b.accept;
  input.hidden = true;
  input.dataset.upload = b.id;
  input.addEventListener('change', () => {
    const file = input.files[0];
    input.value = '';
    if (file) upload(b.id, file);
  });
  return [barButton(b, () => { if (!frozen()) input.click(); }), input];
}

async function upload(button, file) {
  if (!state.screen || frozen()) return;
  const query = new URLSearchParams({ screen: state.screen.id, button, name: file.name });
  try {
    // The body is the file itself, streamed by the browser; progress comes back as the spinner.
    await fetch('/upload?' + query, {
      method: 'POST',
      headers: { 'Content-Type': 'application/octet-stream' },
      body: file,
      credentials: 'same-origin',
    });
  } catch (e) {
    // The program tells every tab what went wrong, if it heard of the upload at all.
  }
}

function setScreen(screen) {
  const previous = state.screen;
  state.screen = screen;
  if (!screen) return;
  const sameScreen = previous && previous.id === screen.id;
  const focused = document.activeElement && document.activeElement.closest('.row');
  const focusId = sameScreen && focused ? focused.dataset.id : null;
  const scroll = sameScreen ? window.scrollY : 0;

  document.title = screen.title ? `${screen.title} \u2013 Rivo` : 'Rivo';
  const left = $('nav-left');
  left.replaceChildren();
  if (screen.back) {
    const back = barButton({ id: 'back', title: screen.back, icon: 'back' }, () => sendScreen('back'));
    back.classList.add('back');
    back.querySelector('.label').classList.remove('optional');
    left.append(back);
  }
  for (const b of screen.left || []) left.append(barButton(b, () => sendScreen('button', b.id)));
  const right = $('nav-right');
  right.replaceChildren(...(screen.right || []).map((b) => barButton(b, () => sendScreen('button', b.id))));
  const title = $('title');
  title.replaceChildren();
  if (screen.titleIsButton) {
    const t = el('button', '', screen.title);
    t.type = 'button';
    t.id = 'title-button';
    t.addEventListener('click', () => sendScreen('title'));
    title.append(t);
  } else {
    title.textContent = screen.title || '';
  }
  $('toolbar').replaceChildren(...(screen.toolbar || []).flatMap(toolbarButton));

  const content = $('content');
  if (screen.webView) {
    renderWeb(content, screen.webView);
  } else {
    content.replaceChildren(...renderTable(screen));
  }
  window.scrollTo(0, scroll);
  if (focusId !== null) {
    const row = [...content.querySelectorAll('.row')].find((r) => r.dataset.id === focusId);
    if (row) row.focus({ preventScroll: true });
  } else if (!sameScreen) {
    const first = content.querySelector('.row');
    if (first && matchMedia('(hover: hover)').matches) first.focus({ preventScroll: true });
  }
}

function renderTable(screen) {
  const out = [];
  const sections = screen.sections || [];
  // Rows of a tree keep their text in line whether or not they have a branch to open.
  const tree = sections.some((s) => s.rows.some((r) => r.accessory === 'expanded' || r.accessory === 'collapsed'));
  if (!sections.some((s) => s.rows.length) && screen.emptyText) out.push(el('p', 'empty', screen.emptyText));
  for (const section of sections) {
    const group = el('section', 'group');
    if (section.title) group.append(el('h2', 'group-title', section.title));
    const list = el('ul', 'rows');
    list.setAttribute('role', 'list');
    for (const row of section.rows) list.append(renderRow(row, tree));
    if (section.rows.length) group.append(list);
    if (section.footer) group.append(el('p', 'group-footer', section.footer));
    out.push(group);
  }
  return out;
}

function renderRow(row, tree) {
  const li = el('li', 'row');
  li.dataset.id = row.id;
  li.tabIndex = -1;
  li.style.setProperty('--indent', row.indent || 0);
  if (row.tone) li.classList.add('tone-' + row.tone);
  const selectable = row.selectable !== false;
  if (!selectable) li.classList.add('static');
  const hasTree = row.accessory === 'expanded' || row.accessory === 'collapsed';
  if (hasTree) {
    const toggle = el('button', 'toggle');
    toggle.type = 'button';
    toggle.tabIndex = -1;
    toggle.setAttribute('aria-expanded', row.accessory === 'expanded');
    toggle.setAttribute('aria-label', (row.accessory === 'expanded' ? 'Collapse ' : 'Expand ') + row.text);
    toggle.append(icon('chevron'));
    toggle.addEventListener('click', (e) => { e.stopPropagation(); sendScreen('row', row.id, 'toggle'); });
    li.append(toggle);
  } else if (tree) {
    li.append(el('span', 'toggle-space'));
  }
  const text = el('span', 'row-text');
  text.append(el('span', 'row-title', row.text));
  if (row.detail) text.append(el('span', 'row-detail', row.detail));
  li.append(text);
  if (row.counts) {
    const counts = el('span', 'counts');
    for (const c of row.counts) {
      const badge = el('span', `count ${c.tone}` + (c.text === '0' ? ' zero' : ''), c.text);
      badge.title = c.tone === 'review' ? 'Due' : c.tone === 'new' ? 'New' : '';
      counts.append(badge);
    }
    li.append(counts);
  }
  if ('field' in row) {
    const input = el('input', 'row-field');
    input.value = row.field;
    input.setAttribute('aria-label', row.text);
    if (row.keyboard === 'number') { input.inputMode = 'numeric'; input.pattern = '[0-9]*'; }
    input.addEventListener('change', () => post({ screen: state.screen.id, element: 'row', id: row.id, kind: 'change', value: input.value }));
    input.addEventListener('keydown', (e) => { if (e.key === 'Enter') input.blur(); e.stopPropagation(); });
    li.append(input);
  }
  if (row.accessory === 'push') li.append(accessory('chevron'));
  if (row.accessory === 'check') li.append(accessory('check', 'check'));
  if (row.canDelete) {
    const del = el('button', 'delete');
    del.type = 'button';
    del.tabIndex = -1;
    del.title = 'Delete';
    del.setAttribute('aria-label', 'Delete ' + row.text);
    del.append(icon('trash'));
    del.addEventListener('click', (e) => { e.stopPropagation(); sendScreen('row', row.id, 'delete'); });
    li.append(del);
    const swipe = el('button', 'swipe-delete', 'Delete');
    swipe.type = 'button';
    swipe.tabIndex = -1;
    swipe.addEventListener('click', (e) => { e.stopPropagation(); sendScreen('row', row.id, 'delete'); });
    li.append(swipe);
  }
  li.setAttribute('role', 'listitem');
  li.addEventListener('click', (e) => {
    if (li.classList.contains('swiped')) { li.classList.remove('swiped'); return; }
    if (longPressed || e.target.closest('input')) return;
    li.focus({ preventScroll: true });
    if (selectable) sendScreen('row', row.id, 'select');
  });
  if (row.hasMenu) {
    li.addEventListener('contextmenu', (e) => { e.preventDefault(); sendScreen('row', row.id, 'menu'); });
  }
  addTouch(li, row);
  return li;
}

function accessory(name, extra) {
  const span = el('span', 'accessory' + (extra ? ' ' + extra : ''));
  span.append(icon(name));
  return span;
}

// Long press opens the menu and a swipe to the left shows the delete button, on touch screens.
let longPressed = false;
function addTouch(li, row) {
  let timer = null, startX = 0, startY = 0;
  li.addEventListener('touchstart', (e) => {
    longPressed = false;
    const t = e.touches[0];
    startX = t.clientX; startY = t.clientY;
    li.classList.add('pressed');
    if (row.hasMenu) {
      timer = setTimeout(() => {
        longPressed = true;
        li.classList.remove('pressed');
        sendScreen('row', row.id, 'menu');
      }, 600);
    }
  }, { passive: true });
  const cancel = () => { clearTimeout(timer); timer = null; li.classList.remove('pressed'); };
  li.addEventListener('touchmove', (e) => {
    const t = e.touches[0];
    const dx = t.clientX - startX, dy = t.clientY - startY;
    if (Math.abs(dx) > 10 || Math.abs(dy) > 10) cancel();
    if (row.canDelete && dx < -50 && Math.abs(dy) < 30) li.classList.add('swiped');
    if (dx > 30) li.classList.remove('swiped');
  }, { passive: true });
  li.addEventListener('touchend', (e) => {
    cancel();
    if (longPressed) e.preventDefault();
  });
  li.addEventListener('touchcancel', cancel);
}

// --- Keyboard ---

function rows() { return [...$('content').querySelectorAll('.row')]; }

document.addEventListener('keydown', (e) => {
  if (frozen()) { e.preventDefault(); e.stopPropagation(); return; }
  if (state.alerts.length) return;  // the open alert has the keyboard
  if (e.target.closest && e.target.closest('input, textarea')) return;
  const row = document.activeElement && document.activeElement.closest('.row');
  const list = rows();
  const at = row ? list.indexOf(row) : -1;
  const screenRow = row && findRow(row.dataset.id);
  switch (e.key) {
    case 'ArrowDown': case 'ArrowUp': {
      if (!list.length) return;
      const next = e.key === 'ArrowDown' ? Math.min(at + 1, list.length - 1) : Math.max(at - 1, 0);
      list[next].focus();
      e.preventDefault();
      return;
    }
    case 'Home': if (list.length) { list[0].focus(); e.preventDefault(); } return;
    case 'End': if (list.length) { list[list.length - 1].focus(); e.preventDefault(); } return;
    case 'Enter': case ' ':
      if (screenRow && screenRow.selectable !== false) { sendScreen('row', screenRow.id, 'select'); e.preventDefault(); }
      return;
    case 'ArrowRight': case 'ArrowLeft':
      if (screenRow && (screenRow.accessory === (e.key === 'ArrowRight' ? 'collapsed' : 'expanded'))) {
        sendScreen('row', screenRow.id, 'toggle');
        e.preventDefault();
      }
      return;
    case 'Delete':
      if (screenRow && screenRow.canDelete) { sendScreen('row', screenRow.id, 'delete'); e.preventDefault(); }
      return;
    case 'F2': case 'ContextMenu':
      if (screenRow && screenRow.hasMenu) { sendScreen('row', screenRow.id, 'menu'); e.preventDefault(); }
      return;
    case 'Escape':
      if (state.screen && state.screen.back) { sendScreen('back'); e.preventDefault(); }
      return;
    case 'i': case 'I': {
      // The screen's file chooser, when it has one.
      const chooser = !e.ctrlKey && !e.metaKey && !e.altKey && $('toolbar').querySelector('input[type=file]');
      if (chooser) { chooser.click(); e.preventDefault(); }
      return;
    }
    case 'r': case 'R':
      if (!e.ctrlKey && !e.metaKey && !e.altKey && state.screen && state.screen.refreshable) {
        sendScreen('refresh');
        e.preventDefault();
      }
      return;
  }
}, true);

function findRow(id) {
  for (const s of (state.screen && state.screen.sections) || []) for (const r of s.rows) if (r.id === id) return r;
  return null;
}

// Pull to refresh: drag down at the top of a refreshable list.
(function pullToRefresh() {
  let startY = null, distance = 0;
  const pull = $('pull');
  document.addEventListener('touchstart', (e) => {
    startY = window.scrollY <= 0 && state.screen && state.screen.refreshable && !frozen() ? e.touches[0].clientY : null;
    distance = 0;
  }, { passive: true });
  document.addEventListener('touchmove', (e) => {
    if (startY === null) return;
    distance = Math.max(0, Math.min(90, e.touches[0].clientY - startY));
    pull.style.height = distance + 'px';
    pull.classList.toggle('ready', distance >= 70);
  }, { passive: true });
  document.addEventListener('touchend', () => {
    if (startY !== null && distance >= 70) sendScreen('refresh');
    startY = null;
    pull.style.height = '0px';
    pull.classList.remove('ready');
  });
})();

// --- Alerts and action sheets ---

function setAlerts(alerts) {
  const hadFocus = document.activeElement;
  state.alerts = alerts;
  const host = $('alerts');
  // Keep alerts that are still open as they are, with what the user has typed.
  const keep = new Map([...host.children].map((n) => [Number(n.dataset.alert), n]));
  const nodes = alerts.map((a) => keep.get(a.id) || renderAlert(a));
  host.replaceChildren(...nodes);
  nodes.forEach((n, i) => n.classList.toggle('behind', i < nodes.length - 1));
  $('app').inert = alerts.length > 0 || frozen();
  const top = nodes[nodes.length - 1];
  if (top && !top.contains(hadFocus)) focusAlert(top);
  if (!top) restoreFocus();
}

function focusAlert(node) {
  const target = node.querySelector('input') || node.querySelector('button.default') || node.querySelector('button');
  if (target) target.focus();
}

function restoreFocus() {
  const row = rows()[0];
  if (document.activeElement === document.body && row && matchMedia('(hover: hover)').matches) row.focus({ preventScroll: true });
}

function renderAlert(alert) {
  const sheet = alert.style === 'sheet';
  const scrim = el('div', 'scrim' + (sheet ? ' sheet-scrim' : ''));
  scrim.dataset.alert = alert.id;
  const box = el('div', 'dialog' + (sheet ? ' sheet' : ''));
  box.setAttribute('role', 'alertdialog');
  box.setAttribute('aria-modal', 'true');
  scrim.append(box);
  let answered = false;
  const inputs = [];
  const answer = async (button) => {
    if (answered || frozen()) return;
    answered = true;
    box.querySelectorAll('button').forEach((b) => { b.disabled = true; });
    const status = await post({ alert: alert.id, button, texts: inputs.map((i) => i.value) });
    // Refused while a spinner was up: the alert stays and can be answered after it.
    if (status === 409 && state.alerts.some((a) => a.id === alert.id)) {
      answered = false;
      box.querySelectorAll('button').forEach((b) => { b.disabled = false; });
    }
  };
  const cancelIndex = alert.cancel;
  const defaultIndex = alert.buttons.length - 1;
  if (sheet) {
    if (alert.title) box.append(el('div', 'sheet-title', alert.title));
    const list = el('div', 'sheet-list');
    alert.buttons.forEach((title, i) => {
      const b = el('button', '', title);
      b.type = 'button';
      b.addEventListener('click', () => answer(i));
      list.append(b);
    });
    const cancel = el('button', 'cancel', alert.cancelTitle || 'Cancel');
    cancel.type = 'button';
    cancel.addEventListener('click', () => answer(-1));
    list.append(cancel);
    box.append(list);
    scrim.addEventListener('click', (e) => { if (e.target === scrim) answer(-1); });
  } else {
    const body = el('div', 'dialog-body');
    if (alert.title) {
      const h = el('h2', '', alert.title);
      h.id = `alert-${alert.id}-title`;
      box.setAttribute('aria-labelledby', h.id);
      body.append(h);
    }
    if (alert.text) body.append(el('p', '', alert.text));
    for (const f of alert.fields) {
      const input = el('input');
      input.type = f.secure ? 'password' : 'text';
      input.value = f.text || '';
      input.placeholder = f.placeholder || '';
      input.setAttribute('aria-label', f.placeholder || alert.title || 'Text');
      input.autocomplete = 'off';
      input.spellcheck = false;
      inputs.push(input);
      body.append(input);
    }
    box.append(body);
    const buttons = el('div', 'dialog-buttons' + (alert.buttons.length > 2 ? ' stacked' : ''));
    alert.buttons.forEach((title, i) => {
      const b = el('button', i === defaultIndex ? 'default' : '', title);
      b.type = 'button';
      b.addEventListener('click', () => answer(i));
      buttons.append(b);
    });
    box.append(buttons);
  }
  scrim.addEventListener('keydown', (e) => {
    if (e.key === 'Escape') { e.preventDefault(); answer(cancelIndex); }
    if (e.key === 'Enter' && !sheet && e.target.tagName !== 'BUTTON') { e.preventDefault(); answer(defaultIndex); }
    if (e.key === 'Tab') trapFocus(e, box);
  });
  if (inputs.length) setTimeout(() => { inputs[0].select(); }, 0);
  return scrim;
}

function trapFocus(e, box) {
  const items = [...box.querySelectorAll('input, button:not([disabled])')];
  if (!items.length) return;
  const first = items[0], last = items[items.length - 1];
  if (e.shiftKey && document.activeElement === first) { last.focus(); e.preventDefault(); }
  else if (!e.shiftKey && document.activeElement === last) { first.focus(); e.preventDefault(); }
}

// --- Spinner and popup ---

function setPopup(popup) {
  state.popup = popup || null;
  const node = $('popup');
  if (!state.popup) {
    node.hidden = true;
    $('app').inert = state.alerts.length > 0;
    $('alerts').inert = false;
    const top = $('alerts').lastElementChild;
    if (top) focusAlert(top);
    return;
  }
  node.querySelector('.popup-text').textContent = state.popup.text;
  node.classList.toggle('activity', !!state.popup.activity);
  node.hidden = false;
  // Nothing below takes input until it goes.
  $('app').inert = true;
  $('alerts').inert = true;
  if (document.activeElement && document.activeElement !== document.body) document.activeElement.blur();
}

// --- Web views ---

// Runs inside each sandboxed frame: answers script calls and reports loads and links. The
// frame has no access to this page or its cookie; it can only post messages.
function frameBoot() {
  window.addEventListener('message', (e) => {
    if (!e.data || e.data.rivo !== 'eval') return;
    let result = '';
    try { const v = (0, eval)(e.data.script); result = v === undefined || v === null ? '' : String(v); } catch (err) { result = ''; }
    parent.postMessage({ rivo: 'result', call: e.data.call, result }, '*');
  });
  document.addEventListener('click', (e) => {
    const a = e.target.closest && e.target.closest('a[href]');
    if (!a) return;
    const href = a.getAttribute('href');
    if (href.startsWith('#')) return;
    e.preventDefault();
    parent.postMessage({ rivo: 'navigate', url: href, navigation: 'link' }, '*');
  });
  window.addEventListener('load', () => parent.postMessage({ rivo: 'loaded' }, '*'));
}

function loadFrame(frame, page) {
  const base = page.base ? `<base href="${page.base.replace(/"/g, '&quot;')}">` : '';
  const boot = `${base}<script>(${frameBoot.toString()})()<\/script>`;
  // After <head> when there is one, so that a page's doctype stays first.
  const head = page.html.search(/<head[^>]*>/i);
  if (head < 0) { frame.srcdoc = boot + page.html; return; }
  const end = page.html.indexOf('>', head) + 1;
  frame.srcdoc = page.html.slice(0, end) + boot + page.html.slice(end);
}

function renderWeb(content, id) {
  let frame = content.querySelector(`iframe[data-web="${CSS.escape(id)}"]`);
  if (frame) return;
  frame = el('iframe', 'web-view');
  frame.dataset.web = id;
  frame.setAttribute('sandbox', 'allow-scripts');
  frame.title = (state.screen && state.screen.title) || 'Page';
  content.replaceChildren(frame);
  if (state.web[id]) loadFrame(frame, state.web[id]);
}

window.addEventListener('message', (e) => {
  const frame = [...document.querySelectorAll('iframe[data-web]')].find((f) => f.contentWindow === e.source);
  if (!frame || !e.data || typeof e.data !== 'object') return;
  const web = frame.dataset.web;
  const m = e.data;
  if (m.rivo === 'result' && Number.isInteger(m.call)) post({ web, kind: 'result', call: m.call, result: String(m.result) });
  else if (m.rivo === 'loaded') post({ web, kind: 'loaded' });
  else if (m.rivo === 'navigate' && typeof m.url === 'string') post({ web, kind: 'navigate', url: m.url, navigation: m.navigation === 'link' ? 'link' : 'other' });
});

connect();
