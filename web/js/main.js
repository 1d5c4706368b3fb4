// The operator's settings page: reads every setting, then lets each control write its own.

import { loadObjectTypes } from './object-types.js';
import { startConnection } from './connection.js';
import { bindNumberSetting, bindSwitch } from './settings.js';

const loads = [
    ...[...document.querySelectorAll('input[role="switch"][data-get]')].map(bindSwitch),
    ...[...document.querySelectorAll('form.number-setting')].map(bindNumberSetting),
];

const results = await Promise.all([startConnection(), loadObjectTypes(), ...loads.map((load) => load())]);

const status = document.getElementById('page-status');
status.textContent = results.every(Boolean)
    ? ''
    : 'Some settings could not be read: see the messages beside them, then reload the page.';
// The page has read what it could (tests wait for this).
document.documentElement.dataset.ready = 'true';
