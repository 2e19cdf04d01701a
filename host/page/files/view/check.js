// May a user do this, why, and how to grant it.

import {get} from '../api.js';
import {code, errorBox, field, form, h, input, methods, select, shown, table, verdictMark} from '../dom.js';
import {newFilterForm, removeFilter} from '../filter.js';

export async function render({query}) {
  const result = h('div', {'aria-live': 'polite'});
  const target = input('url', {required: true, value: query.get('url') ?? '', placeholder: '/articles/7'});
  target.dataset.wide = '';
  const ask = async ({user, method, url}) => {
    history.replaceState(null, '', `#/check?${new URLSearchParams({user, method, url})}`);
    result.replaceChildren(...await answer(user, method, url, () => ask({user, method, url})));
  };
  if (query.get('user') && query.get('method') && query.get('url')) {
    await ask(Object.fromEntries(query));
  }
  return [
    form({}, ask,
      field('User', input('user', {required: true, value: query.get('user') ?? ''})),
      field('Method', select('method', methods, query.get('method') ?? 'GET')),
      field('Target', target, 'As filters see it, such as /articles/7'),
      h('button', {}, 'Check')),
    result,
  ];
}

async function answer(user, method, url, again) {
  const check = await get('/access/check', {user_id: user, method, url});
  const outcome = check.allowed ? 'allowed' : 'refused';
  const decider = check.filters.find((filter) => filter.decides);
  return [
    h('p', {class: `verdict ${check.allowed ? 'good' : 'bad'}`},
      h('strong', {}, check.allowed ? 'Allowed' : 'Refused'), check.reason.replace(/^(allowed|refused)(:? )/, ''), '.'),
    check.user_exists ? null : h('p', {class: 'error warn'}, `There is no user ${user}.`),
    check.filters.length === 0 ? null
      : table(`Why it is ${outcome}: every filter of the user's groups, in the order of decision`,
        ['', 'Action', 'Method', 'Pattern', 'Group', 'Names the method', 'Matches'],
        check.filters.map((filter) => [
          filter.decides ? 'decides' : '', verdictMark(shown(filter.action)), shown(filter.method), code(filter.filter),
          h('a', {href: `#/groups/${encodeURIComponent(shown(filter.group_id))}`}, shown(filter.group_id)),
          filter.names_method ? 'yes' : 'no', filter.undecided ? 'too costly to try' : filter.matches ? 'yes' : 'no']),
        {off: (index) => !(check.filters[index].names_method && check.filters[index].matches)}),
    check.allowed ? null : grant(check, decider, again),
  ].filter((part) => part !== null);
}

/** A pattern for just this path, and for all below its first segment. */
function patterns(url) {
  const path = url.split('?', 1)[0];
  const escaped = path.replace(/[.*+?^${}()|[\]\\]/g, '\\$&');
  const first = escaped.match(/^\/[^/]+/)?.[0];
  return {exact: `^${escaped}$`, below: first ? `^${first}(/|$)` : '^/'};
}

function grant(check, decider, again) {
  if (decider?.action === 'Deny') {
    const place = h('div');
    return h('section', {},
      h('h2', {}, 'Grant it'),
      h('p', {}, 'A Deny refuses it, whatever else allows. As long as it is there, nothing grants the request.'),
      h('div', {class: 'actions'},
        h('button', {class: 'danger', type: 'button', onclick: () => removeFilter(decider).then((done) => done && again())
          .catch((problem) => place.replaceChildren(errorBox(problem)))}, 'Delete this Deny')),
      place);
  }
  if (!check.user_exists) {
    return null;
  }
  const {exact, below} = patterns(check.url);
  const group = check.groups.map(shown)[0];
  const pattern = (label, filter) => h('div', {},
    h('h3', {}, label),
    newFilterForm({group_id: group, method: check.method, filter, label: 'Allow it'}, again));
  return h('section', {},
    h('h2', {}, 'Grant it'),
    group === undefined
      ? h('p', {}, `${check.user_id} is in no group. `, h('a', {href: `#/users/${encodeURIComponent(check.user_id)}`}, 'Add the user to one'), ' first: filters belong to groups.')
      : h('p', {}, `An Allow for one of the user's groups (${check.groups.map(shown).join(', ')}) grants it, to every member of the group.`),
    ...(group === undefined ? [] : [pattern('Just this target', exact), pattern('Everything below', below)]));
}
