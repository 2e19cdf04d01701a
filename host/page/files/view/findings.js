// What is odd in the directory, kind by kind.

import {get} from '../api.js';
import {code, h, shown, verdictMark} from '../dom.js';

const shownOfAKind = 20;

export async function render() {
  const report = await get('/access/findings', {limit: shownOfAKind});
  const {left_out: leftOut, filters} = report.proofs;
  const gap = leftOut === 0 ? null
    : h('p', {class: 'error warn'}, `${leftOut} of ${filters} filters were not held against all targets: that takes longer. perenna-access lint --proof-time does it.`);
  if (report.findings.length === 0) {
    return [h('p', {class: 'verdict good'}, h('strong', {}, 'Nothing found'), gap === null ? 'Every row does what it says.' : ''), gap ?? ''];
  }
  return [
    gap ?? '',
    h('p', {}, `${report.problems} ${report.problems === 1 ? 'problem' : 'problems'} and ${report.notes} ${report.notes === 1 ? 'note' : 'notes'}.`),
    ...report.kinds.map((kind) => {
      const findings = report.findings.filter((finding) => finding.kind === kind.kind);
      return h('section', {},
        h('h2', {}, verdictMark(kind.severity), ' ', kind.kind.replaceAll('-', ' '), ` (${kind.count})`),
        findings.map(article),
        kind.count > findings.length ? h('p', {class: 'dim'}, `and ${kind.count - findings.length} more`) : null);
    }),
  ];
}

function article(finding) {
  return h('article', {},
    finding.row === null ? null : h('h3', {}, Object.entries(finding.row).map(([name, value]) => `${name} ${shown(value)}`).join(', ')),
    h('p', {}, finding.why),
    h('p', {}, 'Mend: ', code(finding.mend)));
}
