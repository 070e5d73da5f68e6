// The log-in page: shows why the visitor is here (time-out, log-out), draws a fresh code picture
// and logs in; every refusal of the server is shown as it comes.
'use strict';

function reloadPicture() {
  // A new picture per load; the form's key stays in its cookie.
  document.getElementById('code-img').src = '/api/code?r=' + Date.now() + Math.random();
  document.getElementById('code').value = '';
}

async function start() {
  applyTexts();
  document.getElementById('lang').addEventListener('click', toggleLang);
  document.getElementById('code-img').addEventListener('click', reloadPicture);
  showReason();
  const state = await api('state');
  if (state.ok && state.data.loggedIn) {
    location.replace('/console/app.html');
    return;
  }
  if (state.ok && !state.data.needCode) {
    document.getElementById('code-row').hidden = true;
  } else {
    reloadPicture();
  }
  if (!state.ok) showMessage(state.errmsg, false);
}

document.getElementById('login-form').addEventListener('submit', async (ev) => {
  ev.preventDefault();
  const btn = document.getElementById('login-btn');
  btn.disabled = true;
  const r = await api('login', {
    user: document.getElementById('user').value,
    password: document.getElementById('password').value,
    code: document.getElementById('code').value,
  });
  btn.disabled = false;
  if (r.ok) {
    location.replace('/console/app.html');
    return;
  }
  showMessage(r.errmsg, false);
  if (!document.getElementById('code-row').hidden) reloadPicture();
});

// Why the visitor is here, in the current language.
function showReason() {
  const reason = new URLSearchParams(location.search).get('reason');
  if (reason === 'timeout') showMessage(t('msg_timeout'), false);
  if (reason === 'logout') showMessage(t('msg_logged_out'), true);
  document.getElementById('code-img').alt = t('code');
}

document.addEventListener('langchange', showReason);

start();
