// Draws the cockpit's PNG icons from the program's SVG icon, in headless Chromium, at the sizes
// phones ask a web app for: 180 (a home screen's touch icon), 192 and 512 (an installed app's),
// and a 512 maskable one whose mark keeps inside the safe circle on a full-bleed background.
// Usage: node tools/browser/icons.mjs (writes src/cockpit/icon-*.png).

import { readFileSync, writeFileSync } from 'node:fs';
import { fileURLToPath } from 'node:url';

import { launch } from './chromium.mjs';

const root = (path) => fileURLToPath(new URL(`../../${path}`, import.meta.url));
const svg = readFileSync(root('packaging/nimbrel-bridge.svg'), 'utf8');
const source = `data:image/svg+xml;base64,${Buffer.from(svg).toString('base64')}`;

const browser = await launch();
try {
  const page = await browser.newPage();
  for (const [name, size, maskable] of [['icon-180.png', 180], ['icon-192.png', 192], ['icon-512.png', 512],
    ['icon-maskable-512.png', 512, true]]) {
    await page.setViewportSize({ width: size, height: size });
    // The maskable icon: the SVG's own background colour to the edges, the mark at 70%.
    const inset = maskable ? Math.round(size * 0.15) : 0;
    await page.setContent(`<body style="margin:0;background:${maskable ? '#0f5c6e' : 'transparent'}">
      <img src="${source}" style="display:block;margin:${inset}px;width:${size - 2 * inset}px;height:${size - 2 * inset}px"></body>`);
    await page.locator('img').evaluate((image) => image.decode());
    writeFileSync(root(`src/cockpit/${name}`), await page.screenshot({ omitBackground: !maskable }));
  }
} finally {
  await browser.close();
}
