// Headless Chromium for the cockpit's browser tests, its screenshots and its latency benchmark:
// Debian's own chromium, driven by playwright-core (pinned in package-lock.json beside this file,
// installed by scripts/install-deps.sh), which downloads no browser of its own.

import { chromium } from 'playwright-core';

export const chromiumPath = process.env.CHROMIUM || '/usr/bin/chromium';

// A phone held upright.
export const phone = { viewport: { width: 390, height: 844 }, deviceScaleFactor: 2, isMobile: true, hasTouch: true };

// The bridge's certificate is self-signed; the flag (not only the context's option) lets the
// browser register the page's service worker over it, as a browser that trusts it would.
const args = ['--disable-gpu', '--disable-quic', '--disable-background-networking', '--disable-component-update',
  '--disable-sync', '--disable-default-apps', '--mute-audio', '--ignore-certificate-errors'];

export function launch() {
  return chromium.launch({ executablePath: chromiumPath, headless: true, args });
}

// A new browsing context (its own storage) at phone size, and its first tab. The tab's `errors`
// collects uncaught exceptions and console errors of the page.
export async function newPage(browser, options = {}) {
  const context = await browser.newContext({ ...phone, ignoreHTTPSErrors: true, ...options });
  // A generous bound for waits on a loaded machine: it only keeps a broken test from hanging.
  context.setDefaultTimeout(60000);
  const page = await context.newPage();
  watchErrors(page);
  return page;
}

export function watchErrors(page) {
  page.errors = [];
  page.on('pageerror', (error) => page.errors.push(error.message));
  page.on('console', (message) => { if (message.type() === 'error') page.errors.push(message.text()); });
  return page;
}
