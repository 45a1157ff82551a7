// The page's size for every corpus assembly and the time from opening it to
// its first rendered frame in headless Chromium (median of three loads).
//   node bench/viewer/first_frame.mjs VELMORA NODE_MODULES CORPUS_DIR WORK_DIR
// NODE_MODULES holds playwright-core (the build's tests/viewer/node_modules).
import { spawnSync } from 'node:child_process';
import { mkdirSync, readdirSync, statSync } from 'node:fs';
import { basename, join } from 'node:path';
import { launchBrowser, openPage } from '../../tests/viewer/browser.mjs';

const [velmora, modules, corpus, work] = process.argv.slice(2);
mkdirSync(work, { recursive: true });
const browser = await launchBrowser(modules);
const median = (values) => [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];

console.log('assembly             parts   GLB MB  page MB  first frame ms');
for (const entry of readdirSync(corpus).sort()) {
  const input = join(corpus, entry);
  if (!statSync(input).isDirectory() && !entry.endsWith('.glb')) continue;
  const name = basename(entry, '.glb');
  const glb = join(work, `${name}.glb`), html = join(work, `${name}.html`);
  const run = spawnSync(velmora, ['explode', input, '-o', glb, '--html', html], { encoding: 'utf8' });
  if (run.status !== 0) {
    console.log(`${name}: velmora failed: ${run.stderr.trim()}`);
    continue;
  }
  const times = [];
  let parts = 0;
  for (let i = 0; i < 3; ++i) {
    const problems = [];
    const { context, page } = await openPage(browser, html, problems);
    times.push(await page.evaluate(() => window.velmoraViewer.firstFrameMs));
    parts = await page.evaluate(() => window.velmoraViewer.partCount());
    await context.close();
    if (problems.length) console.log(`${name}: ${problems.join('; ')}`);
  }
  const mb = (file) => (statSync(file).size / 1e6).toFixed(2);
  console.log(`${name.padEnd(20)} ${String(parts).padStart(5)} ${mb(glb).padStart(8)} ${mb(html).padStart(8)} ${median(times).toFixed(0).padStart(15)}`);
}
await browser.close();
