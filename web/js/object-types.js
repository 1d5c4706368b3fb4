// The object types to follow: one switch for each type that the radar tells apart
// (getCapabilities), set one at a time (setObjectTypesToTrack merges what it is given).

import { call } from './api.js';
import { clearMessage, showError, whileBusy } from './feedback.js';
import { enterToggles } from './settings.js';

const LABELS = {
    small: 'Small objects',
    human: 'People',
    vehicle: 'Vehicles',
    unknown: 'Unidentified objects',
};

const list = document.getElementById('object-type-list');
const hint = document.getElementById('object-types-hint');
const message = document.getElementById('object-types-message');

function switches() {
    return [...list.querySelectorAll('input')];
}

async function read() {
    const chosen = await call('getObjectTypesToTrack');
    for (const input of switches())
        input.checked = chosen[input.name] === true;
}

async function change(input) {
    clearMessage(message);
    await whileBusy(switches(), async () => {
        try {
            await call('setObjectTypesToTrack', { [input.name]: input.checked });
            await read();
        } catch (error) {
            input.checked = !input.checked;
            showError(message, error);
        }
    });
}

function makeSwitch(type) {
    const row = document.createElement('div');
    row.className = 'switch-row';
    const input = document.createElement('input');
    input.type = 'checkbox';
    input.setAttribute('role', 'switch');
    input.id = `object-type-${type}`;
    input.name = type;
    input.addEventListener('change', () => change(input));
    enterToggles(input);
    const label = document.createElement('label');
    label.htmlFor = input.id;
    label.textContent = LABELS[type] ?? type;
    row.append(input, label);
    return row;
}

// Resolves to whether the types could be read.
export async function loadObjectTypes() {
    try {
        const capabilities = await call('getCapabilities');
        const types = capabilities.objectTypesToTrack?.types ?? [];
        list.replaceChildren(...types.map(makeSwitch));
        if (types.length === 0)
            hint.textContent = 'This radar tells no object types apart.';
        await read();
    } catch (error) {
        showError(message, error);
        return false;
    }
    return true;
}
