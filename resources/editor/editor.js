// The editor page's side of the editor contract: the `rivo` object the program calls, and the
// reports it sends back as fragments of this page's URL ("command:number:data"). Runs inside
// the editor's sandboxed frame; frame.js carries the reports to the program.
'use strict';

window.rivo = (() => {
  // Reports longer than this travel only in removeFocus()'s answer.
  const MAX_REPORT = 60000;
  // What one answer of the page can carry to the program.
  const MAX_ANSWER = 200000;
  // Elements of field HTML that would act on this page (run, restyle it, load other pages).
  const ACTIVE = 'script, style, link, meta, base, iframe, frame, frameset, object, embed, noscript, template';

  let seq = 0;
  let names = [];
  let values = [];      // what each field holds now, as the program will store it
  let sent = [];        // what each field last reported
  let boxes = [];
  let tags = [];
  let allTags = [];
  let savedRange = null;  // { idx, range }
  let lastField = -1;
  let timers = [];
  let lastState = '';

  const $ = (id) => document.getElementById(id);

  function send(command, data) {
    seq += 1;
    const url = location.href.split('#')[0] + '#' + command + ':' + seq + ':' + encodeURIComponent(data);
    if (url.length > MAX_REPORT) return false;
    window.rivoSignal(url, 'other');
    return true;
  }

  // --- Field HTML in and out ---

  // Field HTML is parsed in a document without a window, so nothing in it runs or loads
  // while it is being made safe to show: handlers are renamed and active elements become
  // inert chips; fromEditable() undoes both.
  function inertDoc(html) {
    const doc = document.implementation.createHTMLDocument('');
    doc.body.innerHTML = html;
    return doc;
  }

  function toEditable(html) {
    const doc = inertDoc(html);
    for (const node of doc.body.querySelectorAll(ACTIVE)) {
      const chip = doc.createElement('span');
      chip.className = 'inert';
      chip.contentEditable = 'false';
      chip.dataset.raw = node.outerHTML;
      chip.textContent = '\u2039' + node.localName + '\u203a';
      node.replaceWith(chip);
    }
    for (const node of doc.body.querySelectorAll('*')) {
      for (const a of [...node.attributes]) {
        if (!/^on/i.test(a.name)) continue;
        node.setAttribute('data-rivo-' + a.name, a.value);
        node.removeAttribute(a.name);
      }
    }
    return doc.body.innerHTML;
  }

  function fromEditable(box) {
    const doc = inertDoc(box.innerHTML);
    for (const chip of doc.body.querySelectorAll('span.inert[data-raw]')) {
      const t = doc.createElement('template');
      t.innerHTML = chip.dataset.raw;
      chip.replaceWith(t.content);
    }
    for (const node of doc.body.querySelectorAll('*')) {
      for (const a of [...node.attributes]) {
        if (!a.name.startsWith('data-rivo-on')) continue;
        node.setAttribute(a.name.slice(10), a.value);
        node.removeAttribute(a.name);
      }
    }
    return doc.body.innerHTML;
  }

  // --- Fields ---

  function valueOf(idx) {
    const box = boxes[idx];
    if (!box) return values[idx];
    return box.localName === 'textarea' ? box.value : fromEditable(box);
  }

  function changed(idx) {
    values[idx] = valueOf(idx);
    clearTimeout(timers[idx]);
    timers[idx] = setTimeout(() => report(idx), 250);
  }

  function report(idx) {
    clearTimeout(timers[idx]);
    if (values[idx] === sent[idx]) return;
    const ok = send('field', JSON.stringify({ idx, data: values[idx] }));
    boxes[idx].classList.toggle('too-long', !ok && values[idx].length > MAX_ANSWER);
    if (ok) sent[idx] = values[idx];
  }

  function reportAll() {
    for (let i = 0; i < boxes.length; i++) {
      if (boxes[i] && boxes[i].localName !== 'textarea' && document.activeElement === boxes[i]) values[i] = valueOf(i);
      report(i);
    }
  }

  function setFields(items) {
    const host = $('fields');
    host.replaceChildren();
    names = items.map((i) => String(i[0]));
    values = items.map((i) => String(i[1]));
    sent = values.slice();
    boxes = [];
    timers = [];
    savedRange = null;
    lastField = -1;
    items.forEach((item, idx) => {
      const block = document.createElement('div');
      block.className = 'field-block';
      const label = document.createElement('label');
      label.className = 'field-name';
      label.textContent = names[idx];
      label.id = 'name-' + idx;
      let box;
      if (rivo.wysiwygMode) {
        box = document.createElement('div');
        box.contentEditable = 'true';
        box.innerHTML = toEditable(values[idx]);
        box.setAttribute('role', 'textbox');
        box.setAttribute('aria-multiline', 'true');
        box.setAttribute('aria-labelledby', label.id);
        label.addEventListener('click', () => box.focus());
      } else {
        box = document.createElement('textarea');
        box.value = values[idx];
        box.spellcheck = false;
        box.id = 'field-' + idx;
        label.htmlFor = box.id;
      }
      box.className = 'field';
      box.dataset.idx = idx;
      box.addEventListener('input', () => changed(idx));
      box.addEventListener('focus', () => { lastField = idx; });
      box.addEventListener('blur', () => { if (document.hasFocus()) report(idx); });
      if (box.localName !== 'textarea') {
        box.addEventListener('paste', (e) => pasted(e));
        box.addEventListener('drop', (e) => dropped(e));
      }
      boxes.push(box);
      block.append(label, box);
      host.append(block);
    });
    sendState();
  }

  // --- Selection and format ---

  function fieldOf(node) {
    const el = node && (node.nodeType === 1 ? node : node.parentElement);
    return el && el.closest ? el.closest('.field') : null;
  }

  document.addEventListener('selectionchange', () => {
    const sel = document.getSelection();
    if (sel.rangeCount && fieldOf(sel.anchorNode)) {
      savedRange = { idx: Number(fieldOf(sel.anchorNode).dataset.idx), range: sel.getRangeAt(0).cloneRange() };
    }
    sendState();
  });

  function saveSelection() {
    const sel = document.getSelection();
    if (sel.rangeCount && fieldOf(sel.anchorNode))
      savedRange = { idx: Number(fieldOf(sel.anchorNode).dataset.idx), range: sel.getRangeAt(0).cloneRange() };
  }

  // Puts the input back where it was: the toolbar lives outside this frame. The selection in
  // a field wins; the one saved before a picker or a screen above, after it.
  function restoreSelection() {
    const sel = document.getSelection();
    let range = sel.rangeCount && fieldOf(sel.anchorNode) ? sel.getRangeAt(0).cloneRange() : null;
    let box = range ? fieldOf(range.startContainer) : null;
    if (!box) {
      box = boxes[savedRange ? savedRange.idx : (lastField >= 0 ? lastField : 0)];
      if (box && savedRange && box.contains(savedRange.range.startContainer)) range = savedRange.range;
    }
    if (!box) return null;
    if (document.activeElement !== box) box.focus({ preventScroll: true });
    if (box.localName === 'textarea') return box;
    if (!range) {
      range = document.createRange();
      range.selectNodeContents(box);
      range.collapse(false);
    }
    sel.removeAllRanges();
    sel.addRange(range);
    return box;
  }

  function setFormat(command, value) {
    const box = restoreSelection();
    if (!box || box.localName === 'textarea') return;
    document.execCommand(command, false, value === undefined ? null : value);
    changed(Number(box.dataset.idx));
    sendState();
  }

  function wrap(before, after) {
    const box = restoreSelection();
    if (!box) return;
    if (box.localName === 'textarea') {
      const s = box.selectionStart, e = box.selectionEnd;
      box.setRangeText(before + box.value.slice(s, e) + after, s, e, 'end');
      changed(Number(box.dataset.idx));
      return;
    }
    const sel = document.getSelection();
    const holder = document.createElement('div');
    if (sel.rangeCount) holder.append(sel.getRangeAt(0).cloneContents());
    const escape = (t) => t.replace(/&/g, '&amp;').replace(/</g, '&lt;');
    document.execCommand('insertHTML', false, escape(before) + holder.innerHTML + escape(after));
    changed(Number(box.dataset.idx));
  }

  function focusedField() {
    return !!fieldOf(document.activeElement) && document.activeElement.localName !== 'textarea'
      ? true : !!(document.activeElement && document.activeElement.classList.contains('field'));
  }

  function sendState() {
    const sel = document.getSelection();
    const inField = focusedField();
    const query = (c) => { try { return inField && document.queryCommandState(c); } catch (e) { return false; } };
    const state = JSON.stringify({
      focused: inField,
      bold: query('bold'),
      italic: query('italic'),
      under: query('underline'),
      selected: inField && !!sel && sel.rangeCount > 0 && !sel.isCollapsed,
    });
    if (state === lastState) return;
    lastState = state;
    send('state', state);
  }
  document.addEventListener('focusin', () => setTimeout(sendState));
  document.addEventListener('focusout', () => setTimeout(() => { if (document.hasFocus()) sendState(); }));

  // Everything the page holds, for the program to store before it acts: the last edits are
  // in it even when their reports are still on the way.
  function removeFocus() {
    reportAll();
    if (document.activeElement && document.activeElement !== document.body) document.activeElement.blur();
    addTypedTag();
    return pendingChanges();
  }

  // The same, leaving the input where it is (before a cloze number is chosen).
  function pendingChanges() {
    reportAll();
    seq += 1;
    const answer = JSON.stringify({ seq, fields: values, tags });
    if (answer.length > MAX_ANSWER) return JSON.stringify({ seq, tooLong: true });
    return answer;
  }

  function sendHTMLToggle() {
    reportAll();
    send('togglehtml', '');
  }

  // --- Pictures pasted or dropped: the program's page scales and stores them ---

  function imageFile(list) {
    for (const item of list || []) {
      const file = item.kind === 'file' ? item.getAsFile() : item;
      if (file && /^image\//.test(file.type)) return file;
    }
    return null;
  }

  function pasted(e) {
    const file = imageFile(e.clipboardData && e.clipboardData.items);
    if (!file) return;
    e.preventDefault();
    saveSelection();
    parent.postMessage({ rivo: 'image', file }, '*');
  }

  function dropped(e) {
    const file = imageFile(e.dataTransfer && e.dataTransfer.files);
    if (!file) return;
    e.preventDefault();
    const range = document.caretRangeFromPoint && document.caretRangeFromPoint(e.clientX, e.clientY);
    if (range) {
      const sel = document.getSelection();
      sel.removeAllRanges();
      sel.addRange(range);
    }
    saveSelection();
    parent.postMessage({ rivo: 'image', file }, '*');
  }

  // --- Tags ---

  function renderTags() {
    const host = $('tags');
    const input = $('tags-input');
    host.querySelectorAll('.tag').forEach((t) => t.remove());
    for (const tag of tags) {
      const chip = document.createElement('span');
      chip.className = 'tag';
      chip.append(document.createTextNode(tag));
      const x = document.createElement('button');
      x.type = 'button';
      x.textContent = '\u00d7';
      x.setAttribute('aria-label', 'Remove tag ' + tag);
      x.addEventListener('click', () => { tags = tags.filter((t) => t !== tag); tagsChanged(); });
      chip.append(x);
      host.insertBefore(chip, input);
    }
  }

  function tagsChanged() {
    renderTags();
    send('tags', JSON.stringify(tags));
  }

  function addTag(text) {
    const added = String(text).split(/[\s\u3000]+/).filter((t) => t && !tags.includes(t));
    if (!added.length) return false;
    tags = tags.concat(added);
    tagsChanged();
    return true;
  }

  function addTypedTag() {
    const input = $('tags-input');
    if (!input.value.trim()) return;
    addTag(input.value);
    input.value = '';
    suggest();
  }

  let active = -1;
  function suggest() {
    const input = $('tags-input');
    const list = $('tag-suggestions');
    const text = input.value.trim().toLowerCase();
    active = -1;
    if (!text || document.activeElement !== input) { list.hidden = true; return; }
    const starts = [], contains = [];
    for (const t of allTags) {
      const l = t.toLowerCase();
      if (tags.includes(t) || l === text) continue;
      if (l.startsWith(text)) starts.push(t); else if (l.includes(text)) contains.push(t);
      if (starts.length >= 8) break;
    }
    const found = starts.concat(contains).slice(0, 8);
    list.replaceChildren(...found.map((t, i) => {
      const li = document.createElement('li');
      li.textContent = t;
      li.setAttribute('role', 'option');
      li.addEventListener('mousedown', (e) => { e.preventDefault(); input.value = ''; addTag(t); suggest(); });
      li.dataset.i = i;
      return li;
    }));
    list.hidden = !found.length;
  }

  function setupTags() {
    const input = $('tags-input');
    const list = $('tag-suggestions');
    $('tags').addEventListener('click', (e) => { if (e.target === e.currentTarget) input.focus(); });
    input.addEventListener('input', () => {
      if (/[\s,]$/.test(input.value)) { addTag(input.value.replace(/,/g, ' ')); input.value = ''; }
      suggest();
    });
    input.addEventListener('blur', () => { addTypedTag(); list.hidden = true; });
    input.addEventListener('keydown', (e) => {
      const items = [...list.querySelectorAll('li')];
      if ((e.key === 'ArrowDown' || e.key === 'ArrowUp') && items.length && !list.hidden) {
        active = (active + (e.key === 'ArrowDown' ? 1 : items.length - 1)) % items.length;
        items.forEach((li, i) => li.classList.toggle('active', i === active));
        e.preventDefault();
      } else if ((e.key === 'Enter' || e.key === 'Tab') && active >= 0 && !list.hidden) {
        input.value = '';
        addTag(items[active].textContent);
        suggest();
        e.preventDefault();
      } else if (e.key === 'Enter' && !e.ctrlKey && !e.metaKey) {
        addTypedTag();
        e.preventDefault();
      } else if (e.key === 'Backspace' && !input.value && tags.length) {
        tags = tags.slice(0, -1);
        tagsChanged();
      }
    });
  }

  function setTags(noteTags, collectionTags) {
    tags = (noteTags || []).map(String);
    allTags = (collectionTags || []).map(String);
    renderTags();
  }

  // --- Deck, note type, warning ---

  function setDeckAndNoteType(deck, type) {
    const box = $('choosers');
    box.hidden = deck === undefined;
    if (box.hidden) return;
    $('deck').querySelector('.chooser-value').textContent = deck;
    $('notetype').querySelector('.chooser-value').textContent = type;
  }

  function setWarning(text) {
    const w = $('warning');
    w.textContent = text || '';
    w.hidden = !text;
  }

  // Saving and leaving are the screen's keys; the fields would keep them otherwise.
  document.addEventListener('keydown', (e) => {
    if (e.key === 'Enter' && (e.ctrlKey || e.metaKey)) {
      e.preventDefault();
      e.stopPropagation();
      reportAll();
      parent.postMessage({ rivo: 'key', key: 'Control+Enter' }, '*');
    } else if (e.key === 'Escape' && $('tag-suggestions').hidden) {
      e.preventDefault();
      e.stopPropagation();
      parent.postMessage({ rivo: 'key', key: 'Escape' }, '*');
    }
  }, true);

  document.addEventListener('DOMContentLoaded', () => {
    setupTags();
    $('deck').addEventListener('click', () => { reportAll(); send('changeDeck', ''); });
    $('notetype').addEventListener('click', () => { reportAll(); send('changeNoteType', ''); });
    window.addEventListener('error', (e) => send('log', String(e.message).slice(0, 300)));
  });

  return {
    wysiwygMode: true,
    setFields, setTags, setDeckAndNoteType, setFormat, wrap, saveSelection, restoreSelection,
    removeFocus, pendingChanges, sendHTMLToggle, setWarning,
  };
})();
