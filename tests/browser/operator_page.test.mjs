// The operator's page in a real browser, behind nginx, against the real service: what a
// person does on it ends up in the service's answers and in its configuration file.
import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';

import { launch, openPage } from './support/browser.mjs';
import { cameraControl, cgi, get, readConf, webUrl } from './support/unit.mjs';

let browser;
before(async () => { browser = await launch(); });
after(async () => { await browser?.close(); });

// Waits until check() returns a truthy value (retried every 100 ms, for at most 10 s).
async function eventually(check, what) {
    const deadline = Date.now() + 10000;
    for (;;) {
        const value = await check();
        if (value)
            return value;
        if (Date.now() > deadline)
            throw new Error(`timed out waiting for ${what}`);
        await new Promise((resolve) => setTimeout(resolve, 100));
    }
}

test('settings changed on the page are in the service\'s answers', async () => {
    const { page, close } = await openPage(browser);

    // A number: the page shows what the service stored (the time-out is whole seconds).
    await page.fill('#return-to-home-timeout', '12.9');
    await page.click('#return-to-home-timeout ~ button[type="submit"]');
    await page.waitForSelector('#return-to-home-timeout-message.done');
    assert.equal(await page.inputValue('#return-to-home-timeout'), '12');
    assert.equal((await get('getReturnToHomeTimeout')).value, 12);

    // The object types are the radar's (no small objects here); one changes alone.
    const types = await page.$$eval('#object-type-list input', (inputs) => inputs.map((input) => input.name));
    assert.deepEqual(types, ['human', 'vehicle', 'unknown']);
    const before = await get('getObjectTypesToTrack');
    await page.getByRole('switch', { name: 'Unidentified objects' }).click();
    await eventually(async () => (await get('getObjectTypesToTrack')).unknown !== before.unknown, 'the unknown type');
    assert.deepEqual(await get('getObjectTypesToTrack'), { ...before, unknown: !before.unknown });

    // The camera connection: stored, the password never shown again, and the live state
    // follows the camera link to "connected" (which only the right password gets to).
    await cgi('setCameraConnection', { ip: '', user: '', pass: '' });
    await page.fill('#camera-ip', '127.0.0.1');
    await page.fill('#camera-user', 'root');
    await page.fill('#camera-pass', 'pass');
    await page.click('#connection-form button[type="submit"]');
    await page.waitForSelector('#connection-message.done');
    assert.deepEqual(await get('getCameraConnection').then(({ ip, user }) => ({ ip, user })), { ip: '127.0.0.1', user: 'root' });
    assert.equal(await page.inputValue('#camera-pass'), '');
    await page.waitForFunction(() => document.getElementById('camera-state').textContent === 'connected');
    assert.match(await page.textContent('#camera-last-change'), /^Last change: .* → connected at /);
    await close();
});

test('a refused value shows the API\'s message beside its field and changes nothing', async () => {
    const { page, close } = await openPage(browser);
    const conf = readConf();
    const zoom = (await get('getCameraZoomDegree')).value;
    const connection = await get('getCameraConnection');

    // One step past the top of the range (the browser leaves the judgement to the API).
    assert.equal(await page.getAttribute('#zoom-degree', 'max'), '100');
    assert.equal(await page.textContent('#zoom-degree-range'), 'Range 0 to 100%');
    await page.fill('#zoom-degree', '100.1');
    await page.press('#zoom-degree', 'Enter');
    await page.waitForSelector('#zoom-degree-message.error');
    assert.equal(await page.textContent('#zoom-degree-message'),
        'Invalid value \'100.1000\' for parameter \'value\' (error 300)');
    assert.equal(await page.inputValue('#zoom-degree'), String(zoom));

    // The password is never read back: an address without one is not sent at all.
    await page.fill('#camera-ip', '10.0.0.1');
    await page.fill('#camera-pass', '');
    await page.click('#connection-form button[type="submit"]');
    await page.waitForSelector('#camera-pass-message.error');
    assert.equal(await page.evaluate(() => document.activeElement.id), 'camera-pass');

    await page.fill('#camera-ip', '192.168.001.10');
    await page.fill('#camera-pass', 'secret');
    await page.click('#connection-form button[type="submit"]');
    await page.waitForSelector('#camera-ip-message.error');
    assert.equal(await page.textContent('#camera-ip-message'),
        'Invalid value \'192.168.001.10\' for parameter \'ip\' (error 300)');
    assert.equal(await page.inputValue('#camera-ip'), connection.ip);

    assert.equal((await get('getCameraZoomDegree')).value, zoom);
    assert.equal((await get('getCameraConnection')).ip, connection.ip);
    assert.deepEqual(readConf(), conf);
    await close();
});

test('keyboard only: Tab to a field, change it, Enter saves; Enter flips a switch', async () => {
    const { page, close } = await openPage(browser);

    async function tabTo(id) {
        for (let i = 0; i < 40; i++) {
            await page.keyboard.press('Tab');
            if (await page.evaluate(() => document.activeElement.id) === id)
                return;
        }
        assert.fail(`#${id} is not reachable with Tab`);
    }

    await tabTo('mounting-height');
    const ring = await page.evaluate(() => getComputedStyle(document.activeElement).outlineStyle);
    assert.equal(ring, 'solid', 'a visible focus ring');
    // Whether the field was held still while its request ran.
    await page.evaluate(() => {
        const field = document.getElementById('mounting-height');
        new MutationObserver(() => { window.heldWhileSaving ||= field.disabled; })
            .observe(field, { attributes: true, attributeFilter: ['disabled'] });
    });
    await page.keyboard.press('Control+A');
    await page.keyboard.type('7.25');
    await page.keyboard.press('Enter');
    await page.waitForSelector('#mounting-height-message.done');
    assert.equal(await page.evaluate(() => window.heldWhileSaving), true);
    assert.equal(await page.evaluate(() => document.activeElement.id), 'mounting-height', 'the focus stays');
    assert.equal((await get('getCameraMountingHeight')).value, 7.25);

    const homeBefore = (await get('getReturnToHomeEnabled')).value;
    await tabTo('return-to-home-enabled');
    await page.keyboard.press('Enter');
    await eventually(async () => (await get('getReturnToHomeEnabled')).value !== homeBefore, 'return to home');
    assert.equal(await page.isChecked('#return-to-home-enabled'), !homeBefore);
    await close();
});

test('the offsets taken from where the camera points', async () => {
    await cgi('setTrackingEnabled', { value: false });
    // Connected only if it is not: a reconnection still reads "connected" until it starts.
    if ((await get('getCameraConnection')).state !== 'connected')
        await cgi('setCameraConnection', { ip: '127.0.0.1', user: 'root', pass: 'pass' });
    await eventually(async () => (await get('getCameraConnection')).state === 'connected', 'the camera');
    await cameraControl('/position?pan=30&tilt=-4');
    const { page, close } = await openPage(browser);

    // The service knows the camera's position from its next report: try until it has it.
    // The camera reports in single precision (30.000059).
    const near = (value, degrees) => Math.abs(Number(value) - degrees) < 0.01;
    for (const [channel, degrees] of [['pan', 30], ['tilt', -4]]) {
        const field = `#${channel}-offset`;
        await eventually(async () => {
            await page.click(`${field} ~ button.take`);
            await page.waitForSelector(`${field}-message:is(.done, .error)`);
            return near(await page.inputValue(field), degrees);
        }, `the camera's ${channel}`).catch(async (error) => {
            error.message += `; the camera's status: ${await cameraControl('/status', 'GET')}`;
            throw error;
        });
        assert.match(await page.textContent(`${field}-message`), /^Taken from the camera: /);
    }
    // What the service stored (cgi_test follows it into the file).
    assert.ok(near((await get('getCameraPanOffset')).value, 30));
    assert.ok(near((await get('getCameraTiltOffset')).value, -4));
    await close();
});

test('the page loads from the unit alone, without console errors, light and dark, laptop and phone', async () => {
    const looks = [
        { colorScheme: 'light', viewport: { width: 1280, height: 800 } },
        { colorScheme: 'dark', viewport: { width: 360, height: 740 } },
    ];
    const backgrounds = [];
    for (const options of looks) {
        const { page, seen, close } = await openPage(browser, options);
        // One refresh of the camera's state, as the page does every couple of seconds.
        await page.waitForRequest((request) => request.postData()?.includes('getCameraConnection'));
        assert.deepEqual(seen.requests.filter((url) => !url.startsWith(`${webUrl}/`)), []);
        assert.deepEqual(seen.errors, []);
        assert.equal(await page.textContent('#page-status'), '');
        const fits = await page.evaluate(() => document.documentElement.scrollWidth <= window.innerWidth);
        assert.ok(fits, `no sideways scrolling at ${options.viewport.width} px`);
        backgrounds.push(await page.evaluate(() => getComputedStyle(document.body).backgroundColor));
        await close();
    }
    assert.notEqual(backgrounds[0], backgrounds[1]);

    const index = await fetch(`${webUrl}/`);
    assert.match(index.headers.get('content-security-policy'), /default-src 'self'/);
    assert.equal(index.headers.get('x-content-type-options'), 'nosniff');
});
