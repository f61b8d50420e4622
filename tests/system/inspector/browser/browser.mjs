// The inspector's page in a real browser: Debian's Chromium, headless, driven
// through playwright-core.  Run inside the device root by scenarios.py, with
// the broker, the service and memtool serve running:
//
//   node browser.mjs --url URL --memtool "MEMTOOL COMMAND" --screenshots DIR
//
// It finds DisplayBrightness by typing into the search, reads its value, sees
// it change after `memtool set`, edits it to a value out of range and sees
// memtool's refusal beside it, and saves screenshots (laptop and tablet
// sizes).  Prints "name: value" lines; exits 1 with "FAIL: ..." on a failed check.
import { execFileSync } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { parseArgs } from 'node:util';
import { chromium } from 'playwright-core';

const { values: options } = parseArgs({
  options: { url: { type: 'string' }, memtool: { type: 'string' }, screenshots: { type: 'string' } },
});
const memtoolCommand = options.memtool.split(' ').filter(Boolean);
const origin = new URL(options.url).origin;

function say(name, value) {
  console.log(`${name}: ${value}`);
}

function check(condition, text) {
  if (!condition) {
    throw new Error(text);
  }
}

// memtool's standard output, or its error text when it fails and `failing` is set.
function memtool(args, failing = false) {
  try {
    const out = execFileSync(memtoolCommand[0], [...memtoolCommand.slice(1), ...args],
                             { encoding: 'utf8', stdio: ['ignore', 'pipe', 'pipe'] });
    check(!failing, `memtool ${args.join(' ')} did not fail`);
    return out.trim();
  } catch (error) {
    if (!failing || error.status !== 1) {
      throw error;
    }
    return error.stderr.trim();
  }
}

async function waitForText(locator, wanted, seconds) {
  const start = Date.now();
  while (Date.now() - start < seconds * 1000) {
    if ((await locator.textContent()) === wanted) {
      return (Date.now() - start) / 1000;
    }
    await new Promise((resolve) => setTimeout(resolve, 20));
  }
  return null;
}

const profile = mkdtempSync(join(tmpdir(), 'inspector-chromium-'));
const context = await chromium.launchPersistentContext(profile, {
  executablePath: '/usr/bin/chromium',
  headless: true,
  args: ['--no-sandbox', '--headless', '--disable-gpu', '--disable-background-networking',
         '--disable-component-update', '--disable-sync', '--no-first-run'],
  viewport: { width: 1280, height: 860 },
});
let status = 0;
try {
  const page = context.pages()[0] || await context.newPage();
  const problems = [];
  page.on('console', (message) => {
    // The browser reports the refused value's answer (400) as a failed load.
    if (message.type() === 'error' && !message.text().includes('status of 400')) {
      problems.push('console: ' + message.text());
    }
  });
  page.on('pageerror', (error) => problems.push('page: ' + error.message));
  page.on('request', (request) => {
    if (!request.url().startsWith(origin + '/')) {
      problems.push('a request elsewhere: ' + request.url());
    }
  });

  await page.goto(options.url);
  await page.waitForFunction(() => /\d+ variables/.test(document.getElementById('matches').textContent));
  await page.waitForFunction(() => document.getElementById('status').textContent === 'live');
  await page.evaluate(() => {
    window.layoutShift = 0;
    new PerformanceObserver((list) => {
      for (const entry of list.getEntries()) {
        if (!entry.hadRecentInput) {
          window.layoutShift += entry.value;
        }
      }
    }).observe({ type: 'layout-shift' });
  });

  await page.locator('#search').pressSequentially('DisplayBrightness', { delay: 15 });
  await page.waitForFunction(() => {
    const keys = [...document.querySelectorAll('#results .row')].map((row) => row.dataset.key);
    return keys.length > 0 && keys.every((key) => key.toLowerCase().includes('displaybrightness'));
  });
  const row = page.locator('[data-key="MemPersistent.DisplayBrightness"]');
  await row.waitFor();
  say('found', await page.locator('#matches').textContent());
  // The keyboard reaches the rows: "/" is the search, the down arrow the first value.
  await page.locator('body').click({ position: { x: 5, y: 300 } });
  await page.keyboard.press('/');
  check(await page.evaluate(() => document.activeElement.id) === 'search', '"/" does not search');
  await page.keyboard.press('ArrowDown');
  check(await page.evaluate(() => document.activeElement.classList.contains('val') &&
                            document.activeElement.closest('.row').dataset.key ===
                            'MemPersistent.DisplayBrightness'),
        'the down arrow does not reach the first value');
  const value = row.locator('.val');
  const before = memtool(['get', 'MemPersistent', 'DisplayBrightness']);
  check(await waitForText(value, before, 5) !== null,
        `the page does not show the value ${before}: ${await value.textContent()}`);
  say('value shown', before);
  await page.waitForFunction(() => /default \d/.test(
    document.querySelector('[data-key="MemPersistent.DisplayBrightness"] .meta').textContent));
  say('meta', await row.locator('.meta').textContent());

  await row.locator('.plot').click();
  const next = before === '9' ? '8' : '9';
  const started = Date.now();
  memtool(['set', 'MemPersistent', 'DisplayBrightness', next]);
  const setTook = (Date.now() - started) / 1000;
  const shown = await waitForText(value, next, 5);
  check(shown !== null, `the page did not show ${next} within 5 s of memtool set`);
  say('memtool set took', setTook.toFixed(3));
  say('shown after memtool set ended', shown.toFixed(3));
  check(await value.evaluate((element) => element.classList.contains('nondefault')),
        'a value that differs from its default is not marked');
  memtool(['set', 'MemPersistent', 'DisplayBrightness', '3']);
  check(await waitForText(value, '3', 5) !== null, 'the second change was not shown');
  const shift = await page.evaluate(() => window.layoutShift);
  say('layout shift while values changed', shift.toFixed(4));
  check(shift < 0.01, `the layout shifted by ${shift} as values changed`);

  const refusal = memtool(['set', 'MemPersistent', 'DisplayBrightness', '11'], true)
    .replace(/^memtool set: /, '');
  await value.focus();
  await page.keyboard.press('Enter');
  const input = row.locator('.edit-value');
  await input.waitFor();
  await input.fill('11');
  await input.press('Enter');
  const note = row.locator('.note');
  check(await waitForText(note, refusal, 5) !== null,
        `the refusal "${refusal}" is not shown beside the value: "${await note.textContent()}"`);
  say('refusal shown', refusal);
  check(memtool(['get', 'MemPersistent', 'DisplayBrightness']) === '3',
        'the refused value was stored');
  await row.locator('.var').click();
  await page.waitForFunction(() => document.querySelector('#details pre') !== null);
  check((await page.locator('#details pre').textContent()).trim() === '3',
        'the details do not show the value');
  check((await page.locator('#details dd.refused').textContent()) === refusal,
        'the details do not show the refusal');
  await page.locator('#event-filter').fill('DisplayBrightness');
  await page.waitForFunction(() => document.querySelectorAll('#events li').length >= 2);
  await page.locator('#pause').click();
  memtool(['set', 'MemPersistent', 'DisplayBrightness', '4']);
  await page.waitForFunction(() =>
    document.getElementById('event-count').textContent === '1 new while paused');
  check(await page.locator('#events li').count() === 2, 'a paused log went on');
  await page.locator('#pause').click();
  await page.waitForFunction(() => document.querySelectorAll('#events li').length === 3);
  say('event log', 'filtered, paused and resumed');
  await page.waitForTimeout(300);
  await page.screenshot({ path: join(options.screenshots, 'inspector.png') });

  await page.setViewportSize({ width: 820, height: 1180 });
  await page.waitForTimeout(300);
  const overflow = await page.evaluate(() =>
    document.documentElement.scrollWidth - document.documentElement.clientWidth);
  check(overflow <= 0, `the tablet-sized page is ${overflow} px too wide`);
  await page.screenshot({ path: join(options.screenshots, 'inspector-tablet.png') });
  say('screenshots', options.screenshots);
  check(problems.length === 0, problems.join('; '));
} catch (error) {
  console.log(`FAIL: ${error.message}`);
  status = 1;
} finally {
  await context.close();
  rmSync(profile, { recursive: true, force: true });
}
process.exit(status);
