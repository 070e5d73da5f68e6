// Shared page code of the console: texts in Chinese and English (cookie qv_lan), the message
// bar, and the calls to the console's handlers under /api with a fresh CSRF token before every
// state-changing request.
'use strict';

const TEXTS = {
  zh: {
    title: 'IT 监控服务管理控制台', login_title: '登录', user: '用户名', password: '密码',
    code: '验证码', code_hint: '看不清？点击图片换一张', login_btn: '登录', logout: '退出',
    companies: '租户公司', logins: '登录名', events: '实时事件',
    company_id: '公司 ID', params: '参数（每行 名称=值）', ccus: 'CCU', actions: '操作',
    add_company: '添加公司', edit_company: '编辑公司', save: '保存', cancel: '取消', edit: '编辑',
    delete: '删除', ccu_form: '添加或修改 CCU', ccu_id: 'CCU ID', label: '标签',
    connectstat: '连接状态', useddev: '已用设备数', usedmon: '已用监控数', registertime: '注册时间',
    company: '所属公司', login_name: '登录名', add_login: '添加或修改登录名',
    old_name: '原登录名（改名时填写）', time: '时间', host: '主机', severity: '级别', message: '消息',
    no_rows: '暂无记录', confirm_delete: '确定删除 {0} 吗？', saved: '已保存', deleted: '已删除',
    stream_open: '已连接，等待事件…', stream_retry: '连接中断，正在重新连接…',
    stream_refused: '服务器拒绝了事件流（可能打开的事件页过多），10 秒后重试',
    msg_timeout: '会话已超时，请重新登录', msg_logged_out: '已退出登录',
    msg_unexpected: '服务器返回了无法识别的应答（HTTP {0}）', msg_network: '无法连接服务器：{0}',
    logged_in_as: '当前用户', filter_hint: '按公司、主机、级别或消息筛选', clear: '清空列表', language: 'English', events_hint: '用 eventgen 推送事件，新事件显示在最上面',
  },
  en: {
    title: 'IT monitoring service - management console', login_title: 'Log in', user: 'User name',
    password: 'Password', code: 'Verification code', code_hint: 'Hard to read? Click the picture for another',
    login_btn: 'Log in', logout: 'Log out', companies: 'Tenant companies', logins: 'Login names',
    events: 'Live events', company_id: 'Company ID', params: 'Parameters (one name=value per line)',
    ccus: 'CCUs', actions: 'Actions', add_company: 'Add company', edit_company: 'Edit company',
    save: 'Save', cancel: 'Cancel', edit: 'Edit', delete: 'Delete', ccu_form: 'Add or change a CCU',
    ccu_id: 'CCU ID', label: 'Label', connectstat: 'Connection state', useddev: 'Devices in use',
    usedmon: 'Monitors in use', registertime: 'Registered', company: 'Company',
    login_name: 'Login name', add_login: 'Add or change a login name',
    old_name: 'Old login name (when renaming)', time: 'Time', host: 'Host', severity: 'Severity',
    message: 'Message', no_rows: 'Nothing yet', confirm_delete: 'Delete {0}?', saved: 'Saved',
    deleted: 'Deleted', stream_open: 'Connected, waiting for events…',
    stream_retry: 'Connection lost, reconnecting…',
    stream_refused: 'The server refused the event stream (perhaps too many event pages are open); retrying in 10 s', msg_timeout: 'Your session timed out; please log in again',
    msg_logged_out: 'You have logged out', msg_unexpected: 'The server gave an answer the page cannot read (HTTP {0})',
    msg_network: 'The server cannot be reached: {0}', logged_in_as: 'Logged in as',
    filter_hint: 'Filter by company, host, severity or message', clear: 'Clear list',
    language: '中文', events_hint: 'Push events with eventgen; the newest stand on top',
  },
};

function currentLang() {
  const m = document.cookie.match(/(?:^|;\s*)qv_lan=([^;]*)/);
  return m && m[1].startsWith('en') ? 'en' : 'zh';
}

function t(id, ...args) {
  const text = TEXTS[currentLang()][id] || TEXTS.zh[id] || id;
  return text.replace(/\{(\d)\}/g, (_, i) => String(args[Number(i)]));
}

function applyTexts() {
  document.documentElement.lang = currentLang();
  document.querySelectorAll('[data-t]').forEach((el) => { el.textContent = t(el.dataset.t); });
  document.querySelectorAll('[data-tp]').forEach((el) => { el.placeholder = t(el.dataset.tp); });
  document.title = t('title');
}

// The language switch: the cookie is read by the server too, so its messages follow.
function toggleLang() {
  const next = currentLang() === 'en' ? 'zh' : 'en';
  const secure = location.protocol === 'https:' ? '; Secure' : '';
  document.cookie = 'qv_lan=' + next + '; path=/; max-age=31536000; SameSite=Strict' + secure;
  applyTexts();
  document.dispatchEvent(new Event('langchange'));
}

function showMessage(text, ok) {
  const bar = document.getElementById('msg');
  bar.textContent = text;
  bar.className = text ? (ok ? 'msg ok' : 'msg err') : 'msg';
}

function toLogin(reason) {
  location.replace('/console/login.html' + (reason ? '?reason=' + reason : ''));
}

// Calls /api/<path>. With `fields` it is a POST: a fresh CSRF token is fetched right before it
// (a token lives 16 seconds). Resolves to {ok, data, errmsg}; a timed-out session goes back to
// the log-in page with a message.
async function api(path, fields) {
  try {
    let init = { credentials: 'same-origin', cache: 'no-store' };
    if (fields) {
      const tok = await fetch('/api/token', init);
      if (!tok.ok) return { ok: false, errmsg: t('msg_unexpected', tok.status) };
      init = Object.assign({}, init, {
        method: 'POST',
        headers: { 'Content-Type': 'application/x-www-form-urlencoded' },
        body: new URLSearchParams(fields).toString(),
      });
    }
    const res = await fetch('/api/' + path, init);
    const text = await res.text();
    let body;
    try { body = JSON.parse(text); } catch (e) { return { ok: false, errmsg: t('msg_unexpected', res.status) }; }
    if (body.status === 'SessionTimeOut') {
      toLogin('timeout');
      return { ok: false, errmsg: t('msg_timeout') };
    }
    if (body.status === 'success') return { ok: true, data: body.data };
    return { ok: false, errmsg: body.errmsg || body.status || t('msg_unexpected', res.status) };
  } catch (e) {
    return { ok: false, errmsg: t('msg_network', e.message) };
  }
}

function el(tag, attrs, ...children) {
  const node = document.createElement(tag);
  Object.entries(attrs || {}).forEach(([k, v]) => {
    if (k === 'onclick') node.addEventListener('click', v);
    else if (k === 'dataT') node.dataset.t = v;
    else node.setAttribute(k, v);
  });
  children.forEach((c) => node.append(c instanceof Node ? c : document.createTextNode(String(c))));
  return node;
}
