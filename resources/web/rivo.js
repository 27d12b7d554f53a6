// The renderer of Rivo's screens. The program sends what to show over one event stream (the
// top screen, the open alerts, the popup, web pages); this page draws it and posts what the
// user did. It keeps no state of its own that the program doesn't know: a reload, or a second
// tab, shows the same thing.
'use strict';

const state = { screen: null, alerts: [], popup: null, web: {}, tab: 0 };
const $ = (id) => document.getElementById(id);
let busyScreenEvent = false;  // one screen event in flight at a time: no double actions

// --- Talking to the program ---

async function post(event) {
  try {
    const res = await fetch('/event', {
      method: 'POST',
      // The tab's number: a file the action ends in is downloaded here.
      headers: { 'Content-Type': 'application/json', 'X-Rivo-Tab': String(state.tab) },
      body: JSON.stringify(event),
      credentials: 'same-origin',
    });
    return res.status;
  } catch (e) {
    return 0;
  }
}

// Events that must arrive in the order they happened (a typed answer's end before the tap
// that follows it) go one after the other. Answers to script calls don't wait behind them:
// the program may be waiting for one while it handles the event in front.
let lastInOrder = Promise.resolve();
function postInOrder(event) {
  const sent = lastInOrder.then(() => post(event));
  lastInOrder = sent.catch(() => 0);
  return sent;
}

// A screen event; dropped while the previous one is unanswered or input is frozen. A key is
// not dropped but waits for the one in flight (the latest key, at most): someone studying
// fast presses space as soon as the next card shows, before the answer's reply is back.
let waitingKey = null;
async function sendScreen(element, id, kind, value) {
  if (!state.screen || frozen()) return;
  if (busyScreenEvent) {
    if (element === 'key') waitingKey = id;
    return;
  }
  busyScreenEvent = true;
  try {
    await postInOrder(screenEvent(element, id, kind, value));
  } finally {
    busyScreenEvent = false;
    const key = waitingKey;
    waitingKey = null;
    if (key !== null) sendScreen('key', key);
  }
}

function screenEvent(element, id, kind, value) {
  const event = { screen: state.screen.id, element };
  if (id !== undefined) event.id = id;
  if (kind !== undefined) event.kind = kind;
  if (value !== undefined) event.value = value;
  return event;
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
    state.tab = s.tab || 0;
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
    const frame = frameOf(page.id);
    if (frame) loadFrame(frame, page);
  });
  on('webGone', (g) => { delete state.web[g.id]; });
  on('download', (d) => {
    const a = el('a');
    a.href = d.url;
    a.download = d.name;
    a.hidden = true;
    document.body.append(a);
    a.click();
    a.remove();
  });
  on('eval', (call) => {
    const frame = frameOf(call.web);
    if (frame && frame.contentWindow) frame.contentWindow.postMessage({ rivo: 'eval', call: call.call, script: call.script }, '*');
  });
  on('audio', playAudio);
  on('openUrl', (o) => {
    // A link the user followed in a card: the tab they used opens it.
    if (document.hasFocus()) window.open(o.url, '_blank', 'noopener,noreferrer');
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
  tools: '<path d="M4 7h10M18 7h2M4 17h4M12 17h8" fill="none" stroke="currentColor" stroke-width="2" stroke-linecap="round"/><circle cx="16" cy="7" r="2.2" fill="none" stroke="currentColor" stroke-width="2"/><circle cx="10" cy="17" r="2.2" fill="none" stroke="currentColor" stroke-width="2"/>',
  star: '<path d="M12 3.2l2.6 5.5 6 .8-4.4 4.1 1.1 5.9L12 16.6l-5.3 2.9 1.1-5.9L3.4 9.5l6-.8z" fill="currentColor"/>',
  cross: '<circle cx="12" cy="12" r="11" fill="#d63b30"/><path d="M8 8l8 8M16 8l-8 8" stroke="#fff" stroke-width="2.6" stroke-linecap="round"/>',
  tick: '<circle cx="12" cy="12" r="11" fill="currentColor"/><path d="M7 12.5l3.3 3.3L17.2 8.6" fill="none" stroke="#fff" stroke-width="2.6" stroke-linecap="round" stroke-linejoin="round"/>',
  undo: '<path d="M9 7L4.5 11.5 9 16M5 11.5h9a5 5 0 0 1 0 10h-2" fill="none" stroke="currentColor" stroke-width="2" stroke-linecap="round" stroke-linejoin="round"/>',
  keyboard: '<rect x="2.5" y="6" width="19" height="12" rx="2" fill="none" stroke="currentColor" stroke-width="1.8"/><path d="M6 10h1M9.5 10h1M13 10h1M16.5 10h1M7 14h10" stroke="currentColor" stroke-width="1.8" stroke-linecap="round"/>',
  sync: '<path d="M19 8.5A7.5 7.5 0 0 0 5.6 7.2M5 15.5a7.5 7.5 0 0 0 13.4 1.3" fill="none" stroke="currentColor" stroke-width="2" stroke-linecap="round"/><path d="M19.5 3.8v4.9h-4.9M4.5 20.2v-4.9h4.9" fill="none" stroke="currentColor" stroke-width="2" stroke-linecap="round" stroke-linejoin="round"/>',
  stats: '<path d="M5 20V11M10 20V5M15 20v-7M20 20V8" fill="none" stroke="currentColor" stroke-width="2.4" stroke-linecap="round"/>',
  settings: '<circle cx="12" cy="12" r="3.2" fill="none" stroke="currentColor" stroke-width="1.9"/><path d="M12 2.8v2.6M12 18.6v2.6M2.8 12h2.6M18.6 12h2.6M5.5 5.5l1.8 1.8M16.7 16.7l1.8 1.8M5.5 18.5l1.8-1.8M16.7 7.3l1.8-1.8" fill="none" stroke="currentColor" stroke-width="1.9" stroke-linecap="round"/>',
  bold: '<path d="M7 4.5h6a3.6 3.6 0 0 1 0 7.2H7zM7 11.7h7a3.9 3.9 0 0 1 0 7.8H7z" fill="none" stroke="currentColor" stroke-width="2.3" stroke-linejoin="round"/>',
  italic: '<path d="M10 4.5h8M6 19.5h8M14.5 4.5l-5 15" fill="none" stroke="currentColor" stroke-width="2" stroke-linecap="round"/>',
  underline: '<path d="M7 4v7a5 5 0 0 0 10 0V4M5.5 20h13" fill="none" stroke="currentColor" stroke-width="2" stroke-linecap="round"/>',
  eraser: '<path d="M8.5 19.5h11M4.6 14.6l8.8-8.8a2 2 0 0 1 2.8 0l2.5 2.5a2 2 0 0 1 0 2.8l-7.5 7.5a3 3 0 0 1-2.1.9H7.7a2 2 0 0 1-1.4-.6l-1.7-1.7a1.8 1.8 0 0 1 0-2.6zM9 10.3l5.3 5.3" fill="none" stroke="currentColor" stroke-width="1.8" stroke-linecap="round" stroke-linejoin="round"/>',
  cloze: '<path d="M8 5c-2 0-2.5 1-2.5 2.5v2c0 1.2-.8 2-2 2.5 1.2.5 2 1.3 2 2.5v2C5.5 18 6 19 8 19M16 5c2 0 2.5 1 2.5 2.5v2c0 1.2.8 2 2 2.5-1.2.5-2 1.3-2 2.5v2c0 1.5-.5 2.5-2.5 2.5" fill="none" stroke="currentColor" stroke-width="1.9" stroke-linecap="round"/><circle cx="12" cy="12" r="1.4" fill="currentColor"/>',
  image: '<rect x="3.5" y="5" width="17" height="14" rx="2.2" fill="none" stroke="currentColor" stroke-width="1.9"/><circle cx="9" cy="10" r="1.7" fill="currentColor"/><path d="M4.5 17.5l5-5 3.5 3.5 2.5-2.5 4 4" fill="none" stroke="currentColor" stroke-width="1.9" stroke-linejoin="round"/>',
  mic: '<rect x="9" y="3.5" width="6" height="11" rx="3" fill="none" stroke="currentColor" stroke-width="1.9"/><path d="M6 11.5a6 6 0 0 0 12 0M12 17.5V20.5M9 20.5h6" fill="none" stroke="currentColor" stroke-width="1.9" stroke-linecap="round"/>',
  eye: '<path d="M2.5 12s3.5-6.5 9.5-6.5S21.5 12 21.5 12s-3.5 6.5-9.5 6.5S2.5 12 2.5 12z" fill="none" stroke="currentColor" stroke-width="1.9" stroke-linejoin="round"/><circle cx="12" cy="12" r="3" fill="none" stroke="currentColor" stroke-width="1.9"/>',
  code: '<path d="M8.5 7.5L4 12l4.5 4.5M15.5 7.5L20 12l-4.5 4.5M13.5 5l-3 14" fill="none" stroke="currentColor" stroke-width="2" stroke-linecap="round" stroke-linejoin="round"/>',
  compose: '<path d="M4 20h4.5L19 9.5a2.1 2.1 0 0 0-3-3L5.5 17 4 20z" fill="none" stroke="currentColor" stroke-width="1.9" stroke-linejoin="round"/><path d="M14.5 8l3 3" stroke="currentColor" stroke-width="1.9"/>',
  search: '<circle cx="10.5" cy="10.5" r="6" fill="none" stroke="currentColor" stroke-width="2"/><path d="M15 15l5 5" stroke="currentColor" stroke-width="2.2" stroke-linecap="round"/>',
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
  if (b.tone) button.classList.add('tone-' + b.tone);
  if ('on' in b || b.icon === 'bold' || b.icon === 'italic' || b.icon === 'underline') {
    button.classList.toggle('on', !!b.on);
    button.setAttribute('aria-pressed', b.on ? 'true' : 'false');
  }
  // The toolbar of a page in a frame mustn't take the input from the frame's fields.
  button.addEventListener('mousedown', (e) => { if (state.screen && state.screen.webView) e.preventDefault(); });
  button.addEventListener('click', onClick);
  return button;
}

// A button with `accept` chooses a file and sends it; the program hands it to the screen.
function toolbarButton(b) {
  if (b.recordSeconds) return [barButton(b, () => startRecording(b))];
  if (!b.accept) return [barButton(b, () => sendScreen('button', b.id))];
  const input = el('input');
  input.type = 'file';
  input.accept = b.accept;
  input.hidden = true;
  input.dataset.upload = b.id;
  input.addEventListener('change', () => {
    const file = input.files[0];
    input.value = '';
    if (file) b.imageWidth ? uploadImage(b.id, file, b.imageWidth) : upload(b.id, file);
  });
  return [barButton(b, () => { if (!frozen()) input.click(); }), input];
}

// A picture is scaled to the screen's width for it and sent as JPEG at quality 0.7, so that a
// huge photo never travels whole. One the browser can't read goes as a few bytes the program
// refuses with its message.
async function uploadImage(button, file, width) {
  let blob;
  try {
    const bitmap = await createImageBitmap(file);
    const canvas = document.createElement('canvas');
    canvas.width = width;
    canvas.height = Math.max(1, Math.round(bitmap.height * width / bitmap.width));
    const ctx = canvas.getContext('2d');
    ctx.fillStyle = '#fff';
    ctx.fillRect(0, 0, canvas.width, canvas.height);
    ctx.drawImage(bitmap, 0, 0, canvas.width, canvas.height);
    bitmap.close();
    blob = await new Promise((resolve) => canvas.toBlob(resolve, 'image/jpeg', 0.7));
  } catch (e) {
    blob = null;
  }
  upload(button, blob || new Blob(['unreadable']), 'image.jpg');
}

async function upload(button, file, name) {
  if (!state.screen || frozen()) return;
  const query = new URLSearchParams({ screen: state.screen.id, button, name: name || file.name });
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

// --- Recording ---

// A button with `recordSeconds` records from the microphone here, in the tab, and sends the
// recording whole once the user finishes, as an upload on the button; the program converts
// and stores it. A refusal or a missing microphone goes to the program as "failed" with the
// reason, and it says what to do. Only one recording at a time.
let recording = null;

async function startRecording(b) {
  if (recording || frozen() || !state.screen) return;
  recording = { button: b.id };
  // The screen first keeps the place in the text and stops what plays.
  await sendScreen('button', b.id);
  const fail = (reason) => {
    recording = null;
    sendScreen('button', b.id, 'failed', { reason });
  };
  const media = navigator.mediaDevices;
  if (!window.isSecureContext) return fail('insecure');
  if (!media || !media.getUserMedia || typeof MediaRecorder === 'undefined') return fail('absent');
  let stream;
  try {
    stream = await media.getUserMedia({ audio: { channelCount: 1, echoCancellation: false } });
  } catch (e) {
    const reason = e.name === 'NotAllowedError' || e.name === 'SecurityError' ? 'denied'
      : e.name === 'NotFoundError' || e.name === 'OverconstrainedError' ? 'absent' : 'failed';
    return fail(reason);
  }
  const stopTracks = () => stream.getTracks().forEach((t) => t.stop());
  // AAC where the browser records it (less to convert), else Opus.
  const type = ['audio/mp4;codecs=mp4a.40.2', 'audio/webm;codecs=opus', 'audio/ogg;codecs=opus']
    .find((t) => MediaRecorder.isTypeSupported(t));
  let recorder;
  const chunks = [];
  try {
    recorder = new MediaRecorder(stream, type ? { mimeType: type, audioBitsPerSecond: 128000 } : {});
    recorder.addEventListener('dataavailable', (e) => { if (e.data.size) chunks.push(e.data); });
    recorder.start(1000);
  } catch (e) {
    stopTracks();
    return fail('failed');
  }
  const dialog = recordingDialog(stream, b.recordSeconds, (keep) => {
    if (recording.finishing) return;
    recording.finishing = true;
    recorder.addEventListener('stop', () => {
      stopTracks();
      dialog.close();
      recording = null;
      const mime = recorder.mimeType || type || '';
      const ext = mime.includes('mp4') ? 'm4a' : mime.includes('ogg') ? 'ogg' : 'webm';
      if (keep && chunks.length) upload(b.id, new Blob(chunks, { type: mime }), 'recording.' + ext);
    });
    recorder.stop();
  });
  recording.dialog = dialog;
}

// "Recording..." with the time so far, a level meter, and Finish and Cancel (Enter and
// Escape). At the time limit it finishes by itself.
function recordingDialog(stream, limit, finish) {
  const scrim = el('div', 'scrim recording');
  const box = el('div', 'dialog');
  box.setAttribute('role', 'alertdialog');
  box.setAttribute('aria-modal', 'true');
  box.setAttribute('aria-labelledby', 'recording-title');
  const body = el('div', 'dialog-body');
  const title = el('h2', '', 'Recording...');
  title.id = 'recording-title';
  const time = el('p', 'recording-time', '0:00');
  const meter = el('div', 'recording-meter');
  const level = el('span');
  meter.append(level);
  body.append(title, time, meter);
  const buttons = el('div', 'dialog-buttons');
  const cancel = el('button', '', 'Cancel');
  const done = el('button', 'default', 'Finish');
  for (const [button, keep] of [[cancel, false], [done, true]]) {
    button.type = 'button';
    button.addEventListener('click', () => finish(keep));
    buttons.append(button);
  }
  box.append(body, buttons);
  scrim.append(box);
  // The dialog has the keyboard wherever the focus went: the screen's own keys (Escape
  // cancels the editor) wait until the recorder is gone.
  const key = (e) => {
    if (e.key === 'Escape') { e.preventDefault(); finish(false); }
    if (e.key === 'Enter' && e.target.tagName !== 'BUTTON') { e.preventDefault(); finish(true); }
    if (e.key === 'Tab') trapFocus(e, box);
  };
  scrim.addEventListener('keydown', (e) => { e.stopPropagation(); key(e); });
  document.body.append(scrim);
  $('app').inert = true;
  done.focus();

  const clock = (s) => `${Math.floor(s / 60)}:${String(Math.floor(s % 60)).padStart(2, '0')}`;
  const started = performance.now();
  let audio = null, analyser = null;
  try {
    audio = new AudioContext();
    analyser = audio.createAnalyser();
    analyser.fftSize = 512;
    audio.createMediaStreamSource(stream).connect(analyser);
  } catch (e) {
    analyser = null;
  }
  const samples = new Uint8Array(512);
  const timer = setInterval(() => {
    const seconds = (performance.now() - started) / 1000;
    time.textContent = limit ? `${clock(seconds)} of ${clock(limit)}` : clock(seconds);
    if (analyser) {
      analyser.getByteTimeDomainData(samples);
      let peak = 0;
      for (const v of samples) peak = Math.max(peak, Math.abs(v - 128));
      level.style.width = `${Math.min(100, peak / 1.28)}%`;
    }
    if (limit && seconds >= limit) finish(true);
  }, 100);
  return {
    key,
    close() {
      clearInterval(timer);
      if (audio) audio.close().catch(() => {});
      scrim.remove();
      $('app').inert = state.alerts.length > 0 || frozen();
    },
  };
}

function setScreen(screen) {
  const previous = state.screen;
  state.screen = screen;
  if (!screen) return;
  const sameScreen = previous && previous.id === screen.id;
  const focused = document.activeElement && document.activeElement.closest('.row');
  const focusId = sameScreen && focused ? focused.dataset.id : null;
  const scroll = sameScreen ? window.scrollY : 0;

  const name = screen.title || (screen.webView ? 'Study' : '');
  document.title = name ? `${name} \u2013 Rivo` : 'Rivo';
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
  $('navbar').hidden = !!screen.navBarHidden;
  const title = $('title');
  title.replaceChildren();
  if (screen.segments && screen.segments.length) {
    const bar = el('div', 'segments');
    bar.setAttribute('role', 'group');
    for (const seg of screen.segments) {
      const b = el('button', 'segment', seg.title);
      b.type = 'button';
      b.addEventListener('click', () => sendScreen('segment', seg.id));
      bar.append(b);
    }
    title.append(bar);
  } else if (screen.titleIsButton) {
    const t = el('button', '', screen.title);
    t.type = 'button';
    t.id = 'title-button';
    t.addEventListener('click', () => sendScreen('title'));
    title.append(t);
  } else {
    title.textContent = screen.title || '';
  }
  renderToolbar(screen);

  renderSearchBar(screen, sameScreen);
  const content = $('content');
  document.body.classList.toggle('web-mode', !!screen.webView);
  if (screen.webView) {
    renderWeb(content, screen, sameScreen);
  } else {
    content.replaceChildren(...(screen.progress ? [renderProgress(screen.progress)] : []), ...renderTable(screen));
  }
  if (!sameScreen) $('keys-help').hidden = true;
  window.scrollTo(0, scroll);
  if (focusId !== null) {
    const row = [...content.querySelectorAll('.row')].find((r) => r.dataset.id === focusId);
    if (row) row.focus({ preventScroll: true });
  } else if (!sameScreen) {
    const first = content.querySelector('.row');
    if (first && matchMedia('(hover: hover)').matches) first.focus({ preventScroll: true });
  }
}

// The search field stays the same element while its screen is shown, so typing in it is never
// interrupted by a new description (more rows arriving).
let searchSeen = 0;
function renderSearchBar(screen, sameScreen) {
  const bar = $('searchbar');
  const input = $('search-input');
  bar.hidden = !screen.search;
  if (!screen.search) return;
  if (!sameScreen || document.activeElement !== input) input.value = screen.search.text;
  input.placeholder = screen.search.placeholder || 'Search';
  input.setAttribute('aria-label', screen.search.placeholder || 'Search');
  if (!sameScreen) searchSeen = 0;
  if (screen.search.focusSeq > searchSeen) {
    searchSeen = screen.search.focusSeq;
    input.focus({ preventScroll: true });
    input.setSelectionRange(input.value.length, input.value.length);
  }
}
$('searchbar').addEventListener('submit', (e) => {
  e.preventDefault();
  sendScreen('search', undefined, 'submit', $('search-input').value);
});
$('search-input').addEventListener('keydown', (e) => {
  if (e.key === 'Escape' && $('search-input').value) {
    e.preventDefault();
    e.stopPropagation();
    $('search-input').value = '';
    sendScreen('search', undefined, 'clear');
  } else if (e.key === 'Escape') {
    $('search-input').blur();
  } else if (e.key === 'ArrowDown') {
    const first = $('content').querySelector('.row');
    if (first) { first.focus(); e.preventDefault(); }
  }
});
$('search-clear').addEventListener('click', () => {
  $('search-input').value = '';
  sendScreen('search', undefined, 'clear');
  $('search-input').focus();
});

// More rows are asked for when the end of the list comes near; one request at a time.
const moreWatch = new IntersectionObserver((entries) => {
  if (entries.some((e) => e.isIntersecting) && state.screen && state.screen.hasMore) sendScreen('more');
}, { rootMargin: '600px 0px' });

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
  if (screen.hasMore) {
    const more = el('div', 'more-rows', 'Loading\u2026');
    moreWatch.disconnect();
    requestAnimationFrame(() => moreWatch.observe(more));
    out.push(more);
  } else {
    moreWatch.disconnect();
  }
  return out;
}

// Work under way: what is being done, a bar once there is a fraction, and the amounts.
function renderProgress(p) {
  const box = el('section', 'progress-panel');
  box.setAttribute('role', 'status');
  box.setAttribute('aria-live', 'polite');
  const head = el('div', 'progress-head');
  if (p.activity) head.append(el('span', 'progress-spinner'));
  head.append(el('p', 'progress-text', p.text));
  box.append(head);
  const bar = el('progress', 'progress-bar');
  bar.max = 1;
  if (typeof p.fraction === 'number') bar.value = p.fraction;
  bar.hidden = typeof p.fraction !== 'number';
  box.append(bar);
  const amounts = el('dl', 'progress-amounts');
  for (const [label, value, cls] of [['Sent', p.up, 'up'], ['Received', p.down, 'down']]) {
    if (value === undefined) continue;
    const item = el('div', 'amount ' + cls);
    item.append(el('dt', '', label), el('dd', '', value));
    amounts.append(item);
  }
  box.append(amounts);
  return box;
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
  const title = el('span', 'row-title', row.text);
  if (row.lines) { title.classList.add('clamp'); title.style.setProperty('--lines', row.lines); }
  text.append(title);
  if (row.detail && !row.slider) text.append(el('span', 'row-detail', row.detail));
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
    // "text" is a plain text area of several lines, which Return doesn't leave.
    const multiline = row.keyboard === 'text';
    const input = el(multiline ? 'textarea' : 'input', 'row-field' + (multiline ? ' multiline' : ''));
    input.value = row.field;
    input.setAttribute('aria-label', row.text);
    if (multiline) { li.classList.add('has-area'); input.rows = 2; }
    if (row.keyboard === 'number') { input.inputMode = 'numeric'; input.pattern = '[0-9]*'; }
    // A search is read whole, so its field takes the room the title leaves.
    if (row.keyboard === 'search') { input.type = 'search'; input.classList.add('wide'); }
    input.addEventListener('change', () => postInOrder({ screen: state.screen.id, element: 'row', id: row.id, kind: 'change', value: input.value }));
    input.addEventListener('keydown', (e) => {
      if ((e.ctrlKey || e.metaKey) && e.key === 'Enter') {
        input.blur();
        if (screenKey('Control+Enter')) e.preventDefault();
      } else if (e.key === 'Enter' && !multiline) {
        input.blur();
      }
      e.stopPropagation();
    });
    li.append(input);
  }
  if (row.slider) li.append(renderSlider(row));
  if ('switch' in row) li.append(switchControl(row));
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
    if (longPressed || e.target.closest('input, .switch')) return;
    li.focus({ preventScroll: true });
    if ('switch' in row) { flipSwitch(li); return; }
    if (selectable) sendScreen('row', row.id, 'select');
  });
  if (row.hasMenu) {
    li.addEventListener('contextmenu', (e) => { e.preventDefault(); sendScreen('row', row.id, 'menu'); });
  }
  addTouch(li, row);
  return li;
}

function renderSlider(row) {
  const sl = row.slider;
  const wrap = el('span', 'row-slider');
  const input = el('input');
  input.type = 'range';
  input.min = sl.min; input.max = sl.max; input.step = sl.step; input.value = sl.value;
  input.setAttribute('aria-label', row.text);
  const label = el('span', 'slider-value');
  const show = () => { label.textContent = Number(input.value).toFixed(sl.decimals) + (sl.unit || ''); };
  show();
  input.addEventListener('input', show);
  input.addEventListener('change', () => postInOrder(screenEvent('row', row.id, 'change', Number(input.value))));
  input.addEventListener('keydown', (e) => e.stopPropagation());
  wrap.append(input, label);
  return wrap;
}

// A switch sends its new state at once; a tap anywhere on its row flips it too.
function switchControl(row) {
  const label = el('label', 'switch');
  const input = el('input');
  input.type = 'checkbox';
  input.setAttribute('role', 'switch');
  input.checked = !!row.switch;
  input.setAttribute('aria-label', row.text);
  input.addEventListener('change', () => sendScreen('row', row.id, 'change', input.checked));
  label.append(input, el('span', 'knob'));
  return label;
}

function flipSwitch(li) {
  const input = li.querySelector('.switch input');
  if (!input || frozen()) return;
  input.checked = !input.checked;
  input.dispatchEvent(new Event('change'));
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

// A screen's own shortcut for `key`, if it has one; sent when found.
function screenKey(key) {
  const keys = (state.screen && state.screen.keys) || [];
  const k = keys.find((k) => k.key === key || (key.length === 1 && k.key === key.toLowerCase()));
  if (!k) return false;
  sendScreen('key', k.id);
  return true;
}

// Keys pressed in a card frame come here, as if pressed on the page.
function frameKey(key) {
  if (frozen() || state.alerts.length) return;
  if (screenKey(key)) return;
  if (key === '?') toggleKeysHelp();
  else if (key === 'Escape' && state.screen && state.screen.back) sendScreen('back');
}

function toggleKeysHelp() {
  const box = $('keys-help');
  const keys = ((state.screen && state.screen.keys) || []).filter((k) => k.title);
  if (!keys.length) { box.hidden = true; return; }
  const names = { ' ': 'Space', Enter: 'Return' };
  const list = el('dl');
  for (const k of keys) list.append(el('dt', '', names[k.key] || k.key.toUpperCase()), el('dd', '', k.title));
  list.append(el('dt', '', 'Esc'), el('dd', '', 'Back'));
  box.replaceChildren(el('h2', '', 'Keyboard'), list);
  box.hidden = !box.hidden;
}

document.addEventListener('keydown', (e) => {
  if (recording) { if (recording.dialog) recording.dialog.key(e); return; }
  if (frozen()) { e.preventDefault(); e.stopPropagation(); return; }
  if (state.alerts.length) return;  // the open alert has the keyboard
  if (e.target.closest && e.target.closest('input, textarea')) return;
  if ((e.ctrlKey || e.metaKey) && e.key === 'Enter' && screenKey('Control+Enter')) { e.preventDefault(); return; }
  if (!e.ctrlKey && !e.metaKey && !e.altKey) {
    if (screenKey(e.key)) { e.preventDefault(); return; }
    if (e.key === '?') { toggleKeysHelp(); e.preventDefault(); return; }
  }
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
      if (screenRow && 'switch' in screenRow) { flipSwitch(row); e.preventDefault(); return; }
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
      input.type = f.secure ? 'password' : f.keyboard === 'email' ? 'email' : 'text';
      if (f.keyboard === 'email') input.autocapitalize = 'none';
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

// A web view is a sandboxed frame whose document the program serves (`page.src`, in the
// folder of the profile's media). Its first script (frame.js) talks to this page by messages
// only; this page forwards what the program's contract lists and nothing else. A frame that
// leaves its page or stops answering is put back, and the program told.

const frameOf = (id) => document.querySelector(`iframe[data-web="${CSS.escape(id)}"]`);

function makeFrame(id, title) {
  const frame = el('iframe', 'web-view');
  frame.dataset.web = id;
  frame.setAttribute('sandbox', 'allow-scripts');
  frame.setAttribute('allow', 'autoplay; fullscreen');
  frame.title = title || 'Page';
  frame.addEventListener('load', () => frameLoaded(frame));
  if (state.web[id]) loadFrame(frame, state.web[id]);
  return frame;
}

function loadFrame(frame, page) {
  frame.dataset.expect = '1';
  frame.dataset.page = page.src;
  delete frame.dataset.ready;
  watch.delete(frame);
  frame.src = page.src;
}

function frameLoaded(frame) {
  if (!frame.dataset.page) return;
  const expected = Number(frame.dataset.expect || 0);
  if (expected > 0) { frame.dataset.expect = String(expected - 1); return; }
  restoreFrame(frame, 'navigated');
}

function restoreFrame(frame, reason) {
  const id = frame.dataset.web;
  const page = state.web[id];
  if (!page) return;
  postInOrder({ web: id, kind: 'failed', reason });
  if (reason === 'unresponsive') {
    // A busy frame can't be reloaded in place: a new one takes its place.
    const fresh = makeFrame(id, frame.title);
    frame.replaceWith(fresh);
  } else {
    loadFrame(frame, page);
  }
}

// Every second each frame is asked to answer; one silent for 2.5 seconds is stuck. When this
// page's own timer came late, the whole tab was held up (a loaded machine, a laptop waking):
// the frames are asked again rather than judged, as replacing one loses what was typed in it.
const watch = new Map();
let lastTick = performance.now();
setInterval(() => {
  const now = performance.now();
  const late = now - lastTick > 2000;
  lastTick = now;
  if (document.hidden) return;
  for (const frame of document.querySelectorAll('iframe[data-web]')) {
    if (!frame.dataset.ready || !frame.contentWindow) continue;
    const w = watch.get(frame) || { seq: 0, since: 0 };
    if (late) w.since = 0;
    if (w.since && now - w.since > 2500) {
      watch.delete(frame);
      restoreFrame(frame, 'unresponsive');
      continue;
    }
    if (!w.since) {
      w.since = now;
      w.seq += 1;
      watch.set(frame, w);
      frame.contentWindow.postMessage({ rivo: 'ping', seq: w.seq }, '*');
    }
  }
}, 1000);

window.addEventListener('message', (e) => {
  const frame = [...document.querySelectorAll('iframe[data-web]')].find((f) => f.contentWindow === e.source);
  if (!frame || !e.data || typeof e.data !== 'object') return;
  const web = frame.dataset.web;
  const m = e.data;
  const short = (v, n = 16) => typeof v === 'string' && v.length <= n;
  switch (m.rivo) {
    case 'result':
      if (Number.isInteger(m.call) && m.call > 0) post({ web, kind: 'result', call: m.call, result: String(m.result) });
      break;
    case 'loaded':
      frame.dataset.ready = '1';
      watch.delete(frame);
      postInOrder({ web, kind: 'loaded' });
      break;
    case 'pong': {
      const w = watch.get(frame);
      if (w && w.seq === m.seq) w.since = 0;
      break;
    }
    case 'navigate':
      if (short(m.url, 65536)) postInOrder({ web, kind: 'navigate', url: m.url, navigation: m.navigation === 'link' ? 'link' : 'other' });
      break;
    case 'gesture': {
      const g = m.gesture || {};
      const num = (v) => (Number.isFinite(v) ? v : 0);
      if (short(g.kind) && (g.direction === undefined || short(g.direction)))
        postInOrder({ web, kind: 'gesture', gesture: { kind: g.kind, direction: g.direction || '', x: num(g.x), width: num(g.width), velocity: num(g.velocity) } });
      break;
    }
    case 'key':
      if (short(m.key)) frameKey(m.key);
      break;
    case 'image': {
      // A picture pasted or dropped into a frame goes where the screen's image button sends.
      const b = ((state.screen && state.screen.toolbar) || []).find((t) => t.imageWidth);
      if (b && m.file instanceof Blob && !frozen()) uploadImage(b.id, m.file, b.imageWidth);
      break;
    }
  }
});

// The screen around a web view: counts above it, a corner badge, the answer icon that
// flashes, a text field and a drawing area below it. The frame itself is never moved, as
// moving a frame reloads it.
function renderWeb(content, screen, sameScreen) {
  const id = screen.webView;
  let wrap = content.querySelector(':scope > .web-screen');
  if (!wrap || wrap.dataset.web !== id) {
    wrap = el('div', 'web-screen');
    wrap.dataset.web = id;
    const stage = el('div', 'stage');
    stage.append(makeFrame(id, screen.title), el('div', 'badge'), el('div', 'flash'));
    wrap.append(el('div', 'controls'), el('div', 'status'), stage, el('div', 'type-row'), el('div', 'pad-host'));
    content.replaceChildren(wrap);
  }
  renderControls(wrap.querySelector('.controls'), screen.controls);
  renderStatus(wrap.querySelector('.status'), screen.status);
  const badge = wrap.querySelector('.badge');
  badge.hidden = !screen.badge;
  if (screen.badge && !badge.firstChild) badge.append(icon('star'));
  renderFlash(wrap.querySelector('.flash'), screen, sameScreen);
  renderField(wrap.querySelector('.type-row'), screen, id);
  renderPad(wrap.querySelector('.pad-host'), screen);
}

// Segmented controls (scope, period): one group each, the chosen segment pressed.
function renderControls(node, controls) {
  node.hidden = !controls || !controls.length;
  if (node.hidden) { node.replaceChildren(); return; }
  node.replaceChildren(...controls.map((segments) => {
    const group = el('div', 'segments');
    group.setAttribute('role', 'group');
    for (const seg of segments) {
      const b = el('button', 'segment' + (seg.selected ? ' selected' : ''), seg.title);
      b.type = 'button';
      b.dataset.segment = seg.id;
      b.setAttribute('aria-pressed', seg.selected ? 'true' : 'false');
      b.addEventListener('click', () => { if (!seg.selected) sendScreen('segment', seg.id); });
      group.append(b);
    }
    return group;
  }));
}

function renderStatus(node, status) {
  node.hidden = !status;
  if (!status) return;
  const parts = [];
  status.forEach((c, i) => {
    if (i) parts.push(document.createTextNode(' + '));
    const n = el('span', 'count-' + c.tone + (c.underline ? ' current' : ''), c.text);
    if (c.colour) n.style.color = c.colour;
    parts.push(n);
  });
  node.replaceChildren(...parts);
}

let lastFlash = { screen: null, seq: 0 };
function renderFlash(node, screen, sameScreen) {
  const f = screen.flash;
  const fresh = f && sameScreen && lastFlash.screen === screen.id && f.seq > lastFlash.seq;
  lastFlash = { screen: screen.id, seq: f ? f.seq : 0 };
  if (!fresh) return;
  node.className = 'flash ' + f.icon;
  node.replaceChildren(icon(f.icon === 'cross' ? 'cross' : 'tick'));
  node.getAnimations().forEach((a) => a.cancel());
  node.animate([{ opacity: 1 }, { opacity: 0 }], { duration: 500, easing: 'ease-in', fill: 'forwards' });
}

let fieldSeen = { focus: 0, blur: 0 };
function renderField(row, screen, web) {
  const f = screen.field;
  row.hidden = !f;
  if (!f) { row.replaceChildren(); return; }
  let input = row.querySelector('input');
  if (!input) {
    input = el('input');
    input.type = 'text';
    input.autocomplete = 'off';
    input.spellcheck = false;
    input.setAttribute('autocapitalize', 'off');
    input.setAttribute('aria-label', 'Type the answer');
    const tell = (on) => { const frame = frameOf(web); if (frame && frame.contentWindow) frame.contentWindow.postMessage({ rivo: 'inputFocus', on }, '*'); };
    input.addEventListener('focus', () => { tell(true); postInOrder(screenEvent('field', 'type', 'begin')); });
    input.addEventListener('blur', () => { tell(false); postInOrder(screenEvent('field', 'type', 'end', input.value)); });
    input.addEventListener('keydown', (e) => {
      if (e.key !== 'Enter') return;
      e.preventDefault();
      postInOrder(screenEvent('field', 'type', 'return', input.value));
    });
    row.append(input);
    fieldSeen = { focus: 0, blur: 0 };
  }
  input.placeholder = f.placeholder || '';
  input.style.fontFamily = f.font ? `'${f.font}', sans-serif` : '';
  if (document.activeElement !== input && input.value !== f.text) input.value = f.text;
  if (f.blurSeq > fieldSeen.blur) { fieldSeen.blur = f.blurSeq; input.blur(); }
  if (f.focusSeq > fieldSeen.focus) { fieldSeen.focus = f.focusSeq; input.value = f.text; input.focus(); }
}

// --- Scratchpad ---

// Strokes drawn over a faint grid, kept for one card. A stroke is drawn segment by segment,
// each its own path, so that pressure can widen the line as it goes.
class Scratchpad {
  constructor(canvas) {
    this.canvas = canvas;
    this.strokes = [];
    this.current = [];
    this.forceFactor = 2;
    this.extraWidth = 2;
  }
  clear() { this.strokes = []; this.current = []; this.draw(); }
  undo() { this.strokes.pop(); this.draw(); }
  began(p) { this.current = [p]; this.draw(); }
  moved(points) { if (this.current.length) { this.current.push(...points); this.draw(); } }
  ended(p) {
    if (!this.current.length) return;
    this.current.push(p);
    this.strokes.push(this.current);
    this.current = [];
    this.draw();
  }
  size() {
    const r = this.canvas.getBoundingClientRect();
    return { width: r.width, height: r.height };
  }
  draw() {
    const { width, height } = this.size();
    const ratio = window.devicePixelRatio || 1;
    if (this.canvas.width !== Math.round(width * ratio)) this.canvas.width = Math.round(width * ratio);
    if (this.canvas.height !== Math.round(height * ratio)) this.canvas.height = Math.round(height * ratio);
    const ctx = this.canvas.getContext('2d');
    ctx.setTransform(ratio, 0, 0, ratio, 0, 0);
    ctx.fillStyle = '#fff';
    ctx.fillRect(0, 0, width, height);
    this.drawGrid(ctx, width, height);
    for (const s of this.strokes) this.stroke(ctx, s);
    this.stroke(ctx, this.current);
  }
  drawGrid(ctx, width, height) {
    if (height < 8) return;
    const cell = Math.floor(height / 8);
    const count = Math.floor(width / cell);
    const r = width - count * cell;
    ctx.beginPath();
    for (let i = 1; i <= 7; i++) { ctx.moveTo(0, i * cell); ctx.lineTo(width, i * cell); }
    for (let i = 1; i < count; i++) { ctx.moveTo(i * cell + r, 0); ctx.lineTo(i * cell + r, height); }
    ctx.lineWidth = 0.2;
    ctx.strokeStyle = '#b4b4b4';
    ctx.stroke();
  }
  stroke(ctx, points) {
    if (points.length < 3) return;
    let f = points[0].force;
    ctx.strokeStyle = '#000';
    ctx.lineCap = 'round';
    // The last point is not used.
    for (let i = 0; i + 1 <= points.length - 2; i++) {
      const a = points[i], b = points[i + 1];
      ctx.beginPath();
      ctx.moveTo(a.x, a.y);
      if (b.force > 0) {
        f = (f + b.force) / 2;
        ctx.lineWidth = this.extraWidth + f * this.forceFactor;
      } else {
        ctx.lineWidth = this.extraWidth;
      }
      ctx.lineTo(b.x, b.y);
      ctx.stroke();
    }
  }
}

let padClearSeq = -1;
function renderPad(host, screen) {
  const p = screen.pad;
  host.hidden = !p;
  if (!p) return;
  let canvas = host.querySelector('canvas');
  if (!canvas) {
    canvas = el('canvas', 'pad');
    canvas.setAttribute('aria-label', 'Scratchpad');
    const pad = new Scratchpad(canvas);
    host.pad = pad;
    let drawing = false;
    const at = (e, force) => {
      const r = canvas.getBoundingClientRect();
      return { x: e.clientX - r.left, y: e.clientY - r.top, force };
    };
    canvas.addEventListener('pointerdown', (e) => {
      drawing = true;
      canvas.setPointerCapture(e.pointerId);
      pad.began(at(e, 0));
    });
    canvas.addEventListener('pointermove', (e) => {
      if (!drawing) return;
      // Pressure only where the device gives it; fast strokes keep all their samples.
      const force = e.pointerType === 'pen' ? e.pressure : 0;
      const events = e.getCoalescedEvents ? e.getCoalescedEvents() : [e];
      pad.moved((events.length ? events : [e]).map((c) => at(c, force)));
    });
    const end = (e) => { if (drawing) { drawing = false; pad.ended(at(e, 0)); } };
    canvas.addEventListener('pointerup', end);
    canvas.addEventListener('pointercancel', end);
    const tools = el('div', 'pad-tools');
    const undo = barButton({ id: 'pad-undo', title: 'Undo Stroke', icon: 'undo' }, () => pad.undo());
    const clear = barButton({ id: 'pad-clear', title: 'Clear', icon: 'trash' }, () => pad.clear());
    tools.append(undo, clear);
    host.replaceChildren(canvas, tools);
    new ResizeObserver(() => pad.draw()).observe(canvas);
  }
  host.pad.forceFactor = p.forceFactor;
  host.pad.extraWidth = p.extraWidth;
  if (p.clearSeq !== padClearSeq) { padClearSeq = p.clearSeq; host.pad.clear(); }
}

// --- Toolbar and answer buttons ---

function renderToolbar(screen) {
  const bar = $('toolbar');
  bar.classList.toggle('answer-bar', !!screen.actions);
  bar.classList.toggle('big', !!screen.bigActions);
  if (!screen.actions) {
    bar.replaceChildren(...(screen.toolbar || []).flatMap(toolbarButton));
    return;
  }
  bar.replaceChildren(...screen.actions.map((b) => {
    const button = el('button', 'answer ' + (b.tone || 'tint'));
    button.type = 'button';
    button.dataset.button = b.id;
    button.append(el('span', 'answer-title', b.title));
    if (b.detail) button.append(el('span', 'answer-detail', b.detail));
    button.addEventListener('click', () => sendScreen('button', b.id));
    return button;
  }));
}

// --- Sound ---

// One audio element plays what the program asks; each command carries the sequence number
// the program checks the reports against.
let audio = null;
let playing = null;
function playAudio(c) {
  if (!audio) {
    audio = el('audio');
    audio.id = 'audio-player';
    audio.preload = 'auto';
    document.body.append(audio);
    const report = (kind, message) => {
      if (!playing) return;
      const p = playing;
      if (kind !== 'decode' && kind !== 'error' && kind !== 'ended') return;
      postInOrder({ audio: p.id, kind, seq: p.seq, message: message || '' });
      if (kind !== 'ended') playing = null;
    };
    audio.addEventListener('ended', () => report('ended'));
    audio.addEventListener('error', () => {
      const err = audio.error;
      if (!err || !playing) return;
      report(err.code === 3 ? 'decode' : 'error', err.message || `media error ${err.code}`);
    });
    audio.report = report;
  }
  if (c.action === 'stop') {
    if (playing && playing.id === c.id) {
      playing = null;
      audio.pause();
      audio.removeAttribute('src');
      audio.load();
    }
    return;
  }
  if (c.action !== 'play' || document.visibilityState !== 'visible') return;
  playing = { id: c.id, seq: c.seq };
  audio.src = c.src;
  audio.play().catch((err) => {
    // Blocked before the user has touched the page: the queue goes on, silently.
    if (err && err.name === 'NotAllowedError' && playing && playing.seq === c.seq) audio.report('ended');
  });
}

connect();
