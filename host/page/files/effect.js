// What a filter would change, told before it is saved or deleted.

import {get} from './api.js';
import {code, h, shown, table, verdictMark} from './dom.js';

const shownRows = 8;
const times = (count, noun) => `${count} ${noun}${count === 1 ? '' : 's'}`;

function ruling({allowed, undecided, decider}) {
  const mark = verdictMark(allowed ? 'allowed' : 'refused');
  return decider === null ? mark : h('span', {}, mark, ' ', undecided ? 'in doubt, ' : '', `${shown(decider.action)} of ${shown(decider.group_id)}, `, code(decider.filter));
}

function ofDecisions({judged, differing, flips}) {
  if (judged === 0) {
    return h('p', {class: 'dim'}, 'There is no recent decision to judge anew.');
  }
  return h('section', {},
    h('p', {}, `Of ${times(judged, 'recent request')} ${differing === 0 ? 'none' : differing} would be decided otherwise.`),
    flips.length === 0 ? null : table('Recent requests that would be decided otherwise', ['Requests', 'The first', 'Now', 'Then'],
      flips.slice(0, shownRows).map(({count, example, before, after}) =>
        [String(count), h('span', {}, `${shown(example.user_id)} `, code(`${shown(example.method)} ${shown(example.url)}`)), ruling(before), ruling(after)])),
    flips.length > shownRows ? h('p', {class: 'dim'}, `and ${flips.length - shownRows} more kinds`) : null);
}

const people = (users) => (users.length <= 3 ? users.map(shown).join(', ') : `${users.slice(0, 2).map(shown).join(', ')} and ${users.length - 2} more`);

function answer({answer: kind, target, why}) {
  return kind === 'none' ? '–' : kind === 'witness' ? code(target) : h('span', {class: 'dim'}, `not known: ${why}`);
}

function ofTargets({changes}) {
  if (changes.length === 0) {
    return h('p', {}, 'Proved for all targets: nobody\'s rights change.');
  }
  return h('section', {},
    table('For example, of all targets', ['Users', 'Methods', 'Becomes allowed', 'Becomes refused'], changes.slice(0, shownRows).map((change) =>
      [people(change.users), change.methods.join(', '), answer(change.granted), answer(change.refused)])),
    changes.length > shownRows ? h('p', {class: 'dim'}, `and ${changes.length - shownRows} more classes of users`) : null,
    h('p', {class: 'dim'}, '– is proved: there is no such target.'));
}

/** `change` is "add" or "delete". Nodes that tell what it does; throws a `Problem`. */
export async function effectOf(change, {method, group_id, filter, action}) {
  const effect = await get('/access/what-if', {change, method, group_id, filter, action});
  return [ofDecisions(effect.decisions), ofTargets(effect.targets)];
}
