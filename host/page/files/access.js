// A user's or a group's filters as they count.

import {get} from './api.js';
import {code, h, shown, table, verdictMark} from './dom.js';

// Every target begins with "/".
const everything = new Set(['^/', '/', '^', '.*', '^.*', '^.*$', '^/.*', '^/.*$']);

/** All filters of the groups. */
export async function filtersOf(groups) {
  const pages = await Promise.all(groups.map((group) => get('/access/filters', {group, limit: 'all'})));
  return pages.flatMap((page) => page.results);
}

/** By method, in the order of decision, with what a Deny leaves of each. */
export function inOrder(filters) {
  const rank = (filter) => ['Deny', 'Allow'].indexOf(filter.action) + 1 || 3;
  const denies = filters.filter((filter) => filter.action === 'Deny');
  return [...filters]
    .sort((left, right) => shown(left.method).localeCompare(shown(right.method)) || rank(left) - rank(right))
    .map((filter) => {
      const deny = filter.action === 'Allow' && denies.find((each) => each.method === filter.method
        && (each.filter === filter.filter || everything.has(each.filter)));
      return {...filter, note: deny ? `overruled by a Deny of ${shown(deny.group_id)}`
        : rank(filter) === 3 ? 'never applies: neither Allow nor Deny' : ''};
    });
}

/** The table; `actions` makes what stands behind each filter. */
export function accessTable(caption, filters, actions) {
  const rows = inOrder(filters);
  if (rows.length === 0) {
    return h('p', {class: 'dim'}, 'No filters: nothing is allowed.');
  }
  const headings = ['Method', 'Action', 'Pattern', 'Group', 'Note', ...(actions ? [''] : [])];
  return table(caption, headings, rows.map((filter) => [
    shown(filter.method), verdictMark(shown(filter.action)), code(filter.filter),
    h('a', {href: `#/groups/${encodeURIComponent(shown(filter.group_id))}`}, shown(filter.group_id)), filter.note,
    ...(actions ? [actions(filter)] : []),
  ]), {off: (index) => rows[index].note !== ''});
}
