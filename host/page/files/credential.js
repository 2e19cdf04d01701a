// Entering a credential: a password, a certificate or a thumbprint.

import {field, h, input} from './dom.js';

export function credentialFields() {
  const controls = {
    password: field('Password', input('password', {type: 'password', autocomplete: 'new-password'})),
    certificate: field('Certificate, PEM', h('textarea', {name: 'certificate', spellcheck: 'false'})),
    thumbprint: field('Thumbprint', input('thumbprint'), 'SHA-1, in hexadecimal or base64'),
  };
  const kind = h('select', {name: 'kind'}, Object.keys(controls).map((name) => h('option', {value: name}, name)));
  const choose = () => Object.entries(controls).forEach(([name, control]) => { control.hidden = name !== kind.value; });
  kind.addEventListener('change', choose);
  choose();
  return [field('Signs in with a', kind), ...Object.values(controls)];
}

export function credentialOf(values) {
  return {[values.kind]: values[values.kind]};
}
