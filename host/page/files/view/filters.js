// The filters of all groups, or of one.

import {code, errorBox, field, form, h, input, shown, verdictMark} from '../dom.js';
import {newFilterForm, removeFilter} from '../filter.js';
import {pagedList} from '../list.js';

export async function render() {
  const place = h('div');
  const filters = pagedList('/access/filters', 'Filters', ['Group', 'Action', 'Method', 'Pattern', ''], (filter, again) => [
    h('a', {href: `#/groups/${encodeURIComponent(shown(filter.group_id))}`}, shown(filter.group_id)),
    verdictMark(shown(filter.action)), shown(filter.method), code(filter.filter),
    h('button', {class: 'danger small', type: 'button', 'aria-label': `Delete ${shown(filter.action)} ${shown(filter.method)} ${shown(filter.filter)} of ${shown(filter.group_id)}`,
      onclick: () => removeFilter(filter).then((done) => done && again()).catch((problem) => place.replaceChildren(errorBox(problem)))}, 'Delete'),
  ]);
  filters.load();
  return [
    form({role: 'search'}, (values) => filters.load({group: values.group}),
      field('Only of group', input('group')), h('button', {class: 'plain'}, 'Show')),
    h('details', {}, h('summary', {}, 'New filter'), newFilterForm({}, () => filters.load())),
    place, filters.element,
  ];
}
