// The whole directory, out and in: what would change is shown before it is done.

import {call} from '../api.js';
import {code, confirm, errorBox, field, form, guarded, h, say, shown} from '../dom.js';

const shownEntries = 50;

export async function render() {
  const text = h('textarea', {name: 'text', required: true, spellcheck: 'false'});
  const file = h('input', {type: 'file', accept: 'application/json,.json'});
  const result = h('div', {'aria-live': 'polite'});
  file.addEventListener('change', async () => {
    text.value = await file.files[0]?.text() ?? '';
    result.replaceChildren();
  });
  text.addEventListener('input', () => result.replaceChildren());
  return [
    h('p', {}, 'The text of an export. A user without a credential keeps the stored one.'),
    h('div', {class: 'actions'}, h('button', {class: 'plain', type: 'button', onclick: () => download().catch((problem) => result.replaceChildren(errorBox(problem)))}, 'Export without credentials')),
    form({class: 'stacked'}, async (values) => {
      const {body} = await call('PUT', '/access/directory', {body: values.text, query: {'dry-run': true}});
      result.replaceChildren(difference(body), replacement(values.text, result));
    },
    field('File', file), field('Directory', text), h('button', {}, 'Show the difference')),
    result,
  ];
}

async function download() {
  const {body} = await call('GET', '/access/directory');
  const url = URL.createObjectURL(new Blob([`${JSON.stringify(body, null, 1)}\n`], {type: 'application/json'}));
  h('a', {href: url, download: 'directory.json'}).click();
  URL.revokeObjectURL(url);
}

const words = (entry) => Object.entries(entry).filter(([name]) => name !== 'changes').map(([name, value]) => `${name} ${shown(value)}`).join(', ');

function difference(body) {
  const sections = Object.entries(body.difference).map(([name, section]) => {
    const part = (label, mark, entries) => (entries.length === 0 ? null : h('ul', {}, entries.slice(0, shownEntries).map((entry) =>
      h('li', {}, h('span', {class: `mark ${mark}`}, label), ' ', code(words(entry)),
        entry.changes ? `: ${Object.entries(entry.changes).map(([column, change]) => `${column} ${typeof change === 'object' ? JSON.stringify(change) : change}`).join(', ')}` : '')),
    entries.length > shownEntries ? h('li', {class: 'dim'}, `and ${entries.length - shownEntries} more ${label}`) : null));
    return h('section', {},
      h('h3', {}, `${name}: ${section.added.length} added, ${section.removed.length} removed, ${section.changed?.length ?? 0} changed, ${section.unchanged} unchanged`),
      part('added', 'good', section.added), part('removed', 'bad', section.removed), part('changed', 'warn', section.changed ?? []));
  });
  const warnings = body.warnings.map((warning) => h('li', {}, code(warning.path), ' ', warning.message));
  return h('section', {}, h('h2', {}, 'What would change'), sections,
    warnings.length > 0 ? h('section', {}, h('h3', {}, `${body.warning_count} ${body.warning_count === 1 ? 'warning' : 'warnings'}`), h('ul', {}, warnings)) : null);
}

function replacement(text, result) {
  return h('div', {class: 'actions'}, h('button', {class: 'danger', type: 'button', onclick: async () => {
    if (!await confirm('Replace the whole directory by this one?', 'Replace')) {
      return;
    }
    try {
      const done = await guarded((force) => call('PUT', '/access/directory', {body: text, query: {force}}));
      if (done !== null) {
        const counts = Object.entries(done.body.imported).map(([name, count]) => `${count} ${name}`).join(', ');
        result.replaceChildren(h('p', {class: 'verdict good'}, h('strong', {}, 'Imported'), `${counts}.`));
        say('Imported.');
      }
    } catch (problem) {
      result.append(errorBox(problem));
    }
  }}, 'Replace the directory'));
}
