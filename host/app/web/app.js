// The browser console of wks-host: one WebSocket to /ws carrying this tab's session (lines and
// their replies), the workspace tree and the object's property pages, all as JSON frames.
'use strict';

const $ = (id) => document.getElementById(id);
const statusLine = $('status'), reconnect = $('reconnect');
const authForm = $('auth'), tokenInput = $('token');
const tree = $('tree'), log = $('console-log'), input = $('console-input'), send = $('console-send');
const settings = $('settings'), parameters = $('parameters');

let socket = null;
let token = null;           // only ever held here: never stored, never put in the address
let nextId = 1;
const pending = new Map();  // line id -> its entry in the log, until the reply comes
const earlier = [];         // the lines sent, for ArrowUp/ArrowDown
let recalled = 0;           // where ArrowUp/ArrowDown are in earlier; earlier.length is the draft
let draft = '';
let pagesShape = '';        // what the property pages are made of, so that new values only update them
let lastParameter = null;   // the parameter input last applied, to point at when an error answers it
const values = new Map();   // an object's path -> where its value is shown, for the values frames

function el(tag, className, text) {
  const node = document.createElement(tag);
  if (className) node.className = className;
  if (text !== undefined) node.textContent = text;
  return node;
}

function setState(state, text) {
  statusLine.dataset.state = state;
  statusLine.textContent = text;
  reconnect.hidden = state !== 'closed' && state !== 'ended';
  const usable = state === 'connected';
  input.disabled = send.disabled = !usable;
  for (const control of document.querySelectorAll('#settings [data-item], #parameters [data-parameter]')) {
    control.disabled = !usable;
  }
}

function notice(text, className) {
  const item = el('li', 'notice ' + (className || ''), text);
  if (className === 'error') item.setAttribute('role', 'alert');
  log.append(item);
  item.scrollIntoView({block: 'nearest'});
}

function connect() {
  if (socket) socket.close();
  setState('connecting', 'Connecting…');
  const ws = new WebSocket((location.protocol === 'https:' ? 'wss://' : 'ws://') + location.host + '/ws');
  socket = ws;
  ws.onmessage = (event) => {
    if (ws === socket) receive(JSON.parse(event.data));
  };
  ws.onclose = (event) => {
    if (ws !== socket) return;
    socket = null;
    authForm.hidden = true;
    for (const entry of pending.values()) {
      entry.classList.remove('pending');
      entry.append(el('div', 'none', 'no reply: the connection closed'));
    }
    pending.clear();
    // The host says why it closed a tab (an idle timeout, its stop, a refusal) in the close frame.
    if (statusLine.dataset.state !== 'ended') setState('closed', event.reason ? `Closed: ${event.reason}` : 'Closed');
    const focused = document.activeElement;
    if (!focused || focused === document.body || focused.disabled || !focused.offsetParent) reconnect.focus();
  };
}

function receive(frame) {
  switch (frame.type) {
    case 'hello':
      if (!frame.auth) break;
      setState('auth', 'Token required');
      if (token !== null) { socket.send(JSON.stringify({type: 'auth', token})); break; }
      authForm.hidden = false;
      tokenInput.focus();
      break;
    case 'ready':
      authForm.hidden = true;
      setState('connected', 'Connected');
      input.focus();
      break;
    case 'reply': showReply(frame); break;
    case 'tree': showTree(frame.objects); break;
    case 'values': showValues(frame.objects); break;
    case 'pages': showPages(frame.items, frame.parameters); break;
    case 'error':
      if (statusLine.dataset.state === 'auth') token = null;
      if (lastParameter && lastParameter.isConnected) lastParameter.setAttribute('aria-invalid', 'true');
      notice('Error: ' + frame.text, 'error');
      break;
  }
}

// The console: each line sent is an entry, its replies are added under it when they come.
$('console-form').addEventListener('submit', (event) => {
  event.preventDefault();
  const text = input.value;
  if (!text || !socket || statusLine.dataset.state !== 'connected') return;
  const id = nextId++;
  const entry = el('li', 'entry pending');
  entry.dataset.id = id;
  const line = el('div', 'line');
  line.append(el('span', 'prompt', '>'), el('kbd', 'sent', text));
  entry.append(line);
  log.append(entry);
  entry.scrollIntoView({block: 'nearest'});
  pending.set(id, entry);
  socket.send(JSON.stringify({type: 'line', id, text}));
  if (earlier[earlier.length - 1] !== text) earlier.push(text);
  recalled = earlier.length;
  draft = '';
  input.value = '';
});

input.addEventListener('keydown', (event) => {
  if (event.key !== 'ArrowUp' && event.key !== 'ArrowDown') return;
  if (recalled === earlier.length) draft = input.value;
  const to = recalled + (event.key === 'ArrowUp' ? -1 : 1);
  if (to < 0 || to > earlier.length) return;
  event.preventDefault();
  recalled = to;
  input.value = to === earlier.length ? draft : earlier[to];
  input.setSelectionRange(input.value.length, input.value.length);
});

function showReply(frame) {
  const entry = pending.get(frame.id);
  if (!entry) return;
  pending.delete(frame.id);
  entry.classList.remove('pending');
  const replies = frame.replies || [];
  if (!replies.length && !frame.ended) entry.append(el('div', 'none', 'done, no reply'));
  replies.forEach((text, i) => {
    const failed = frame.failed && frame.failed[i];
    const row = el('div', failed ? 'answer failed' : 'answer');
    if (failed) row.append(el('span', 'tag', 'failed'));
    row.append(el('samp', failed ? 'reply failed' : 'reply', text));
    entry.append(row);
  });
  entry.scrollIntoView({block: 'nearest'});
  if (frame.ended) {
    setState('ended', 'Session ended');
    notice('Session ended', 'ended');
    reconnect.focus();
  }
}

// The workspace: built from the tree frame; objects nest in the lists of their parents. The values
// frames that follow change the values shown.
// The tree is built detached and goes into the page at once, and an object gets a list for its
// children only when it has some: a workspace of tens of thousands of objects is built in one pass
// over half the elements.
function showTree(objects) {
  values.clear();
  const top = document.createDocumentFragment();
  const items = [];  // the item of the object last seen at each depth
  for (const object of objects) {
    const depth = Math.min(object.depth, items.length);
    items.length = depth;
    const item = el('li');
    const row = el('div', 'object');
    row.dataset.path = object.path;
    row.dataset.kind = object.kind;
    const value = el('span', 'value');
    showValue(value, object.kind, object.value);
    values.set(object.path, value);
    row.append(el('span', 'name', object.name), el('span', 'kind', object.kind), value);
    item.append(row);
    if (depth === 0) {
      top.append(item);
    } else {
      const parent = items[depth - 1];
      if (parent.lastChild.tagName !== 'UL') parent.append(el('ul'));
      parent.lastChild.append(item);
    }
    items.push(item);
  }
  tree.replaceChildren(top);
}

function showValue(node, kind, text) {
  node.textContent = text;
  if (kind === 'step' || kind === 'io') {
    const on = text === 'on' || text === '1';
    node.classList.add('badge');
    node.classList.toggle('on', on);
    node.classList.toggle('off', !on);
  }
}

function showValues(objects) {
  for (const object of objects) {
    const node = values.get(object.path);
    if (node) showValue(node, node.parentElement.dataset.kind, object.value);
  }
}

// The property pages: made from what the frame describes, so any item of any component fits.
function showPages(items, params) {
  const shape = JSON.stringify([items.map(({value, ...rest}) => rest), params.map(({value, ...rest}) => rest)]);
  if (shape !== pagesShape) {
    pagesShape = shape;
    settings.replaceChildren(...items.map(makeItem));
    parameters.replaceChildren(...params.map(makeParameter));
    setState(statusLine.dataset.state, statusLine.textContent);
  }
  for (const item of items) {
    const control = settings.querySelector(`[data-item="${item.id}"]`);
    if (control.type === 'checkbox') control.checked = item.value !== item.min;
    else if (document.activeElement !== control || control.tagName === 'SELECT') control.value = item.value;
    control.dataset.server = String(item.value);
    control.removeAttribute('aria-invalid');
  }
  for (const param of params) {
    const control = parameters.querySelector(`[data-parameter="${param.index}"]`);
    if (document.activeElement !== control || control.value === control.dataset.server) control.value = param.value;
    control.dataset.server = param.value;
    control.removeAttribute('aria-invalid');
  }
  lastParameter = null;
}

function field(labelText, control, note) {
  const row = el('div', 'field');
  const label = el('label', null, labelText);
  label.htmlFor = control.id;
  row.append(label, control);
  if (note) row.append(el('span', 'note', note));
  return row;
}

function makeItem(item) {
  let control;
  if (item.kind === 'range' && item.min === 0 && item.max === 1) {
    control = el('input');
    control.type = 'checkbox';
    control.addEventListener('change', () => setItem(control, control.checked ? item.max : item.min));
  } else if (item.kind === 'range') {
    control = el('input');
    control.type = 'number';
    control.min = item.min;
    control.max = item.max;
    control.step = 1;
    const apply = () => {
      const value = Number(control.value);
      if (control.value === control.dataset.server) return;
      if (control.value === '' || !Number.isInteger(value) || value < item.min || value > item.max) {
        control.setAttribute('aria-invalid', 'true');
      } else {
        control.removeAttribute('aria-invalid');
        setItem(control, value);
      }
    };
    control.addEventListener('change', apply);
    control.addEventListener('keydown', (event) => { if (event.key === 'Enter') apply(); });
  } else if (item.kind === 'enumeration') {
    control = el('select');
    for (const choice of item.choices) {
      const option = el('option', null, choice.text);
      option.value = choice.value;
      control.append(option);
    }
    control.addEventListener('change', () => setItem(control, Number(control.value)));
  } else if (item.kind === 'real' || item.kind === 'text') {
    control = el('input');
    control.autocomplete = 'off';
    if (item.kind === 'real') control.inputMode = 'decimal';
    const apply = () => {
      if (control.value === control.dataset.server) return;
      const value = item.kind === 'real' ? Number(control.value) : control.value;
      if (item.kind === 'real' && (control.value.trim() === '' || !Number.isFinite(value))) {
        control.setAttribute('aria-invalid', 'true');
        return;
      }
      control.removeAttribute('aria-invalid');
      setItem(control, value);
    };
    control.addEventListener('change', apply);
    control.addEventListener('keydown', (event) => { if (event.key === 'Enter') apply(); });
  } else {
    control = el('output', null, String(item.value));
  }
  control.id = 'item-' + item.id;
  control.dataset.item = item.id;
  const note = item.kind === 'range' && control.type === 'number' ? `${item.min} to ${item.max}` : '';
  return field(item.caption, control, note);
}

function setItem(control, value) {
  if (!socket) return;
  control.dataset.server = String(value);
  socket.send(JSON.stringify({type: 'control', item: Number(control.dataset.item), value}));
}

function makeParameter(param) {
  const control = el('input');
  control.id = 'parameter-' + param.index;
  control.dataset.parameter = param.index;
  control.autocomplete = 'off';
  control.spellcheck = false;
  if (param.type === 'integer') control.inputMode = 'numeric';
  if (param.type === 'real') control.inputMode = 'decimal';
  const apply = () => {
    if (!socket || control.value === control.dataset.server) return;
    control.dataset.server = control.value;
    control.removeAttribute('aria-invalid');
    lastParameter = control;
    socket.send(JSON.stringify({type: 'parameter', index: param.index, value: control.value}));
  };
  control.addEventListener('change', apply);
  control.addEventListener('keydown', (event) => { if (event.key === 'Enter') apply(); });
  return field(param.name, control, param.type);
}

authForm.addEventListener('submit', (event) => {
  event.preventDefault();
  if (!socket) return;
  token = tokenInput.value;
  tokenInput.value = '';
  authForm.hidden = true;
  socket.send(JSON.stringify({type: 'auth', token}));
});

reconnect.addEventListener('click', () => {
  notice('Reconnecting', 'info');
  connect();
});

connect();
