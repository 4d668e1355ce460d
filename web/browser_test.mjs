// Opens a preview page in headless Chromium and checks what a person would see: the page loads
// from file:// without a single network request, console error or page error; the scene holds
// as many instances as the package; a click on a tree entry highlights that instance; the view
// is a real picture (a screenshot of the expected size with many colours, not all background).
// Also checks the page's scene file (preview.glb beside the page) with the glTF validator: no
// error.
// Usage: node browser_test.mjs PREVIEW_HTML EXPECTED_INSTANCES SCREENSHOT_PNG
// Exit 0 when every check holds, 1 with the failures on standard error otherwise.
import puppeteer from 'puppeteer-core';
import { readFileSync, writeFileSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { pathToFileURL } from 'node:url';
import { inflateSync } from 'node:zlib';
import validator from 'gltf-validator';

const [page_path, expected_text, screenshot_path] = process.argv.slice(2);
if (!page_path || !expected_text || !screenshot_path) {
  console.error('usage: node browser_test.mjs PREVIEW_HTML EXPECTED_INSTANCES SCREENSHOT_PNG');
  process.exit(2);
}
const expected = Number(expected_text);
const WIDTH = 1280;
const HEIGHT = 800;
const failures = [];
const check = (ok, text) => {
  if (!ok) failures.push(text);
};

// The RGBA pixels of an 8-bit RGB or RGBA, non-interlaced PNG (what Chromium writes).
function pngPixels(png) {
  let at = 8;
  let width = 0;
  let height = 0;
  let channels = 0;
  const data = [];
  while (at < png.length) {
    const length = png.readUInt32BE(at);
    const type = png.toString('latin1', at + 4, at + 8);
    const body = png.subarray(at + 8, at + 8 + length);
    if (type === 'IHDR') {
      width = body.readUInt32BE(0);
      height = body.readUInt32BE(4);
      channels = body[9] === 6 ? 4 : body[9] === 2 ? 3 : 0;
      if (body[8] !== 8 || channels === 0 || body[12] !== 0) throw new Error('unexpected PNG format');
    } else if (type === 'IDAT') {
      data.push(body);
    }
    at += 12 + length;
  }
  const raw = inflateSync(Buffer.concat(data));
  const stride = width * channels;
  const out = Buffer.alloc(width * height * channels);
  for (let y = 0; y < height; ++y) {
    const filter = raw[y * (stride + 1)];
    for (let x = 0; x < stride; ++x) {
      const v = raw[y * (stride + 1) + 1 + x];
      const a = x >= channels ? out[y * stride + x - channels] : 0;
      const b = y > 0 ? out[(y - 1) * stride + x] : 0;
      const c = x >= channels && y > 0 ? out[(y - 1) * stride + x - channels] : 0;
      let p;
      if (filter === 0) p = 0;
      else if (filter === 1) p = a;
      else if (filter === 2) p = b;
      else if (filter === 3) p = (a + b) >> 1;
      else {
        const e = a + b - c;
        const pa = Math.abs(e - a);
        const pb = Math.abs(e - b);
        const pc = Math.abs(e - c);
        p = pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
      }
      out[y * stride + x] = (v + p) & 0xff;
    }
  }
  return { width, height, channels, pixels: out };
}

const glb = new Uint8Array(readFileSync(join(dirname(page_path), 'preview.glb')));
const report = await validator.validateBytes(glb);
check(report.issues.numErrors === 0,
      'preview.glb is not valid glTF: ' +
        report.issues.messages.filter((m) => m.severity === 0)
          .slice(0, 5).map((m) => `${m.code} ${m.message} ${m.pointer || ''}`).join('; '));

const browser = await puppeteer.launch({
  executablePath: process.env.CHROMIUM || '/usr/bin/chromium',
  headless: true,
  args: [
    '--no-sandbox',
    '--headless=new',
    '--use-angle=swiftshader',
    '--enable-unsafe-swiftshader',
    '--ignore-gpu-blocklist',
    `--window-size=${WIDTH},${HEIGHT}`,
  ],
});
let status = 0;
try {
  const page = await browser.newPage();
  await page.setViewport({ width: WIDTH, height: HEIGHT });
  const url = pathToFileURL(page_path).href;
  await page.setRequestInterception(true);
  page.on('request', (request) => {
    const target = request.url();
    if (target === url || target.startsWith('data:') || target.startsWith('blob:')) {
      request.continue();
    } else {
      failures.push('request to ' + target);
      request.abort();
    }
  });
  page.on('console', (message) => {
    if (message.type() === 'error') failures.push('console error: ' + message.text());
  });
  page.on('pageerror', (error) => failures.push('page error: ' + error.message));
  await page.goto(url, { waitUntil: 'load' });
  await page.waitForFunction(() => window.nomPreview && window.nomPreview.ready, {
    timeout: 120000,
  });
  const shown = await page.evaluate(() => {
    const p = window.nomPreview;
    return {
      error: p.error,
      instances: p.instances,
      products: p.products,
      missing: p.missing,
      expected: p.expected,
      placeholders: p.placeholders,
      listed: document.querySelectorAll('#missing li').length,
      counts: document.getElementById('counts').textContent,
      entries: document.querySelectorAll('#tree button').length,
    };
  });
  check(shown.error === null, 'the scene failed to load: ' + shown.error);
  check(shown.instances === expected,
        `the scene holds ${shown.instances} instances, the package ${expected}`);
  check(shown.expected.instances === expected,
        `the page says ${shown.expected.instances} instances, the package has ${expected}`);
  check(shown.products === shown.expected.products,
        `the scene holds ${shown.products} products, the page says ${shown.expected.products}`);
  check(shown.missing === shown.expected.missing,
        `the scene holds ${shown.missing} placeholders, the page lists ${shown.expected.missing}`);
  check(shown.listed === shown.expected.missing,
        `the page lists ${shown.listed} missing geometry files, the package lacks ` +
          shown.expected.missing);
  check(shown.missing === 0 || shown.placeholders >= shown.missing,
        `${shown.placeholders} placeholder boxes for ${shown.missing} products`);
  check(shown.counts.startsWith(expected + ' instances'), 'counts line: ' + shown.counts);

  // A click on the last and then on a middle instance entry moves the highlight.
  const buttons = await page.$$('#tree button[title]');
  check(buttons.length === expected, `the tree lists ${buttons.length} instances`);
  if (buttons.length >= 2) {
    await buttons[buttons.length - 1].click();
    const first = await page.evaluate(() => window.nomPreview.highlighted);
    await buttons[Math.floor(buttons.length / 2)].click();
    const last = await page.evaluate(() => window.nomPreview.highlighted);
    const selected = await page.evaluate(
      () => document.querySelectorAll('#tree button.selected').length);
    check(typeof first === 'string' && first.length > 0, 'a click highlighted nothing');
    check(typeof last === 'string' && last !== first,
          `a click on another entry left the highlight on ${first}`);
    check(selected === 1, `${selected} tree entries marked selected`);
  }

  const png = Buffer.from(await page.screenshot({ type: 'png' }));
  writeFileSync(screenshot_path, png);
  const { width, height, channels, pixels } = pngPixels(png);
  check(width === WIDTH && height === HEIGHT, `screenshot is ${width}x${height}`);
  // The view's part of the picture: many colours, and not all of it the background.
  const view = await page.evaluate(() => {
    const r = document.querySelector('#view canvas').getBoundingClientRect();
    return { x: Math.round(r.x), y: Math.round(r.y), w: Math.round(r.width), h: Math.round(r.height) };
  });
  const colours = new Set();
  const counts = new Map();
  let total = 0;
  for (let y = view.y; y < Math.min(height, view.y + view.h); y += 2) {
    for (let x = view.x; x < Math.min(width, view.x + view.w); x += 2) {
      const i = (y * width + x) * channels;
      const key = (pixels[i] << 16) | (pixels[i + 1] << 8) | pixels[i + 2];
      colours.add(key);
      counts.set(key, (counts.get(key) || 0) + 1);
      ++total;
    }
  }
  const commonest = Math.max(...counts.values());
  check(colours.size > 16, `the view shows ${colours.size} colours`);
  check(commonest < total * 0.95, 'the view is almost all one colour');
  console.log(`browser_test: ${shown.instances} instances, ${shown.products} products, ` +
              `${shown.missing} without geometry, ${colours.size} colours, ` +
              `${Math.round((100 * commonest) / total)}% background`);
} catch (error) {
  failures.push(String(error && error.stack ? error.stack : error));
} finally {
  await browser.close();
}
if (failures.length) {
  for (const failure of failures) console.error('FAIL: ' + failure);
  status = 1;
}
process.exit(status);
