// The inspector page of `memtool serve`: search, live values, editing, plots,
// the event log, the user setups and the unit's identity.  Everything comes
// from the server that served the page; nothing is fetched from elsewhere.
'use strict';
(() => {
  const token = new URLSearchParams(location.search).get('token') || '';
  const readOnly = document.body.dataset.readOnly === 'true';
  const byId = (id) => document.getElementById(id);

  const SHOWN_LIMIT = 150;
  const LOG_LIMIT = 500;
  const LOG_SHOWN = 200;
  const PALETTE = ['#1f77b4', '#d62728', '#2ca02c', '#9467bd', '#ff7f0e', '#17becf', '#8c564b'];

  // ---- talking to the server -------------------------------------------

  class ApiError extends Error {
    constructor(status, text) {
      super(text || 'HTTP ' + status);
      this.status = status;
    }
  }

  async function api(path, options = {}) {
    const headers = Object.assign({ Authorization: 'Bearer ' + token }, options.headers || {});
    const response = await fetch(path, Object.assign({}, options, { headers, cache: 'no-store' }));
    const text = await response.text();
    if (!response.ok) {
      throw new ApiError(response.status, text.trim());
    }
    return text ? JSON.parse(text) : null;
  }

  // Runs at most `count` of the given jobs at once.
  function limiter(count) {
    let running = 0;
    const waiting = [];
    const next = () => {
      if (running >= count || waiting.length === 0) {
        return;
      }
      running++;
      const { job, resolve, reject } = waiting.shift();
      job().then(resolve, reject).finally(() => {
        running--;
        next();
      });
    };
    return (job) => new Promise((resolve, reject) => {
      waiting.push({ job, resolve, reject });
      next();
    });
  }
  const queue = limiter(4);

  function showProblem(text) {
    const problem = byId('problem');
    problem.textContent = text;
    problem.hidden = !text;
  }

  function failed(error) {
    if (error instanceof ApiError && error.status === 401) {
      showProblem('The server wants its token: open the address that memtool serve printed, ' +
                  'with its ?token=… part.');
    } else {
      showProblem(String(error.message || error));
    }
  }

  // ---- the catalogue and the values --------------------------------------

  const variables = [];            // every variable of every memory, in catalogue order
  const byKey = new Map();          // "Memory.Variable" -> variable
  const values = new Map();         // memory -> Promise of {name: value}
  const current = new Map();        // key -> value as the server last gave it
  const descriptions = new Map();   // key -> Promise of the describe object

  const keyOf = (memory, name) => memory + '.' + name;

  function isNumeric(variable) {
    return !variable.arrayLength && (variable.type === 'int' || variable.type === 'float');
  }

  function loadValues(memory) {
    if (!values.has(memory)) {
      const loading = queue(() => api('/api/values/' + encodeURIComponent(memory)));
      values.set(memory, loading);
      loading.then((all) => {
        for (const [name, value] of Object.entries(all)) {
          current.set(keyOf(memory, name), value);
          refresh(keyOf(memory, name), false);
        }
      }, (error) => {
        values.delete(memory);
        for (const variable of variables) {
          if (variable.memory === memory) {
            noteFor(variable.key, error.message);
          }
        }
      });
    }
    return values.get(memory);
  }

  function describe(variable) {
    if (!descriptions.has(variable.key)) {
      const path = '/api/describe/' + encodeURIComponent(variable.memory) + '/' +
                   encodeURIComponent(variable.name);
      const loading = queue(() => api(path));
      descriptions.set(variable.key, loading);
      loading.then((description) => {
        described.set(variable.key, description);
        refresh(variable.key, false);
      }, () => descriptions.delete(variable.key));
    }
    return descriptions.get(variable.key);
  }

  const described = new Map(); // key -> describe object, once loaded
  function descriptionNow(key) {
    return described.get(key);
  }

  // ---- showing values ----------------------------------------------------

  function shortValue(value) {
    if (value === undefined) {
      return '…';
    }
    if (value === null) {
      return 'n/a';
    }
    if (Array.isArray(value)) {
      const head = value.slice(0, 6).map(shortValue).join(', ');
      return '[' + head + (value.length > 6 ? ', …' : '') + '] (' + value.length + ')';
    }
    if (typeof value === 'object') {
      return '{' + Object.entries(value).map(([member, field]) =>
        member + '=' + (field && typeof field === 'object' && 'value' in field
          ? field.value : shortValue(field))).join(', ') + '}';
    }
    if (typeof value === 'string') {
      return value === '' ? '""' : value;
    }
    return String(value);
  }

  // The text that `memtool set` takes for a value (one element of an array).
  function editText(value) {
    if (value === undefined || value === null) {
      return '';
    }
    return typeof value === 'object' ? JSON.stringify(value) : String(value);
  }

  function rangeText(variable) {
    if (variable.min !== null && variable.min !== undefined) {
      return variable.min + '..' + variable.max;
    }
    if (variable.enum) {
      return variable.enum.join('|');
    }
    if (variable.capacity) {
      return variable.type === 'string' ? '≤ ' + (variable.capacity - 1) + ' characters'
                                        : variable.capacity + ' bytes';
    }
    return '';
  }

  function metaText(variable) {
    const description = descriptionNow(variable.key);
    const parts = [variable.memory,
                   variable.type + (variable.arrayLength ? '[' + variable.arrayLength + ']' : '')];
    const range = rangeText(variable);
    if (range) {
      parts.push(range);
    }
    parts.push('default ' + (description ? shortValue(description.default) : '…'));
    parts.push(variable.event);
    return parts.join(' · ');
  }

  function differsFromDefault(key) {
    const description = descriptionNow(key);
    const value = current.get(key);
    return description !== undefined && value !== undefined && value !== null &&
           JSON.stringify(value) !== JSON.stringify(description.default);
  }

  // ---- the result list -----------------------------------------------------

  const results = byId('results');
  const rows = new Map(); // key -> {row, value, note, meta}
  let shown = [];
  let selectedKey = null;

  function matches(variable, words) {
    const text = variable.searchText;
    return words.every((word) => text.includes(word));
  }

  function search() {
    const words = byId('search').value.toLowerCase().split(/\s+/).filter(Boolean);
    const found = variables.filter((variable) => matches(variable, words));
    shown = found.slice(0, SHOWN_LIMIT);
    byId('matches').textContent = found.length + (found.length === 1 ? ' variable' : ' variables');
    rows.clear();
    const fragment = document.createDocumentFragment();
    for (const variable of shown) {
      fragment.appendChild(makeRow(variable));
    }
    if (found.length > shown.length) {
      const more = document.createElement('p');
      more.className = 'more muted';
      more.textContent = (found.length - shown.length) + ' more: type more of a name to see them.';
      fragment.appendChild(more);
    }
    results.replaceChildren(fragment);
    results.scrollTop = 0;
    for (const variable of shown) {
      loadValues(variable.memory).catch(() => {});
      describe(variable).catch(() => {});
    }
  }

  function makeRow(variable) {
    const row = document.createElement('div');
    row.className = 'row' + (variable.key === selectedKey ? ' selected' : '');
    row.setAttribute('role', 'row');
    row.dataset.key = variable.key;

    const nameCell = document.createElement('div');
    nameCell.className = 'cell-name';
    nameCell.setAttribute('role', 'gridcell');
    const name = document.createElement('button');
    name.type = 'button';
    name.className = 'var';
    name.textContent = variable.name;
    name.title = 'Show ' + variable.key;
    name.addEventListener('click', () => select(variable.key));
    const meta = document.createElement('span');
    meta.className = 'meta';
    meta.textContent = metaText(variable);
    meta.title = meta.textContent;
    nameCell.append(name, meta);

    const valueCell = document.createElement('div');
    valueCell.className = 'cell-value';
    valueCell.setAttribute('role', 'gridcell');
    const value = document.createElement('button');
    value.type = 'button';
    value.className = 'val';
    value.textContent = shortValue(current.get(variable.key));
    value.disabled = readOnly;
    value.setAttribute('aria-label', variable.name + ' value' + (readOnly ? '' : ', Enter edits'));
    value.addEventListener('click', () => startEdit(variable));
    value.addEventListener('animationend', () => value.classList.remove('flash'));
    const note = document.createElement('span');
    note.className = 'note';
    note.setAttribute('aria-live', 'polite');
    valueCell.append(value, note);

    const plotCell = document.createElement('div');
    plotCell.setAttribute('role', 'gridcell');
    const plot = document.createElement('button');
    plot.type = 'button';
    plot.className = 'plot';
    plot.textContent = 'Plot';
    plot.disabled = !isNumeric(variable);
    plot.setAttribute('aria-pressed', String(plots.has(variable.key)));
    plot.setAttribute('aria-label', 'Plot ' + variable.name);
    plot.addEventListener('click', () => togglePlot(variable));
    plotCell.append(plot);

    row.append(nameCell, valueCell, plotCell);
    rows.set(variable.key, { row, value, note, meta, plot });
    paintValue(variable.key, false);
    return row;
  }

  function paintValue(key, changed) {
    const parts = rows.get(key);
    if (!parts || parts.editing) {
      return;
    }
    const text = shortValue(current.get(key));
    parts.value.textContent = text;
    parts.value.title = text;
    parts.value.classList.toggle('nondefault', differsFromDefault(key));
    if (changed) {
      parts.value.classList.remove('flash');
      void parts.value.offsetWidth; // starts the animation again
      parts.value.classList.add('flash');
    }
  }

  // Repaints what shows the variable: its row, the details, a plot.
  function refresh(key, changed) {
    const parts = rows.get(key);
    if (parts) {
      const variable = byKey.get(key);
      parts.meta.textContent = metaText(variable);
      parts.meta.title = parts.meta.textContent;
      paintValue(key, changed);
    }
    if (key === selectedKey) {
      showDetails();
    }
  }

  const refusals = new Map(); // key -> the last refusal of an edit, shown in full in the details
  function noteFor(key, text) {
    refusals.set(key, text);
    const parts = rows.get(key);
    if (parts) {
      parts.note.textContent = text;
      parts.note.title = text;
    }
    if (key === selectedKey) {
      showDetails();
    }
  }

  // ---- editing in place ----------------------------------------------------

  function startEdit(variable) {
    const parts = rows.get(variable.key);
    if (readOnly || !parts || parts.editing) {
      return;
    }
    const form = document.createElement('form');
    form.className = 'edit';
    let index = null;
    if (variable.arrayLength) {
      index = document.createElement('input');
      index.type = 'number';
      index.min = '0';
      index.max = String(variable.arrayLength - 1);
      index.value = '0';
      index.className = 'index';
      index.setAttribute('aria-label', 'Element of ' + variable.name);
      form.append(index);
    }
    const input = document.createElement('input');
    input.type = 'text';
    input.className = 'edit-value';
    input.autocomplete = 'off';
    input.spellcheck = false;
    input.setAttribute('aria-label', 'New value of ' + variable.name);
    const element = () => {
      const value = current.get(variable.key);
      return index && Array.isArray(value) ? value[Number(index.value)] : value;
    };
    input.value = editText(element());
    if (index) {
      index.addEventListener('input', () => { input.value = editText(element()); });
    }
    if (variable.enum || variable.type === 'bool') {
      const list = document.createElement('datalist');
      list.id = 'choices-' + variable.key.replace(/\W/g, '-');
      for (const choice of variable.enum || ['false', 'true']) {
        const option = document.createElement('option');
        option.value = choice;
        list.append(option);
      }
      input.setAttribute('list', list.id);
      form.append(list);
    }
    form.append(input);
    const finish = () => {
      parts.editing = false;
      form.replaceWith(parts.value);
      paintValue(variable.key, false);
      parts.value.focus();
    };
    form.addEventListener('keydown', (event) => {
      if (event.key === 'Escape') {
        event.preventDefault();
        event.stopPropagation();
        finish();
      }
    });
    form.addEventListener('submit', async (event) => {
      event.preventDefault();
      let path = '/api/set/' + encodeURIComponent(variable.memory) + '/' +
                 encodeURIComponent(variable.name);
      if (index) {
        path += '?index=' + encodeURIComponent(index.value);
      }
      noteFor(variable.key, '');
      try {
        const answer = await api(path, { method: 'POST', body: input.value,
                                         headers: { 'Content-Type': 'text/plain' } });
        if (index) {
          const whole = current.get(variable.key);
          if (Array.isArray(whole)) {
            whole[Number(index.value)] = answer.value;
          }
        } else {
          current.set(variable.key, answer.value);
        }
        finish();
        refresh(variable.key, true);
      } catch (error) {
        noteFor(variable.key, error.status === 403 ? 'refused: the inspector is read-only'
                                                   : error.message);
        input.select();
      }
    });
    parts.editing = true;
    parts.value.replaceWith(form);
    (index || input).focus();
    input.select();
  }

  // ---- details of one variable ---------------------------------------------

  function select(key) {
    const before = rows.get(selectedKey);
    if (before) {
      before.row.classList.remove('selected');
    }
    selectedKey = key;
    const parts = rows.get(key);
    if (parts) {
      parts.row.classList.add('selected');
    }
    showDetails();
  }

  function showDetails() {
    const variable = byKey.get(selectedKey);
    if (!variable) {
      return;
    }
    const description = descriptionNow(variable.key);
    const list = document.createElement('dl');
    const add = (label, text) => {
      const term = document.createElement('dt');
      term.textContent = label;
      const definition = document.createElement('dd');
      definition.textContent = text;
      list.append(term, definition);
    };
    add('variable', variable.key);
    add('type', variable.type + (description ? ' (' + description.baseType + ')' : ''));
    add('values', rangeText(variable) || '-');
    add('default', description ? shortValue(description.default) : '…');
    if (variable.arrayLength) {
      add('elements', String(variable.arrayLength));
    }
    add('event', variable.event + ' (' + variable.eventId + ')');
    if (refusals.get(variable.key)) {
      add('refused', refusals.get(variable.key));
      list.lastChild.className = 'refused';
    }
    const whole = document.createElement('pre');
    whole.textContent = JSON.stringify(current.get(variable.key), null, 1) || '…';
    whole.setAttribute('aria-label', 'Value of ' + variable.name);
    byId('details').replaceChildren(list, whole);
  }

  // ---- keyboard --------------------------------------------------------------

  function rowOf(element) {
    return element && element.closest ? element.closest('.row') : null;
  }

  document.addEventListener('keydown', (event) => {
    const target = event.target;
    const typing = target.tagName === 'INPUT' || target.tagName === 'SELECT';
    if (event.key === '/' && !typing) {
      event.preventDefault();
      byId('search').focus();
      byId('search').select();
      return;
    }
    if (target === byId('search') && event.key === 'ArrowDown') {
      event.preventDefault();
      const first = results.querySelector('.row .val');
      if (first) {
        first.focus();
      }
      return;
    }
    const row = rowOf(target);
    if (!row || typing) {
      return;
    }
    const column = target.classList.contains('var') ? '.var'
                 : target.classList.contains('plot') ? '.plot' : '.val';
    if (event.key === 'ArrowDown' || event.key === 'ArrowUp') {
      event.preventDefault();
      let next = event.key === 'ArrowDown' ? row.nextElementSibling : row.previousElementSibling;
      while (next && !next.classList.contains('row')) {
        next = event.key === 'ArrowDown' ? next.nextElementSibling : next.previousElementSibling;
      }
      if (next) {
        next.querySelector(column).focus();
        next.scrollIntoView({ block: 'nearest' });
      } else if (event.key === 'ArrowUp') {
        byId('search').focus();
      }
    } else if (event.key === 'p' || event.key === 'P') {
      const variable = byKey.get(row.dataset.key);
      if (variable && isNumeric(variable)) {
        togglePlot(variable);
      }
    } else if (event.key === 'Escape') {
      byId('search').focus();
    }
  });

  // ---- plots ---------------------------------------------------------------------

  const plots = new Map(); // key -> {variable, points: [[ms, value]], canvas, last, color}
  let colorIndex = 0;

  function windowMs() {
    return Number(byId('window').value) * 1000;
  }

  function togglePlot(variable) {
    const key = variable.key;
    const parts = rows.get(key);
    if (plots.has(key)) {
      plots.get(key).card.remove();
      plots.delete(key);
      if (parts) {
        parts.plot.setAttribute('aria-pressed', 'false');
      }
      return;
    }
    const card = document.createElement('div');
    card.className = 'plotcard';
    const head = document.createElement('div');
    head.className = 'plothead';
    const swatch = document.createElement('span');
    const color = PALETTE[colorIndex++ % PALETTE.length];
    swatch.textContent = '■';
    swatch.style.color = color;
    const title = document.createElement('span');
    title.className = 'title';
    title.textContent = variable.key;
    const last = document.createElement('span');
    last.className = 'last';
    const remove = document.createElement('button');
    remove.type = 'button';
    remove.textContent = '×';
    remove.setAttribute('aria-label', 'Stop plotting ' + variable.name);
    remove.addEventListener('click', () => togglePlot(variable));
    head.append(swatch, title, last, remove);
    const canvas = document.createElement('canvas');
    canvas.setAttribute('role', 'img');
    canvas.setAttribute('aria-label', 'Plot of ' + variable.key + ' over the last minutes');
    card.append(head, canvas);
    byId('plots').append(card);
    const plot = { variable, points: [], canvas, last, color, card };
    plots.set(key, plot);
    if (parts) {
      parts.plot.setAttribute('aria-pressed', 'true');
    }
    loadValues(variable.memory).then(() => {
      if (plot.points.length === 0 && typeof current.get(key) === 'number') {
        plot.points.push([Date.now(), current.get(key)]);
        draw(plot);
      }
    }, () => {});
    draw(plot);
  }

  function addPoint(key, value) {
    const plot = plots.get(key);
    if (!plot || typeof value !== 'number') {
      return;
    }
    const now = Date.now();
    plot.points.push([now, value]);
    // Keeps one point from before the window, where the line starts.
    const start = now - 900 * 1000;
    while (plot.points.length > 2 && plot.points[1][0] < start) {
      plot.points.shift();
    }
    drawSoon();
  }

  let drawPending = false;
  function drawSoon() {
    if (!drawPending) {
      drawPending = true;
      setTimeout(() => {
        drawPending = false;
        plots.forEach(draw);
      }, 100);
    }
  }

  function number(value) {
    return Math.abs(value) >= 1e6 || (value !== 0 && Math.abs(value) < 1e-3)
      ? value.toExponential(3) : String(Math.round(value * 1000) / 1000);
  }

  function draw(plot) {
    const canvas = plot.canvas;
    const ratio = window.devicePixelRatio || 1;
    const width = canvas.clientWidth;
    const height = canvas.clientHeight;
    if (width === 0) {
      return;
    }
    if (canvas.width !== Math.round(width * ratio) || canvas.height !== Math.round(height * ratio)) {
      canvas.width = Math.round(width * ratio);
      canvas.height = Math.round(height * ratio);
    }
    const context = canvas.getContext('2d');
    context.setTransform(ratio, 0, 0, ratio, 0, 0);
    context.clearRect(0, 0, width, height);
    const style = getComputedStyle(document.documentElement);
    const muted = style.getPropertyValue('--muted').trim();
    const line = style.getPropertyValue('--line').trim();
    const now = Date.now();
    const span = windowMs();
    const left = 52;
    const right = width - 8;
    const top = 8;
    const bottom = height - 18;
    const visible = plot.points.filter((point, i) =>
      point[0] >= now - span || (plot.points[i + 1] && plot.points[i + 1][0] >= now - span));
    const last = plot.points[plot.points.length - 1];
    plot.last.textContent = last ? number(last[1]) : '…';
    context.font = '11px system-ui, sans-serif';
    context.fillStyle = muted;
    context.strokeStyle = line;
    context.lineWidth = 1;
    context.strokeRect(left + 0.5, top + 0.5, right - left, bottom - top);
    context.textAlign = 'left';
    context.fillText('-' + Math.round(span / 60000) + ' min', left, height - 4);
    context.textAlign = 'right';
    context.fillText('now', right, height - 4);
    if (visible.length === 0) {
      return;
    }
    let low = Math.min(...visible.map((point) => point[1]));
    let high = Math.max(...visible.map((point) => point[1]));
    if (low === high) {
      low -= 1;
      high += 1;
    }
    context.fillText(number(high), left - 4, top + 9);
    context.fillText(number(low), left - 4, bottom);
    const x = (time) => left + (right - left) * Math.max(0, time - (now - span)) / span;
    const y = (value) => bottom - (bottom - top) * (value - low) / (high - low);
    context.strokeStyle = plot.color;
    context.lineWidth = 2;
    context.beginPath();
    visible.forEach((point, i) => {
      if (i === 0) {
        context.moveTo(x(point[0]), y(point[1]));
      } else {
        context.lineTo(x(point[0]), y(visible[i - 1][1]));
        context.lineTo(x(point[0]), y(point[1]));
      }
    });
    context.lineTo(right, y(visible[visible.length - 1][1]));
    context.stroke();
  }

  // ---- the event log ---------------------------------------------------------------

  const log = [];
  let paused = false;
  let unseen = 0;
  let logPending = false;

  function clock(time) {
    const date = new Date(time);
    const pad = (number, width) => String(number).padStart(width, '0');
    return pad(date.getHours(), 2) + ':' + pad(date.getMinutes(), 2) + ':' +
           pad(date.getSeconds(), 2) + '.' + pad(date.getMilliseconds(), 3);
  }

  function target(event) {
    return event.memory + '.' + event.variable + (event.index === null ? '' : '[' + event.index + ']');
  }

  function renderLog() {
    logPending = false;
    if (paused) {
      byId('event-count').textContent = unseen + ' new while paused';
      return;
    }
    unseen = 0;
    const filter = byId('event-filter').value.toLowerCase();
    const list = byId('events');
    const fragment = document.createDocumentFragment();
    let count = 0;
    for (let i = log.length - 1; i >= 0 && count < LOG_SHOWN; i--) {
      const entry = log[i];
      if (filter && !entry.searchText.includes(filter)) {
        continue;
      }
      const item = document.createElement('li');
      item.title = entry.name;
      for (const text of [clock(entry.time), entry.what, entry.value]) {
        const span = document.createElement('span');
        span.textContent = text;
        span.title = text;
        item.append(span);
      }
      fragment.append(item);
      count++;
    }
    list.replaceChildren(fragment);
    byId('event-count').textContent = log.length + ' events';
  }

  function renderLogSoon() {
    if (!logPending) {
      logPending = true;
      setTimeout(renderLog, 200);
    }
  }

  byId('pause').addEventListener('click', () => {
    paused = !paused;
    byId('pause').setAttribute('aria-pressed', String(paused));
    byId('pause').textContent = paused ? 'Resume' : 'Pause';
    renderLog();
  });
  byId('event-filter').addEventListener('input', renderLog);

  // ---- live events -------------------------------------------------------------------

  const IDENTITY_EVENTS = new Set(['VarProductNameChanged', 'VarProductVersionChanged',
    'VarProductSerialChanged', 'VarProductRevisionChanged', 'VarProductLastCommitChanged']);
  const SETUP_EVENTS = new Set(['VarUserSetupListChanged', 'VarUserSetupListSizeChanged']);

  function onEvent(event) {
    const name = event.event || '?';
    const value = event.memory ? shortValue(event.value) : '';
    const what = event.memory ? target(event) : name;
    log.push({ time: Date.now(), name, what, value,
               searchText: (name + ' ' + what + ' ' + value).toLowerCase() });
    if (log.length > LOG_LIMIT) {
      log.splice(0, log.length - LOG_LIMIT);
    }
    if (paused) {
      unseen++;
    }
    renderLogSoon();
    if (IDENTITY_EVENTS.has(event.event)) {
      loadIdentitySoon();
    }
    if (SETUP_EVENTS.has(event.event)) {
      loadSetupsSoon();
    }
    if (!event.memory || event.value === null) {
      return;
    }
    const key = keyOf(event.memory, event.variable);
    if (event.index === null) {
      current.set(key, event.value);
    } else {
      const whole = current.get(key);
      if (!Array.isArray(whole)) {
        return;
      }
      whole[event.index] = event.value;
    }
    refresh(key, true);
    addPoint(key, current.get(key));
  }

  function connect() {
    const status = byId('status');
    const stream = new EventSource('/api/events?token=' + encodeURIComponent(token));
    stream.onopen = () => {
      status.textContent = 'live';
      status.className = 'badge live';
      // After a reconnection, values may have changed without an event.
      const memories = [...values.keys()];
      values.clear();
      memories.forEach((memory) => loadValues(memory).catch(() => {}));
      loadIdentity();
      loadSetups();
    };
    stream.onerror = () => {
      status.textContent = 'reconnecting';
      status.className = 'badge lost';
      // The browser gives up on a stream that was refused; try again later.
      if (stream.readyState === EventSource.CLOSED) {
        stream.close();
        setTimeout(connect, 3000);
      }
    };
    stream.onmessage = (message) => {
      try {
        onEvent(JSON.parse(message.data));
      } catch (error) {
        showProblem('A bad event: ' + error.message);
      }
    };
  }

  // ---- identity and user setups ------------------------------------------------------

  async function loadIdentity() {
    try {
      const identity = await api('/api/identity');
      for (const field of ['board', 'serial', 'revision', 'version', 'commit']) {
        const value = identity[field];
        const text = value === null ? 'n/a' : value === '' ? '–' : String(value);
        byId('id-' + field).textContent = text;
        byId('id-' + field).title = text;
      }
    } catch (error) {
      failed(error);
    }
  }

  async function loadSetups() {
    const list = byId('setups');
    try {
      const names = await api('/api/setups');
      const items = names.map((name) => {
        const item = document.createElement('li');
        item.textContent = name;
        return item;
      });
      if (items.length === 0) {
        const none = document.createElement('li');
        none.className = 'muted';
        none.textContent = 'no user setups';
        items.push(none);
      }
      list.replaceChildren(...items);
    } catch (error) {
      const item = document.createElement('li');
      item.className = 'muted';
      item.textContent = error.message;
      list.replaceChildren(item);
    }
  }

  function later(job, delay) {
    let timer = null;
    return () => {
      if (timer === null) {
        timer = setTimeout(() => {
          timer = null;
          job();
        }, delay);
      }
    };
  }
  const loadIdentitySoon = later(loadIdentity, 300);
  const loadSetupsSoon = later(loadSetups, 300);

  // ---- start -----------------------------------------------------------------------------

  async function start() {
    if (readOnly) {
      byId('mode').hidden = false;
    }
    loadIdentity();
    loadSetups();
    try {
      const memories = await api('/api/memories');
      const lists = await Promise.all(memories.map((memory) =>
        queue(() => api('/api/vars/' + encodeURIComponent(memory.name)))));
      memories.forEach((memory, i) => {
        for (const row of lists[i]) {
          const variable = Object.assign({ memory: memory.name, key: keyOf(memory.name, row.name),
                                           searchText: (memory.name + '.' + row.name).toLowerCase() },
                                         row);
          variables.push(variable);
          byKey.set(variable.key, variable);
        }
      });
    } catch (error) {
      failed(error);
      return;
    }
    let typing = null;
    byId('search').addEventListener('input', () => {
      clearTimeout(typing);
      typing = setTimeout(search, 60);
    });
    byId('window').addEventListener('change', () => plots.forEach(draw));
    window.addEventListener('resize', () => plots.forEach(draw));
    setInterval(() => plots.forEach(draw), 1000);
    search();
    connect();
  }

  start();
})();
