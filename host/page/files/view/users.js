// The users: search, create; and one of them.

import {call, segment} from '../api.js';
import {accessTable, filtersOf} from '../access.js';
import {credentialFields, credentialOf} from '../credential.js';
import {confirm, errorBox, field, fill, form, guarded, h, input, say, shown} from '../dom.js';
import {pagedList, searchForm} from '../list.js';

const linkTo = (view, id) => h('a', {href: `#/${view}/${encodeURIComponent(shown(id))}`}, shown(id));

export async function render({id, heading}) {
  return id === undefined ? list() : one(id, heading);
}

function list() {
  const users = pagedList('/access/users', 'Users', ['User', 'Method', 'Created', 'Created by', 'Groups'], (user) => [
    linkTo('users', user.user_id), shown(user.auth_method), shown(user.create_date), shown(user.create_user),
    user.groups.map(shown).join(', '),
  ]);
  users.load();
  return [
    searchForm('Search users', (search) => users.load({search})),
    h('details', {},
      h('summary', {}, 'New user'),
      form({class: 'stacked'}, async (values, element) => {
        const groups = values.groups.split(',').map((group) => group.trim()).filter((group) => group !== '');
        await call('POST', '/access/users', {body: {user_id: values.user_id, ...credentialOf(values), ...(groups.length > 0 ? {groups} : {})}});
        element.reset();
        say(`Created the user ${values.user_id}.`);
        users.load();
      },
      field('User id', input('user_id', {required: true})),
      ...credentialFields(),
      field('Groups', input('groups'), 'Ids, separated by commas'),
      h('button', {}, 'Create user'))),
    users.element,
  ];
}

async function one(id, heading) {
  heading.textContent = `User ${id}`;
  const path = `/access/users/${segment(id)}`;
  const place = h('div');
  async function show() {
    const {body: user} = await call('GET', path);
    const filters = await filtersOf(user.groups.filter((group) => typeof group === 'string'));
    const leave = async (group) => {
      try {
        const done = await guarded((force) => call('DELETE', `/access/groups/${segment(group)}/users/${segment(id)}`, {query: {force}}));
        if (done !== null) {
          say(`${id} is no longer in ${shown(group)}.`);
          await show();
        }
      } catch (problem) {
        place.append(errorBox(problem));
      }
    };
    fill(place,
      h('dl', {},
        h('dt', {}, 'Signs in with'), h('dd', {}, shown(user.auth_method)),
        h('dt', {}, 'Created'), h('dd', {}, `${shown(user.create_date)} by ${shown(user.create_user)}`)),
      h('h2', {}, 'Groups'),
      user.groups.length === 0 ? h('p', {class: 'dim'}, 'In no group: nothing is allowed.')
        : h('ul', {class: 'chips'}, user.groups.map((group) => h('li', {}, linkTo('groups', group),
          h('button', {class: 'plain small', type: 'button', 'aria-label': `Take ${id} out of ${shown(group)}`, onclick: () => leave(group)}, 'Remove')))),
      form({}, async (values) => {
        await call('PUT', `/access/groups/${segment(values.group)}/users/${segment(id)}`);
        say(`${id} is in ${values.group} now.`);
        await show();
      },
      field('Add to group', input('group', {required: true})), h('button', {}, 'Add')),
      h('h2', {}, 'Whole access'),
      accessTable(`What ${id} may and may not do`, filters),
      h('p', {}, h('a', {href: `#/check?user=${encodeURIComponent(id)}`}, `Check a request of ${id}`)),
      h('h2', {}, 'Credential'),
      h('details', {},
        h('summary', {}, 'Replace the credential'),
        form({class: 'stacked'}, async (values, element) => {
          await guarded((force) => call('PUT', `${path}/credential`, {body: credentialOf(values), query: {force}}));
          element.reset();
          say(`Replaced the credential of ${id}.`);
          await show();
        }, ...credentialFields(), h('button', {}, 'Replace'))),
      h('div', {class: 'actions'},
        h('button', {class: 'danger', type: 'button', onclick: remove}, `Delete ${id}`)));
  }
  async function remove() {
    if (!await confirm(`Delete the user ${id} with all memberships?`, 'Delete')) {
      return;
    }
    try {
      if (await guarded((force) => call('DELETE', path, {query: {force}})) !== null) {
        say(`Deleted the user ${id}.`);
        location.hash = '#/users';
      }
    } catch (problem) {
      place.append(errorBox(problem));
    }
  }
  await show();
  return place;
}
