// Drives the page of `ombrix day --html` in a real browser. Run by scripts/page-tests.
import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {mkdtempSync, readFileSync, rmSync, statSync} from 'node:fs';
import {createRequire} from 'node:module';
import {tmpdir} from 'node:os';
import {join} from 'node:path';
import {after, before, describe, test} from 'node:test';

import {chromium} from 'playwright-core';

const axe = readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');
const program = process.env.OMBRIX_PROGRAM;
const folder = mkdtempSync(join(tmpdir(), 'ombrix-page-'));
const languages = ['en_US', 'de_DE', 'ja_JP'];

function ombrix(...args) {
  return execFileSync(program, args, {env: {...process.env, HOME: folder}, encoding: 'utf8'});
}

const pageFile = (language) => join(folder, `${language}.html`);

let browser;

before(async () => {
  const track = join(folder, 'day.csv');
  const rates = join(folder, 'rates.csv');
  ombrix('sample', track, '--hr', rates);
  for (const language of languages) {
    ombrix('day', track, '--hr', rates, '--html', pageFile(language), '--locale', language);
  }
  browser = await chromium.launch({
    executablePath: process.env.OMBRIX_CHROMIUM ?? '/usr/bin/chromium',
    args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
           '--disable-background-networking', '--disable-component-update', '--disable-sync'],
  });
});

after(async () => {
  await browser?.close();
  rmSync(folder, {recursive: true, force: true});
});

/// Opens a page of its own, and fails the test when it complains or asks for anything.
async function open(t, {language = 'en_US', width = 1024, colorScheme = 'light'} = {}) {
  const context = await browser.newContext({viewport: {width, height: 900}, colorScheme,
                                            acceptDownloads: true});
  const page = await context.newPage();
  const complaints = [];
  page.on('console', (message) => {
    if (['error', 'warning'].includes(message.type())) complaints.push(message.text());
  });
  page.on('pageerror', (error) => complaints.push(error.message));
  page.on('request', (request) => {
    if (/^(https?|ws)/.test(request.url())) complaints.push(`asks for ${request.url()}`);
  });
  t.after(async () => {
    await context.close();
    assert.deepEqual(complaints, []);
  });
  await page.goto(`file://${pageFile(language)}`);
  return page;
}

const overflow = (page) => page.evaluate(
    () => document.documentElement.scrollWidth - document.documentElement.clientWidth);

const readout = (page) => page.locator('.readout dd').allTextContents();

describe('the page of a day', () => {
  for (const [width, colorScheme] of [[360, 'light'], [768, 'dark'], [1440, 'light']]) {
    test(`fits and is accessible at ${width} pixels, ${colorScheme}`, async (t) => {
      const page = await open(t, {width, colorScheme});
      assert.equal(await overflow(page), 0);
      // Evaluated by the browser's own door: the page's policy lets no script in.
      const found = await page.evaluate(`${axe}; axe.run()`);
      assert.deepEqual(found.violations.map((each) =>
        `${each.id}: ${each.nodes.map((node) => node.target).join(' ')}`), []);
    });
  }

  for (const language of languages) {
    test(`fits in ${language}, also from right to left`, async (t) => {
      const page = await open(t, {language, width: 360});
      assert.equal(await overflow(page), 0);
      await page.evaluate(() => { document.documentElement.dir = 'rtl'; });
      assert.equal(await overflow(page), 0);
    });
  }

  test('has one cursor for profiles and map, by pointer and by keyboard', async (t) => {
    const page = await open(t);
    const first = await readout(page);
    assert.equal(first.length, 5);
    const profile = page.getByRole('slider');
    await profile.focus();
    await page.keyboard.press('End');
    const last = await readout(page);
    assert.notDeepEqual(last, first);
    const said = await profile.getAttribute('aria-valuetext');
    for (const value of last.filter(Boolean)) assert.ok(said.includes(value), said);
    await page.keyboard.press('Home');
    assert.deepEqual(await readout(page), first);

    const place = () => page.locator('.here').getAttribute('cx');
    const before = await place();
    const box = await profile.boundingBox();
    await page.mouse.move(box.x + box.width * 0.7, box.y + 60);
    assert.notDeepEqual(await readout(page), first);
    assert.notEqual(await place(), before);

    const atProfile = await readout(page);
    await page.locator('.badge').first().hover({force: true});
    assert.notDeepEqual(await readout(page), atProfile);

    await page.getByRole('button', {name: 'Over distance'}).click();
    assert.ok(await page.locator('.axis.distance').isVisible());
    assert.ok(!await page.locator('.axis.time').isVisible());
  });

  test('sorts its rides by each column, up and down', async (t) => {
    const page = await open(t);
    const headings = page.locator('thead th');
    for (let column = 0; column < await headings.count(); ++column) {
      for (const direction of ['ascending', 'descending']) {
        await headings.nth(column).getByRole('button').click();
        assert.equal(await headings.nth(column).getAttribute('aria-sort'), direction);
        const values = await page.locator(`tbody tr > :nth-child(${column + 1})`)
            .evaluateAll((cells) => cells.map((cell) => Number(cell.dataset.value)));
        const sorted = [...values].sort((a, b) => direction === 'ascending' ? a - b : b - a);
        assert.deepEqual(values, sorted);
      }
    }
  });

  test('switches its theme and saves a picture', async (t) => {
    const page = await open(t);
    const paper = () => page.evaluate(() => getComputedStyle(document.body).backgroundColor);
    const light = await paper();
    await page.getByRole('button', {name: 'Dark'}).click();
    assert.notEqual(await paper(), light);
    const [download] = await Promise.all([
      page.waitForEvent('download'),
      page.getByRole('button', {name: 'Save as picture'}).click(),
    ]);
    const picture = join(folder, 'picture.png');
    await download.saveAs(picture);
    assert.ok(statSync(picture).size > 10000);
    assert.equal(readFileSync(picture).subarray(1, 4).toString(), 'PNG');
  });
});
