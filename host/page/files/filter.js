// Creating and deleting filters, from several views.

import {call} from './api.js';
import {effectOf} from './effect.js';
import {confirm, field, form, h, input, methods, say, select, shown} from './dom.js';

/** A form for a new filter, with what is known of it filled in. */
export function newFilterForm(known, done) {
  const pattern = input('filter', {required: true, value: known.filter, placeholder: '^/articles(/|$)'});
  pattern.dataset.wide = '';
  return form({}, async (values) => {
    const filter = {method: values.method, group_id: values.group_id, filter: values.filter, action: values.action};
    const details = await effectOf('add', filter);
    if (!await confirm(`Create ${filter.action} ${filter.method} ${filter.filter} for ${filter.group_id}?`, 'Create', {details, kind: ''})) {
      return;
    }
    await call('POST', '/access/filters', {body: filter});
    say(`Created: ${filter.action} ${filter.method} ${filter.filter} for ${filter.group_id}.`);
    await done(filter);
  },
  field('Group', input('group_id', {required: true, value: known.group_id})),
  field('Action', select('action', ['Allow', 'Deny'], known.action ?? 'Allow')),
  field('Method', select('method', methods, known.method ?? 'GET')),
  field('Pattern', pattern, 'POSIX extended regular expression; begin with ^'),
  h('button', {}, known.label ?? 'Create filter'));
}

/** Deletes a filter after a question; whether it did. */
export async function removeFilter(filter) {
  const words = `${shown(filter.action)} ${shown(filter.method)} ${shown(filter.filter)} of ${shown(filter.group_id)}`;
  const details = await effectOf('delete', filter);
  if (!await confirm(`Delete ${words}?`, 'Delete', {details})) {
    return false;
  }
  const {method, group_id, filter: pattern, action} = filter;
  await call('DELETE', '/access/filters', {query: {method, group_id, filter: pattern, action}});
  say(`Deleted ${words}.`);
  return true;
}
