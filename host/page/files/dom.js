// Makes elements. Whatever comes from the directory goes in as text, never as markup.

/** An element; `properties` are attributes, or listeners under "on...". */
export function h(tag, properties = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (name.startsWith('on')) {
      element.addEventListener(name.slice(2), value);
    } else if (value === true) {
      element.setAttribute(name, '');
    } else if (value !== false && value !== undefined && value !== null) {
      element.setAttribute(name, value);
    }
  }
  element.append(...children.flat().filter((child) => child !== null && child !== undefined));
  return element;
}

/** Puts these children in the place of those that an element has. */
export function fill(element, ...children) {
  element.replaceChildren(...children.flat().filter((child) => child !== null && child !== undefined));
}

export function svg(tag, attributes = {}, ...children) {
  const element = document.createElementNS('http://www.w3.org/2000/svg', tag);
  for (const [name, value] of Object.entries(attributes)) {
    element.setAttribute(name, value);
  }
  element.append(...children);
  return element;
}

/** A stored text; one that is not UTF-8 comes as {base64}. */
export function shown(text) {
  return typeof text === 'string' ? text : `(bytes) ${text?.base64 ?? ''}`;
}

export const code = (text) => h('code', {}, shown(text));

/** A table of rows of cells; each cell a node or a text. `off` tells which rows do not count. */
export function table(caption, headings, rows, {off = () => false} = {}) {
  return h('div', {class: 'scroll', tabindex: '0', role: 'region', 'aria-label': caption},
    h('table', {},
      h('caption', {}, caption),
      h('thead', {}, h('tr', {}, headings.map((heading) => h('th', {scope: 'col'}, heading)))),
      h('tbody', {}, rows.map((cells, index) =>
        h('tr', {class: off(index) ? 'off' : undefined}, cells.map((cell) => h('td', {}, cell)))))));
}

/** A labelled control. */
export function field(label, control, hint) {
  return h('label', {class: control.dataset.wide === undefined ? undefined : 'wide'}, label, control,
    hint ? h('small', {}, hint) : null);
}

export function input(name, properties = {}) {
  const element = h('input', {name, type: 'text', autocomplete: 'off', autocapitalize: 'off', spellcheck: 'false', ...properties});
  return element;
}

export function select(name, options, value) {
  return h('select', {name}, options.map((option) => h('option', {value: option, selected: option === value}, option || '(any)')));
}

export const methods = ['GET', 'HEAD', 'POST', 'PUT', 'DELETE', 'PATCH', 'OPTIONS', 'TRACE', 'CONNECT'];

export function verdictMark(outcome) {
  const kind = {allowed: 'good', Allow: 'good', refused: 'bad', Deny: 'bad', problem: 'bad', unauthenticated: 'warn', throttled: 'warn', unavailable: 'bad'}[outcome] ?? 'quiet';
  return h('span', {class: `mark ${kind}`}, outcome);
}

/** Says something to people, and to screen readers. */
let timer;
export function say(text) {
  const status = document.getElementById('status');
  status.textContent = text;
  clearTimeout(timer);
  timer = setTimeout(() => { status.textContent = ''; }, 6000);
}

export function errorBox(problem) {
  const details = (problem.body?.errors ?? []).map((error) => h('li', {}, code(error.path), ' ', error.message));
  return h('div', {class: 'error bad', role: 'alert'}, problem.message,
    details.length > 0 ? h('ul', {}, details) : null);
}

/** A form whose problems show in it. `submit` gets the form's data. */
export function form(properties, submit, ...children) {
  const place = h('div');
  const element = h('form', {...properties, onsubmit: async (event) => {
    event.preventDefault();
    const buttons = [...element.querySelectorAll('button')];
    const values = Object.fromEntries(new FormData(element));
    buttons.forEach((button) => { button.disabled = true; });
    place.replaceChildren();
    try {
      await submit(values, element);
    } catch (problem) {
      place.replaceChildren(errorBox(problem));
    } finally {
      buttons.forEach((button) => { button.disabled = false; });
    }
  }}, ...children);
  return h('div', {}, element, place);
}

/** Asks before something is lost or, with a `kind` of its own, done; `details` are nodes below the question. */
export function confirm(question, action, {details = [], kind = 'danger'} = {}) {
  return new Promise((resolve) => {
    const dialog = h('dialog', {'aria-label': question, onclose: () => {
      dialog.remove();
      resolve(dialog.returnValue === 'yes');
    }},
    h('p', {}, question), details,
    h('form', {method: 'dialog'},
      h('button', {class: 'plain', value: 'no', autofocus: true}, 'Cancel'),
      h('button', {class: kind, value: 'yes'}, action)));
    document.body.append(dialog);
    dialog.showModal();
  });
}

/** Runs a change that may take the last administrator away, which the server refuses at first. */
export async function guarded(change) {
  try {
    return await change(false);
  } catch (problem) {
    if (problem.status !== 409 || !/could administer/.test(problem.message)) {
      throw problem;
    }
    if (!await confirm(problem.message, 'Do it all the same')) {
      return null;
    }
    return change(true);
  }
}
