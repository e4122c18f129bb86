// Opens what `orvan demo` draws of its own log in headless Chromium, as a
// person would: the trace in speedscope (from the npm package's local files)
// and the HTML report as a page. Fails with a message when speedscope cannot
// import the trace or does not show the demo's steps, or when the report
// lacks its lanes, bars or memory curve, asks the network for anything, or
// raises a script error.
//
//   node check.mjs ORVAN OUTPUT_DIR
//
// OUTPUT_DIR receives the screenshots (speedscope.png, report.png).

import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { chromium } from 'playwright-core';

const [orvan, outputDir] = process.argv.slice(2);
if (!orvan || !outputDir) {
  console.error('usage: node check.mjs ORVAN OUTPUT_DIR');
  process.exit(2);
}
fs.mkdirSync(outputDir, { recursive: true });

const here = path.dirname(fileURLToPath(import.meta.url));
const STEPS = ['Demo', 'Generate the test file', 'Serve the test file', 'Fetch the test file', 'Run a child program',
               'Cancel a child program'];
const failures = [];
const fail = (message) => { failures.push(message); console.log('FAILED: ' + message); };
const pass = (message) => console.log('ok: ' + message);

// The demo, with a small test file; it prints where the trace and report are.
const demo = execFileSync(orvan, ['demo', '--size', '4'], { encoding: 'utf8', timeout: 120000 });
const trace = /Trace [^\n]*: '([^']+)'/.exec(demo)?.[1];
const report = /Report [^\n]*: '([^']+)'/.exec(demo)?.[1];
if (!trace || !report) {
  console.error('orvan demo did not say where its trace and report are:\n' + demo);
  process.exit(1);
}

const browser = await chromium.launch({
  executablePath: process.env.ORVAN_CHROMIUM || '/usr/bin/chromium',
  args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
         '--disable-component-update', '--disable-sync'],
});

// A page whose script errors, dialogs and console errors are recorded, and
// whose requests beyond local files are refused and recorded.
async function openPage(name) {
  const page = await browser.newPage({ viewport: { width: 1400, height: 900 } });
  const problems = [];
  page.on('pageerror', (error) => problems.push(`${name}: script error: ${error.message}`));
  page.on('dialog', (dialog) => { problems.push(`${name}: dialog: ${dialog.message()}`); dialog.dismiss(); });
  page.on('console', (message) => {
    if (message.type() === 'error') problems.push(`${name}: console error: ${message.text()}`);
  });
  await page.route('**/*', (route) => {
    const url = route.request().url();
    if (url.startsWith('file:') || url.startsWith('data:') || url.startsWith('blob:')) return route.continue();
    problems.push(`${name}: asked the network for ${url}`);
    return route.abort();
  });
  return { page, problems };
}

// speedscope: the trace goes in as its command-line launcher hands it over,
// a script beside the page that calls loadFileFromBase64.
{
  const { page, problems } = await openPage('speedscope');
  const imported = new Promise((resolve) => page.on('console', (m) => {
    if (/Importing as Trace Event Format/.test(m.text())) resolve(true);
  }));
  const loader = path.join(outputDir, 'trace-loader.js');
  fs.writeFileSync(loader, `speedscope.loadFileFromBase64(${JSON.stringify(path.basename(trace))}, ` +
                           `${JSON.stringify(fs.readFileSync(trace).toString('base64'))})`);
  const index = path.join(here, 'node_modules', 'speedscope', 'dist', 'release', 'index.html');
  await page.goto(`file://${index}#localProfilePath=${loader}`);
  const recognised = await Promise.race([imported, new Promise((r) => setTimeout(() => r(false), 30000))]);
  if (recognised) pass('speedscope imports the trace as Trace Event Format'); else fail('speedscope did not import the trace');
  // The demo's main thread is shown: the toolbar names it.
  await page.waitForFunction(() => /\(tid \d+\)/.test(document.body.innerText), null, { timeout: 30000 })
    .then(() => pass('speedscope shows the thread track'))
    .catch(() => fail('speedscope shows no thread'));
  await page.screenshot({ path: path.join(outputDir, 'speedscope.png') });
  // The sandwich view lists every frame by name, as text.
  await page.getByText('Sandwich').click();
  await page.waitForTimeout(1000);
  const text = await page.evaluate(() => document.body.innerText);
  const missing = STEPS.filter((step) => !text.includes(step));
  if (missing.length === 0) pass('speedscope lists the demo\'s steps: ' + STEPS.join(', '));
  else fail('speedscope does not list the steps ' + missing.join(', '));
  problems.forEach(fail);
  await page.close();
}

// The report, opened from its file.
{
  const { page, problems } = await openPage('report');
  await page.goto(`file://${report}`);
  await page.screenshot({ path: path.join(outputDir, 'report.png'), fullPage: true });
  const seen = await page.evaluate((steps) => {
    const visible = (element) => {
      const box = element.getBoundingClientRect();
      return box.width > 0 && box.height > 0;
    };
    const bars = {};
    for (const step of steps) {
      const bar = [...document.querySelectorAll('rect.bar')].find((rect) => rect.dataset.name === step);
      if (!bar || !visible(bar)) { bars[step] = 'missing'; continue; }
      // What is drawn at the bar's middle is the bar or its label.
      const box = bar.getBoundingClientRect();
      const x = box.left + Math.min(box.width / 2, 2);
      const y = box.top + box.height / 2;
      const top = document.elementFromPoint(x, y);
      bars[step] = top === bar || (top && top.tagName === 'text') ? 'seen' : 'hidden under ' + (top && top.outerHTML.slice(0, 80));
    }
    const curve = document.querySelector('polyline.memory[data-series="process physical used"]');
    return {
      lanes: document.querySelectorAll('g.lane').length,
      threads: Number(document.querySelector('#threads')?.textContent),
      version: document.querySelector('#version')?.textContent,
      bars,
      curvePoints: curve ? curve.getAttribute('points').trim().split(/\s+/).length : 0,
      curveVisible: curve ? visible(curve) : false,
      longestRows: document.querySelectorAll('#longest tr').length - 1,
      scripts: document.querySelectorAll('script').length,
    };
  }, STEPS);
  if (seen.lanes > 0 && seen.lanes === seen.threads) pass(`the report draws one lane per thread (${seen.lanes})`);
  else fail(`the report draws ${seen.lanes} lanes for ${seen.threads} threads`);
  if (seen.version === '7.6.3') pass('the report shows the version'); else fail(`version shown: ${seen.version}`);
  for (const [step, state] of Object.entries(seen.bars)) {
    if (state === 'seen') pass(`the report shows the bar of '${step}'`); else fail(`the bar of '${step}' is ${state}`);
  }
  if (seen.curvePoints >= 2 && seen.curveVisible) pass(`the report draws the memory curve (${seen.curvePoints} points)`);
  else fail(`the memory curve has ${seen.curvePoints} points, visible: ${seen.curveVisible}`);
  if (seen.longestRows >= STEPS.length) pass('the report lists the longest steps');
  else fail(`the longest steps table has ${seen.longestRows} rows`);
  if (seen.scripts === 0) pass('the report holds no script'); else fail(`the report holds ${seen.scripts} scripts`);
  const size = fs.statSync(path.join(outputDir, 'report.png')).size;
  if (size > 20000) pass(`screenshot of the report: ${path.join(outputDir, 'report.png')} (${size} bytes)`);
  else fail(`the screenshot of the report is nearly empty (${size} bytes)`);
  problems.forEach(fail);
  await page.close();
}

await browser.close();
fs.rmSync(path.dirname(trace), { recursive: true, force: true });
if (failures.length > 0) {
  console.log(`${failures.length} browser checks failed`);
  process.exit(1);
}
console.log('all browser checks passed');
