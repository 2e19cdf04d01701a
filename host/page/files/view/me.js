// The caller's own password.

import {call, isRemembered, remember} from '../api.js';
import {field, form, h, input, say} from '../dom.js';

export async function render({user}) {
  return form({class: 'stacked'}, async (values, element) => {
    if (values.password !== values.again) {
      throw new Error('The two new passwords differ.');
    }
    await call('PUT', '/access/me/credential', {body: {current_password: values.current_password, password: values.password}});
    if (isRemembered()) {
      remember(user.user_id, values.password);
    }
    element.reset();
    say('Changed your password.');
  },
  field('Current password', input('current_password', {type: 'password', required: true, autocomplete: 'current-password'})),
  field('New password', input('password', {type: 'password', required: true, autocomplete: 'new-password'})),
  field('The same once more', input('again', {type: 'password', required: true, autocomplete: 'new-password'})),
  h('button', {}, 'Change password'));
}
