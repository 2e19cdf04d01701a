// Signs in, and shows the view that the address names.

import {call, forget, isRemembered, remember} from './api.js';
import {errorBox, form, h, input, field, say} from './dom.js';

const views = [
  ['users', 'Users', () => import('./view/users.js')],
  ['groups', 'Groups', () => import('./view/groups.js')],
  ['filters', 'Filters', () => import('./view/filters.js')],
  ['check', 'Check', () => import('./view/check.js')],
  ['who', 'Who may', () => import('./view/who.js')],
  ['matrix', 'Matrix', () => import('./view/matrix.js')],
  ['findings', 'Findings', () => import('./view/findings.js')],
  ['decisions', 'Decisions', () => import('./view/decisions.js')],
  ['import', 'Import', () => import('./view/import.js')],
  ['me', 'My password', () => import('./view/me.js')],
];

const main = document.getElementById('main');
const navigation = document.getElementById('navigation');
const who = document.getElementById('who');
let user = null;
let turn = 0; // of showing: who comes late shows nothing

/** "#/users/alice?x=y" as {view: "users", id: "alice", query}. */
function place() {
  const [path, query] = location.hash.replace(/^#\/?/, '').split('?', 2);
  const [view, id] = path.split('/', 2);
  return {view: view || 'users', id: id === undefined ? undefined : decodeURIComponent(id), query: new URLSearchParams(query ?? '')};
}

async function show() {
  if (user === null) {
    return;
  }
  const {view, id, query} = place();
  const known = views.find(([name]) => name === view) ?? views[0];
  for (const link of navigation.children) {
    if (link.hash === `#/${known[0]}`) {
      link.setAttribute('aria-current', 'page');
    } else {
      link.removeAttribute('aria-current');
    }
  }
  const mine = ++turn;
  const heading = h('h1', {tabindex: '-1'}, known[1]);
  main.replaceChildren(heading);
  let shown;
  try {
    const module = await known[2]();
    shown = await module.render({id, query, heading, user});
  } catch (problem) {
    shown = errorBox(problem);
  }
  if (mine !== turn) {
    return;
  }
  main.append(...[shown].flat());
  document.title = `${heading.textContent} – Access`;
  heading.focus();
}

function signedIn(me) {
  user = me;
  navigation.replaceChildren(...views.map(([name, label]) => h('a', {href: `#/${name}`}, label)));
  navigation.hidden = false;
  who.replaceChildren(me.user_id, ...(isRemembered()
    ? [h('button', {class: 'plain small', type: 'button', onclick: signOut}, 'Sign out')] : []));
  who.hidden = false;
  show();
}

function signOut() {
  forget();
  user = null;
  ++turn;
  navigation.hidden = true;
  who.hidden = true;
  askForPassword();
  say('Signed out.');
}

function askForPassword() {
  const name = input('user', {required: true, autocomplete: 'username'});
  main.replaceChildren(h('div', {class: 'narrow'},
    h('h1', {}, 'Sign in'),
    form({class: 'stacked'}, async (values) => {
      remember(values.user, values.password);
      try {
        signedIn((await call('GET', '/access/me')).body);
      } catch (problem) {
        forget();
        throw problem.status === 401 ? Object.assign(problem, {message: 'Unknown user or wrong password.'}) : problem;
      }
    },
    field('User', name),
    field('Password', input('password', {type: 'password', required: true, autocomplete: 'current-password'})),
    h('button', {}, 'Sign in'))));
  document.title = 'Sign in – Access';
  name.focus();
}

// Where several machines share the directory, every answer says how old this machine's copy is.
const age = document.getElementById('age');
window.addEventListener('directory-age', ({detail}) => {
  if (detail === null) {
    return;
  }
  const [seconds, mark] = detail.split(';');
  const text = seconds === 'unknown' ? 'Copy of unknown age' : `Copy of ${seconds} s ago`;
  age.textContent = mark === 'stale' ? `${text} – older than it should be` : text;
  age.className = mark ?? '';
  age.hidden = false;
});
window.addEventListener('hashchange', show);
window.addEventListener('pagehide', forget);

// Whom a client certificate has introduced already needs no password.
try {
  signedIn((await call('GET', '/access/me')).body);
} catch {
  askForPassword();
}
