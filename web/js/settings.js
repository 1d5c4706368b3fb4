// The settings that are one number or one switch, each read with its get* method and
// written with its set* method (named in the page's data-get and data-set attributes).

import { call } from './api.js';
import { clearMessage, formatNumber, showDone, showError, whileBusy } from './feedback.js';

function messageFor(control) {
    return document.getElementById(`${control.id}-message`);
}

function describeRange(min, max, unit) {
    const space = unit === '°' || unit === '%' ? '' : ' ';
    return `Range ${formatNumber(min)} to ${formatNumber(max)}${space}${unit}`;
}

// The first read of a setting: its controls are enabled once it succeeded; a failure is
// shown in its message. Resolves to whether the read succeeded.
function loader(read, message, controls) {
    return async function load() {
        try {
            await read();
        } catch (error) {
            showError(message, error);
            return false;
        }
        for (const control of controls)
            control.disabled = false;
        return true;
    };
}

// A form with one number input, its Save button and perhaps a button that takes the value
// from the camera (data-take). Returns its load function, which resolves to whether the
// value could be read; the controls stay disabled until it could.
export function bindNumberSetting(form) {
    const input = form.elements.value;
    const controls = [...form.elements];
    const range = document.getElementById(`${input.id}-range`);
    const message = messageFor(input);
    const unit = form.querySelector('.unit').textContent;
    let stored = null;

    async function read() {
        const data = await call(form.dataset.get);
        stored = formatNumber(data.value);
        input.value = stored;
        input.min = data.minValue;
        input.max = data.maxValue;
        range.textContent = describeRange(data.minValue, data.maxValue, unit);
    }

    // The value on the page is always the stored one: a refused value gives way to it,
    // and the API's message says what was refused and why.
    async function change(request, done) {
        clearMessage(message);
        await whileBusy(controls, async () => {
            try {
                await request();
                await read();
                showDone(message, done());
            } catch (error) {
                input.value = stored ?? '';
                showError(message, error);
            }
        });
    }

    form.addEventListener('submit', (event) => {
        event.preventDefault();
        const value = input.value === '' ? null : Number(input.value);
        change(() => call(form.dataset.set, { value }), () => 'Saved.');
    });
    const take = form.querySelector('button.take');
    take?.addEventListener('click', () => {
        change(() => call(form.dataset.take), () => `Taken from the camera: ${stored}${unit}`);
    });

    return loader(read, message, controls);
}

// Space toggles a checkbox; Enter does too on this page, as it acts on every other control.
export function enterToggles(input) {
    input.addEventListener('keydown', (event) => {
        if (event.key === 'Enter') {
            event.preventDefault();
            input.click();
        }
    });
}

// A switch (a checkbox with role="switch") that writes itself as soon as it changes.
export function bindSwitch(input) {
    const message = messageFor(input);
    let stored = null;

    async function read() {
        stored = (await call(input.dataset.get)).value === true;
        input.checked = stored;
    }

    input.addEventListener('change', () => {
        clearMessage(message);
        whileBusy([input], async () => {
            try {
                await call(input.dataset.set, { value: input.checked });
                await read();
            } catch (error) {
                input.checked = stored;
                showError(message, error);
            }
        });
    });
    enterToggles(input);

    return loader(read, message, [input]);
}
