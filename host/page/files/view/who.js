// Who may do something, or is kept from it.

import {get} from '../api.js';
import {code, field, form, h, input, methods, select, shown, table, verdictMark} from '../dom.js';

const shownUsers = 500;

export async function render({query}) {
  const result = h('div', {'aria-live': 'polite'});
  const target = input('url', {required: true, value: query.get('url') ?? '', placeholder: '/articles/7'});
  target.dataset.wide = '';
  return [
    form({}, async ({method, url, which}) => {
      const refused = which === 'refused by a Deny';
      const who = await get('/access/who', {method, url, refused, limit: shownUsers});
      const headings = ['User', 'Filter that decides', 'Pattern', 'Group', ...(refused ? ['Else allowed by'] : [])];
      result.replaceChildren(
        h('p', {}, `${who.total} ${who.total === 1 ? 'user' : 'users'}${who.total > shownUsers ? `, of whom ${shownUsers} are shown` : ''}.`),
        who.total === 0 ? '' : table(`Who is ${which} ${method} ${url}`, headings, who.users.map((user) => [
          h('a', {href: `#/check?${new URLSearchParams({user: shown(user.user_id), method, url})}`}, shown(user.user_id)),
          verdictMark(shown(user.decider.action)), code(user.decider.filter), shown(user.decider.group_id),
          ...(refused ? [user.overruled ? shown(user.overruled.group_id) : '–'] : [])])));
    },
    field('Method', select('method', methods, query.get('method') ?? 'GET')),
    field('Target', target, 'As filters see it, such as /articles/7'),
    field('Users that are', select('which', ['allowed', 'refused by a Deny'], 'allowed')),
    h('button', {}, 'Show')),
    result,
  ];
}
