// The groups: search, create; and one of them.

import {call, segment} from '../api.js';
import {accessTable, filtersOf} from '../access.js';
import {confirm, errorBox, field, fill, form, guarded, h, input, say, shown} from '../dom.js';
import {newFilterForm, removeFilter} from '../filter.js';
import {pagedList, searchForm} from '../list.js';

const linkTo = (view, id) => h('a', {href: `#/${view}/${encodeURIComponent(shown(id))}`}, shown(id));
const shownUsers = 200;

export async function render({id, heading}) {
  return id === undefined ? list() : one(id, heading);
}

function list() {
  const groups = pagedList('/access/groups', 'Groups', ['Group', 'Name', 'Users'], (group) => [
    linkTo('groups', group.group_id), shown(group.group_name), String(group.users.length),
  ]);
  groups.load();
  return [
    searchForm('Search groups', (search) => groups.load({search})),
    h('details', {},
      h('summary', {}, 'New group'),
      form({class: 'stacked'}, async (values, element) => {
        await call('POST', '/access/groups', {body: {group_id: values.group_id, ...(values.group_name === '' ? {} : {group_name: values.group_name})}});
        element.reset();
        say(`Created the group ${values.group_id}.`);
        groups.load();
      },
      field('Group id', input('group_id', {required: true, pattern: '[A-Za-z0-9_\\-]+'}), 'Letters, digits, _ and -'),
      field('Name', input('group_name'), 'For people'),
      h('button', {}, 'Create group'))),
    groups.element,
  ];
}

async function one(id, heading) {
  heading.textContent = `Group ${id}`;
  const path = `/access/groups/${segment(id)}`;
  const place = h('div');
  const report = (problem) => place.append(errorBox(problem));
  async function show() {
    const {body: group, etag} = await call('GET', path);
    const filters = await filtersOf([id]);
    const takeOut = async (user) => {
      try {
        const done = await guarded((force) => call('DELETE', `${path}/users/${segment(user)}`, {query: {force}}));
        if (done !== null) {
          say(`${shown(user)} is no longer in ${id}.`);
          await show();
        }
      } catch (problem) {
        report(problem);
      }
    };
    fill(place,
      h('p', {class: 'dim'}, shown(group.group_name)),
      h('h2', {}, `Users (${group.users.length})`),
      group.users.length === 0 ? h('p', {class: 'dim'}, 'Nobody.')
        : h('ul', {class: 'chips'}, group.users.slice(0, shownUsers).map((user) => h('li', {}, linkTo('users', user),
          h('button', {class: 'plain small', type: 'button', 'aria-label': `Take ${shown(user)} out of ${id}`, onclick: () => takeOut(user)}, 'Remove')))),
      group.users.length > shownUsers ? h('p', {class: 'dim'}, `and ${group.users.length - shownUsers} more`) : null,
      form({}, async (values) => {
        await call('PUT', `${path}/users/${segment(values.user)}`);
        say(`${values.user} is in ${id} now.`);
        await show();
      },
      field('Add user', input('user', {required: true})), h('button', {}, 'Add')),
      h('details', {},
        h('summary', {}, 'Replace all users'),
        form({class: 'stacked'}, async (values) => {
          const users = values.users.split('\n').map((user) => user.trim()).filter((user) => user !== '');
          await guarded((force) => call('PUT', `${path}/users`, {body: users, etag, query: {force}}));
          say(`Replaced the users of ${id}.`);
          await show();
        },
        field('User ids, one a line', h('textarea', {name: 'users', spellcheck: 'false'}, group.users.map(shown).join('\n'))),
        h('button', {}, 'Replace'))),
      h('h2', {}, 'Whole access'),
      accessTable(`What members of ${id} may and may not do`, filters, (filter) =>
        h('button', {class: 'danger small', type: 'button', 'aria-label': `Delete ${shown(filter.action)} ${shown(filter.method)} ${shown(filter.filter)}`,
          onclick: () => removeFilter(filter).then((done) => done && show()).catch(report)}, 'Delete')),
      h('details', {}, h('summary', {}, 'New filter'), newFilterForm({group_id: id}, show)),
      h('div', {class: 'actions'},
        h('button', {class: 'danger', type: 'button', onclick: remove}, `Delete ${id}`)));
  }
  async function remove() {
    if (!await confirm(`Delete the group ${id}? Its filters stay and apply to a later group of this id.`, 'Delete')) {
      return;
    }
    try {
      if (await guarded((force) => call('DELETE', path, {query: {force}})) !== null) {
        say(`Deleted the group ${id}.`);
        location.hash = '#/groups';
      }
    } catch (problem) {
      report(problem);
    }
  }
  await show();
  return place;
}
