// The running unit that with-web-unit started: its page, its CGI, its configuration file
// and the simulated camera's control socket.
import { readFileSync } from 'node:fs';
import { request } from 'node:http';

function required(name) {
    const value = process.env[name];
    if (!value)
        throw new Error(`${name} is not set: run the tests through tests/browser/with-web-unit`);
    return value;
}

export const webUrl = required('TRELVO_WEB_URL');
const confFile = required('TRELVO_CONF_FILE');
const cameraSocket = required('TRELVO_CAMERA_CONTROL');

// Calls the CGI through nginx, as the page does; resolves with the whole answer.
export async function cgi(method, params) {
    const body = { apiVersion: '1.1', method };
    if (params !== undefined)
        body.params = params;
    const response = await fetch(`${webUrl}/zelk-cgi/trelvo.cgi`, { method: 'POST', body: JSON.stringify(body) });
    if (response.status !== 200)
        throw new Error(`${method}: HTTP ${response.status}`);
    return response.json();
}

// The data of a call that must succeed.
export async function get(method) {
    const answer = await cgi(method);
    if (!answer.data)
        throw new Error(`${method}: ${JSON.stringify(answer)}`);
    return answer.data;
}

// The configuration file as {group: {key: text}} (a key file: [group] lines, key=value).
export function readConf() {
    const groups = {};
    let group = null;
    for (const line of readFileSync(confFile, 'utf8').split('\n')) {
        const header = line.match(/^\[(.+)\]$/);
        const entry = line.match(/^([^=#]+)=(.*)$/);
        if (header)
            group = groups[header[1]] = {};
        else if (entry && group)
            group[entry[1].trim()] = entry[2];
    }
    return groups;
}

// A request to the simulated camera's control interface (e.g. '/position?pan=30', or
// '/status' with GET); resolves with the answer's text.
export function cameraControl(path, method = 'POST') {
    return new Promise((resolve, reject) => {
        const call = request({ socketPath: cameraSocket, path, method }, (response) => {
            let text = '';
            response.on('data', (chunk) => { text += chunk; });
            response.on('end', () => (response.statusCode === 200 ? resolve(text) : reject(new Error(text))));
        });
        call.on('error', reject);
        call.end();
    });
}
