// Who may do what on all targets: users or groups against the regions that the filters cut targets into.

import {get} from '../api.js';
import {code, field, fill, form, h, methods, select, shown, svg} from '../dom.js';

const columnsShown = 12;
const rowsShown = 40;
const names = 3; // of the users who have the same groups
const changing = methods.filter((method) => !['GET', 'HEAD', 'OPTIONS', 'TRACE'].includes(method));

export async function render({query}) {
  const place = h('div', {'aria-live': 'polite'});
  const show = async ({by}) => {
    const matrix = await get('/access/matrix', {by});
    matrix.subjects = matrix.subjects.map((subject) => ({...subject, at: new Map(subject.cells.map((cell) => [cell.region, cell]))}));
    fill(place, summary(matrix, by), matrix.subjects.length === 0 ? null : [picture(matrix), legend(), grid(matrix)]);
  };
  const by = query.get('by') === 'groups' ? 'groups' : 'users';
  await show({by});
  return [
    form({}, show, field('By', select('by', ['users', 'groups'], by)), h('button', {class: 'plain'}, 'Show')),
    place,
  ];
}

const count = (number, one) => `${number} ${number === 1 ? one : `${one}s`}`;

function summary({regions, subjects, complete, left_out: leftOut, targets}, by) {
  const language = targets.part === 'path' ? 'paths' : 'paths with their queries';
  const who = by === 'groups' ? count(subjects.length, 'group') : `${count(subjects.length, 'set')} of users who have the same groups`;
  return [
    h('p', {}, `The filters tell ${count(regions.length, 'region')} of all ${language} apart, inside each of which every decision is the same. ${who}.`),
    complete ? null : h('p', {class: 'error warn'}, leftOut > 0
      ? `There are more than ${regions.length} regions: ${count(leftOut, 'pattern')} cut none any more, and “?” stands where they matter.`
      : '“?” stands where a pattern could not be found out.'),
  ];
}

function nameOf({users, groups}) {
  const all = (users.length === 0 ? groups : users).map(shown);
  return all.slice(0, names).join(', ') + (all.length > names ? ` and ${all.length - names} more` : '');
}

const kindOf = (cell) => {
  if (cell === undefined) {
    return 'refused';
  }
  if (cell.allowed.some((method) => changing.includes(method))) {
    return 'changes';
  }
  return cell.allowed.length > 0 ? 'reads' : 'unknown';
};

/** All of it at a glance: a row a subject, a column a region. What may change is a full square, what may read a half. */
function picture({regions, subjects}) {
  const counts = {reads: 0, changes: 0, unknown: 0};
  const squares = subjects.flatMap((subject, row) => subject.cells.map((cell) => {
    const kind = kindOf(cell);
    ++counts[kind];
    const height = kind === 'changes' ? 9 : 4;
    return svg('rect', {x: cell.region * 10, y: row * 10 + 9 - height, width: 9, height, class: `cell-${kind}`});
  }));
  return svg('svg', {class: 'chart matrix', viewBox: `0 0 ${regions.length * 10} ${subjects.length * 10}`, preserveAspectRatio: 'none', role: 'img',
    'aria-label': `${count(subjects.length, 'row')} and ${count(regions.length, 'region')} of targets: ${counts.reads} places may be read, ${counts.changes} changed, ${counts.unknown} not found out`},
  ...squares);
}

const meanings = {reads: 'may read', changes: 'may change', unknown: 'not found out'};

function legend() {
  return h('ul', {class: 'legend'}, Object.entries(meanings).map(([kind, meaning]) => {
    const height = kind === 'changes' ? 10 : 5;
    return h('li', {}, svg('svg', {viewBox: '0 0 10 10', 'aria-hidden': 'true'},
      svg('rect', {y: 10 - height, width: 10, height, class: `cell-${kind}`})), meaning);
  }));
}

/** The same in words, some rows and columns at a time. */
function grid(matrix) {
  const place = h('div');
  const show = (row, column) => {
    const rows = matrix.subjects.slice(row, row + rowsShown);
    const columns = matrix.regions.slice(column, column + columnsShown);
    const mover = (label, to, [from, size, total]) => (total <= size ? [] : [
      h('button', {class: 'plain small', type: 'button', disabled: from === 0, onclick: () => to(from - size)}, `Previous ${label}`),
      h('button', {class: 'plain small', type: 'button', disabled: from + size >= total, onclick: () => to(from + size)}, `Next ${label}`),
      h('span', {class: 'dim'}, `${from + 1} to ${Math.min(from + size, total)} of ${total}`)]);
    fill(place,
      h('div', {class: 'pager'},
        mover('targets', (to) => show(row, to), [column, columnsShown, matrix.regions.length]),
        mover('rows', (to) => show(to, column), [row, rowsShown, matrix.subjects.length])),
      h('div', {class: 'scroll', tabindex: '0', role: 'region', 'aria-label': 'Who may do what'},
        h('table', {class: 'matrix'},
          h('caption', {}, 'Who may do what on targets like these; nothing where a cell is empty'),
          h('thead', {}, h('tr', {}, h('th', {scope: 'col'}, 'Who'), columns.map((region) => h('th', {scope: 'col'}, heading(region))))),
          h('tbody', {}, rows.map((subject) => h('tr', {},
            h('th', {scope: 'row', title: `in ${subject.groups.map(shown).join(', ') || 'no group'}`}, nameOf(subject)),
            columns.map((region, index) => cellOf(subject.at.get(column + index)))))))));
  };
  show(0, 0);
  return place;
}

function heading(region) {
  const patterns = `${region.target}: ${region.patterns.map(shown).join(' and ') || 'no pattern'}`;
  return h('a', {href: `#/who?${new URLSearchParams({method: 'GET', url: region.target})}`, title: patterns}, code(region.target));
}

function cellOf(cell) {
  if (cell === undefined) {
    return h('td');
  }
  return h('td', {class: `is-${kindOf(cell)}`}, cell.allowed.join(' '),
    cell.unknown.length > 0 ? h('span', {class: 'dim'}, ` ? ${cell.unknown.join(' ')}`) : null);
}
