// The last decisions, and a picture of their outcomes over time.

import {get} from '../api.js';
import {code, field, form, h, input, select, shown, svg, table, verdictMark} from '../dom.js';

const outcomes = ['allowed', 'refused', 'unauthenticated', 'throttled', 'malformed', 'unavailable'];
const kinds = ['allowed', 'refused', 'unauthenticated', 'other'];
const kindOf = (outcome) => (kinds.includes(outcome) ? outcome : 'other');
const bars = 48;
const shownRows = 100;

export async function render() {
  const place = h('div', {'aria-live': 'polite'});
  const show = async (query) => {
    const page = await get('/access/decisions', {...query, limit: 'all'});
    place.replaceChildren(...(page.results.length === 0 ? [h('p', {class: 'dim'}, 'None yet.')] : [picture(page.results), legend(), list(page.results)]));
  };
  await show({});
  return [
    form({role: 'search'}, show,
      field('Outcome', select('outcome', ['', ...outcomes], '')),
      field('User', input('user_id')),
      h('button', {class: 'plain'}, 'Show')),
    place,
  ];
}

/** Stacked bars, oldest to the left. */
function picture(decisions) {
  const times = decisions.map((decision) => Date.parse(decision.time));
  const begin = Math.min(...times);
  const span = Math.max(Math.max(...times) - begin, 1);
  const counts = Array.from({length: bars}, () => ({}));
  decisions.forEach((decision, index) => {
    const bar = counts[Math.min(bars - 1, Math.floor((times[index] - begin) / span * bars))];
    bar[kindOf(decision.outcome)] = (bar[kindOf(decision.outcome)] ?? 0) + 1;
  });
  const most = Math.max(...counts.map((bar) => kinds.reduce((sum, kind) => sum + (bar[kind] ?? 0), 0)));
  const parts = counts.flatMap((bar, index) => {
    let top = 100;
    return kinds.filter((kind) => bar[kind]).map((kind) => {
      const height = bar[kind] / most * 96;
      top -= height;
      return svg('rect', {x: index * 10 + 1, y: top, width: 8, height, class: `bar-${kind}`});
    });
  });
  const summary = kinds.map((kind) => `${decisions.filter((each) => kindOf(each.outcome) === kind).length} ${kind}`).join(', ');
  const first = new Date(begin).toLocaleString();
  const last = new Date(begin + span).toLocaleString();
  return svg('svg', {class: 'chart', viewBox: `0 0 ${bars * 10} 100`, preserveAspectRatio: 'none', role: 'img',
    'aria-label': `Outcomes from ${first} to ${last}: ${summary}`}, ...parts);
}

function legend() {
  return h('ul', {class: 'legend'}, kinds.map((kind) =>
    h('li', {}, svg('svg', {viewBox: '0 0 10 10', 'aria-hidden': 'true'}, svg('rect', {width: 10, height: 10, class: `bar-${kind}`})), kind)));
}

function list(decisions) {
  return table(`The newest ${Math.min(shownRows, decisions.length)} of ${decisions.length}`,
    ['Time', 'Outcome', 'User', 'Request', 'Reason', 'From', 'Took'],
    decisions.slice(0, shownRows).map((decision) => [
      new Date(decision.time).toLocaleTimeString(), verdictMark(decision.outcome), shown(decision.user_id),
      h('a', {href: `#/check?${new URLSearchParams({user: shown(decision.user_id), method: decision.method, url: decision.path})}`},
        code(`${decision.method} ${decision.path}`)),
      decision.reason, decision.address, `${decision.microseconds} µs${decision.cached ? ', cached' : ''}`]));
}
