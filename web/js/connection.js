// The camera connection: address, user and password, written together; and the camera
// link's state, read again every couple of seconds while the page is in view.

import { call } from './api.js';
import { clearMessage, describeError, showDone, showError, whileBusy } from './feedback.js';

const POLL_INTERVAL_MS = 2000;

const STATE_TEXT = {
    disconnected: 'disconnected',
    connecting: 'connecting',
    autotune: 'measuring the camera (autotune)',
    connected: 'connected',
    connect_failed: 'connection failed',
};

const form = document.getElementById('connection-form');
const fieldset = form.querySelector('fieldset');
const { ip, user, pass } = form.elements;
const ipMessage = document.getElementById('camera-ip-message');
const passMessage = document.getElementById('camera-pass-message');
const formMessage = document.getElementById('connection-message');
const stateText = document.getElementById('camera-state');
const stateDot = document.getElementById('camera-state-dot');
const lastChange = document.getElementById('camera-last-change');

let stored = { ip: '', user: '' };
let shownState = null;

function describeState(state) {
    return STATE_TEXT[state] ?? state;
}

function showState(state) {
    if (state === shownState)
        return;
    if (shownState !== null) {
        const time = new Date().toLocaleTimeString();
        lastChange.textContent =
            `Last change: ${describeState(shownState)} → ${describeState(state)} at ${time}.`;
    }
    shownState = state;
    stateText.textContent = describeState(state);
    stateDot.dataset.state = state;
}

async function read() {
    const data = await call('getCameraConnection');
    stored = { ip: data.ip, user: data.user };
    ip.value = data.ip;
    user.value = data.user;
    showState(data.state);
}

async function poll() {
    if (!document.hidden) {
        try {
            showState((await call('getCameraConnection')).state);
        } catch (error) {
            stateText.textContent = `unknown (${describeError(error)})`;
            shownState = null;
        }
    }
    setTimeout(poll, POLL_INTERVAL_MS);
}

async function save(event) {
    event.preventDefault();
    for (const message of [ipMessage, passMessage, formMessage])
        clearMessage(message);
    const connection = { ip: ip.value.trim(), user: user.value, pass: pass.value };
    // The password is never read back, so an empty field would quietly replace it.
    if (connection.ip !== '' && connection.pass === '') {
        showError(passMessage, { message: 'Type the camera\'s password: it is never read back.' });
        pass.focus();
        return;
    }
    await whileBusy([fieldset], async () => {
        try {
            await call('setCameraConnection', connection);
            pass.value = '';
            await read();
            showDone(formMessage, 'Saved. The service connects to the camera again.');
        } catch (error) {
            ip.value = stored.ip;
            user.value = stored.user;
            pass.value = '';
            showError(error.code === 300 ? ipMessage : formMessage, error);
        }
    });
}

// Resolves to whether the connection could be read; the state is polled from then on.
export async function startConnection() {
    form.addEventListener('submit', save);
    let ok = true;
    try {
        await read();
        fieldset.disabled = false;
    } catch (error) {
        showError(formMessage, error);
        ok = false;
    }
    setTimeout(poll, POLL_INTERVAL_MS);
    return ok;
}
