// The console's main page: lists and edits companies, CCU records and login names, and shows the
// live event stream. Every change goes through api() with a fresh CSRF token.
'use strict';

let companies = [];
let stream = null;

function selectTab(name) {
  document.querySelectorAll('.tab-page').forEach((p) => { p.hidden = p.id !== 'tab-' + name; });
  document.querySelectorAll('.tab').forEach((b) => b.classList.toggle('active', b.dataset.tab === name));
  if (name === 'events') openStream();
}

function fillCompanySelect(select) {
  const keep = select.value;
  select.replaceChildren(...companies.map((c) => el('option', { value: c.id }, c.id)));
  if (companies.some((c) => c.id === keep)) select.value = keep;
}

function emptyRow(columns) {
  return el('tr', {}, el('td', { colspan: String(columns), class: 'empty' }, t('no_rows')));
}

async function confirmAndPost(path, fields, what) {
  if (!confirm(t('confirm_delete', what))) return;
  const r = await api(path, fields);
  showMessage(r.ok ? t('deleted') : r.errmsg, r.ok);
  if (r.ok) await refresh();
}

function renderCompanies() {
  const body = document.querySelector('#company-table tbody');
  const rows = companies.map((c) => {
    const params = Object.entries(c.params).map(([k, v]) => k + '=' + v).join('\n');
    const ccus = el('ul', { class: 'ccus' }, ...c.ccus.map((u) => el('li', {},
      el('b', {}, u.id), ' ' + u.label + ' · ' + t('connectstat') + ' ' + u.connectstat + ' · ' +
      t('useddev') + ' ' + u.useddev + ' · ' + t('usedmon') + ' ' + u.usedmon + ' · ' +
      t('registertime') + ' ' + u.registertime + ' ',
      el('button', { type: 'button', class: 'small', onclick: () => editCcu(c.id, u) }, t('edit')),
      el('button', { type: 'button', class: 'small danger',
        onclick: () => confirmAndPost('ccu/delete', { company: c.id, ccu: u.id }, c.id + '/' + u.id) }, t('delete')))));
    return el('tr', { 'data-company': c.id },
      el('td', {}, c.id), el('td', { class: 'pre' }, params), el('td', {}, ccus),
      el('td', {},
        el('button', { type: 'button', class: 'small', onclick: () => editCompany(c) }, t('edit')),
        el('button', { type: 'button', class: 'small danger',
          onclick: () => confirmAndPost('company/delete', { id: c.id }, c.id) }, t('delete'))));
  });
  body.replaceChildren(...(rows.length ? rows : [emptyRow(4)]));
  fillCompanySelect(document.getElementById('ccu-company'));
  fillCompanySelect(document.getElementById('ln-company'));
}

function editCompany(c) {
  document.getElementById('company-mode').value = 'edit';
  document.getElementById('company-form-title').dataset.t = 'edit_company';
  document.getElementById('company-form-title').textContent = t('edit_company');
  document.getElementById('company-id').value = c.id;
  document.getElementById('company-id').readOnly = true;
  document.getElementById('company-params').value =
    Object.entries(c.params).map(([k, v]) => k + '=' + v).join('\n');
}

function resetCompanyForm() {
  document.getElementById('company-mode').value = 'add';
  document.getElementById('company-form-title').dataset.t = 'add_company';
  document.getElementById('company-form-title').textContent = t('add_company');
  document.getElementById('company-id').readOnly = false;
  document.getElementById('company-form').reset();
}

function editCcu(company, u) {
  document.getElementById('ccu-company').value = company;
  document.getElementById('ccu-id').value = u.id;
  document.getElementById('ccu-label').value = u.label;
  document.getElementById('ccu-connectstat').value = u.connectstat;
  document.getElementById('ccu-useddev').value = u.useddev;
  document.getElementById('ccu-usedmon').value = u.usedmon;
}

async function renderLogins() {
  const r = await api('logins');
  if (!r.ok) { showMessage(r.errmsg, false); return; }
  const body = document.querySelector('#login-table tbody');
  const rows = r.data.map((l) => el('tr', { 'data-login': l.name },
    el('td', {}, l.name), el('td', {}, l.company),
    el('td', {},
      el('button', { type: 'button', class: 'small', onclick: () => {
        document.getElementById('ln-name').value = l.name;
        document.getElementById('ln-old').value = l.name;
        document.getElementById('ln-company').value = l.company;
      } }, t('edit')),
      el('button', { type: 'button', class: 'small danger',
        onclick: () => confirmAndPost('loginname/delete', { name: l.name }, l.name) }, t('delete')))));
  body.replaceChildren(...(rows.length ? rows : [emptyRow(3)]));
}

async function refresh() {
  const r = await api('companies');
  if (!r.ok) { showMessage(r.errmsg, false); return; }
  companies = r.data;
  renderCompanies();
  await renderLogins();
}

function addEvent(ev) {
  const body = document.querySelector('#event-table tbody');
  const row = el('tr', { class: 'sev-' + String(ev.severity).toLowerCase().replace(/[^a-z]/g, '') },
    el('td', {}, ev.time), el('td', {}, ev.company), el('td', {}, ev.host),
    el('td', {}, ev.severity), el('td', {}, ev.message));
  row.hidden = !matchesFilter(row);
  body.prepend(row);
  while (body.rows.length > 300) body.deleteRow(body.rows.length - 1);
}

function matchesFilter(row) {
  const words = document.getElementById('event-filter').value.trim().toLowerCase();
  return !words || row.textContent.toLowerCase().includes(words);
}

function applyFilter() {
  document.querySelectorAll('#event-table tbody tr').forEach((r) => { r.hidden = !matchesFilter(r); });
}

function openStream() {
  if (stream) return;
  const state = document.getElementById('stream-state');
  stream = new EventSource('/api/events');
  stream.onopen = () => { state.dataset.t = 'stream_open'; state.textContent = t('stream_open'); };
  stream.addEventListener('monitor', (m) => {
    try { addEvent(JSON.parse(m.data)); } catch (e) { addEvent({ severity: 'unknown', message: m.data }); }
  });
  stream.onerror = async () => {
    const source = stream;
    // The browser retries a dropped stream by itself; one it could not open at all (refused
    // for a timed-out session, or because too many are open) stays closed.
    const closed = source.readyState === EventSource.CLOSED;
    state.dataset.t = closed ? 'stream_refused' : 'stream_retry';
    state.textContent = t(state.dataset.t);
    const s = await api('state');
    if (s.ok && !s.data.loggedIn) { source.close(); toLogin('timeout'); return; }
    if (closed) {
      source.close();
      stream = null;
      setTimeout(() => { if (!document.getElementById('tab-events').hidden) openStream(); }, 10000);
    }
  };
}

async function start() {
  applyTexts();
  const s = await api('state');
  if (!s.ok) { showMessage(s.errmsg, false); return; }
  if (!s.data.loggedIn) { toLogin('timeout'); return; }
  document.getElementById('who').textContent = s.data.user + ' @ ' + s.data.company;
  selectTab('companies');
  await refresh();
}

document.querySelectorAll('.tab').forEach((b) => b.addEventListener('click', () => selectTab(b.dataset.tab)));
document.getElementById('lang').addEventListener('click', toggleLang);
document.addEventListener('langchange', () => { renderCompanies(); renderLogins(); });
document.getElementById('company-cancel').addEventListener('click', resetCompanyForm);
document.getElementById('event-filter').addEventListener('input', applyFilter);
document.getElementById('event-clear').addEventListener('click', () => {
  document.querySelector('#event-table tbody').replaceChildren();
});

document.getElementById('logout').addEventListener('click', async () => {
  const r = await api('logout', {});
  if (!r.ok) { showMessage(r.errmsg, false); return; }
  if (stream) stream.close();
  toLogin('logout');
});

document.getElementById('company-form').addEventListener('submit', async (ev) => {
  ev.preventDefault();
  const r = await api('company/save', {
    id: document.getElementById('company-id').value,
    params: document.getElementById('company-params').value,
    mode: document.getElementById('company-mode').value,
  });
  showMessage(r.ok ? t('saved') : r.errmsg, r.ok);
  if (r.ok) { resetCompanyForm(); await refresh(); }
});

document.getElementById('ccu-form').addEventListener('submit', async (ev) => {
  ev.preventDefault();
  const r = await api('ccu/save', {
    company: document.getElementById('ccu-company').value,
    ccu: document.getElementById('ccu-id').value,
    label: document.getElementById('ccu-label').value,
    connectstat: document.getElementById('ccu-connectstat').value,
    useddev: document.getElementById('ccu-useddev').value,
    usedmon: document.getElementById('ccu-usedmon').value,
  });
  showMessage(r.ok ? t('saved') : r.errmsg, r.ok);
  if (r.ok) await refresh();
});

document.getElementById('login-name-form').addEventListener('submit', async (ev) => {
  ev.preventDefault();
  const r = await api('loginname/save', {
    name: document.getElementById('ln-name').value,
    company: document.getElementById('ln-company').value,
    oldname: document.getElementById('ln-old').value,
  });
  showMessage(r.ok ? t('saved') : r.errmsg, r.ok);
  if (r.ok) { document.getElementById('login-name-form').reset(); await refresh(); }
});

start();
