// What the views of users, groups and filters share: a list, page by page.

import {get} from './api.js';
import {errorBox, h, table} from './dom.js';

const pageRows = 50;

/** A paged list of `path`; `row` makes the cells of an entry. Call `load(query)` to show it from its beginning. */
export function pagedList(path, caption, headings, row) {
  const place = h('div');
  let query = {};
  let turn = 0; // an answer that comes after that to a later question is dropped
  async function show(skip) {
    const mine = ++turn;
    try {
      const page = await get(path, {...query, skip, limit: pageRows});
      if (mine !== turn) {
        return;
      }
      const last = skip + page.results.length;
      const move = (label, to, possible) =>
        h('button', {class: 'plain small', type: 'button', disabled: !possible, onclick: () => show(to)}, label);
      place.replaceChildren(
        page.results.length === 0
          ? h('p', {class: 'dim'}, 'Nothing here.')
          : table(caption, headings, page.results.map((entry) => row(entry, () => show(skip)))),
        h('div', {class: 'pager'},
          move('Previous', Math.max(0, skip - pageRows), skip > 0), move('Next', last, last < page.total),
          h('span', {class: 'dim'}, page.total === 0 ? '' : `${skip + 1} to ${last} of ${page.total}`)));
    } catch (problem) {
      place.replaceChildren(errorBox(problem));
    }
  }
  return {element: place, load: (wanted = query) => { query = wanted; return show(0); }};
}

/** A search field that asks as one types. */
export function searchForm(label, load) {
  let timer;
  const field = h('input', {type: 'search', name: 'search', autocomplete: 'off'});
  field.addEventListener('input', () => {
    clearTimeout(timer);
    timer = setTimeout(() => load(field.value), 200);
  });
  return h('form', {role: 'search', onsubmit: (event) => { event.preventDefault(); load(field.value); }},
    h('label', {class: 'wide'}, label, field));
}
