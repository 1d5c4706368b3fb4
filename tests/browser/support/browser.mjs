// Headless Chromium from Debian, driven by playwright-core. The machine has no network
// beyond loopback: every background service of the browser is off. Each launch gets a
// fresh profile (--user-data-dir) from Playwright itself, which refuses the flag in args.
import { chromium } from 'playwright-core';

import { webUrl } from './unit.mjs';

const FLAGS = [
    '--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
    '--disable-background-networking', '--disable-component-update', '--disable-sync',
];

export function launch() {
    return chromium.launch({ executablePath: '/usr/bin/chromium', args: FLAGS, timeout: 30000 });
}

// Opens the operator's page in a fresh context and waits until it has read the settings.
// The page records every request it made and every console error or uncaught exception.
export async function openPage(browser, options = {}) {
    const context = await browser.newContext(options);
    const page = await context.newPage();
    page.setDefaultTimeout(10000);
    const seen = { requests: [], errors: [] };
    page.on('request', (request) => seen.requests.push(request.url()));
    page.on('console', (message) => {
        if (message.type() === 'error')
            seen.errors.push(message.text());
    });
    page.on('pageerror', (error) => seen.errors.push(String(error)));
    await page.goto(webUrl);
    await page.waitForSelector('html[data-ready="true"]');
    return { page, seen, close: () => context.close() };
}
