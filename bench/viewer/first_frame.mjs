// The page's size for every corpus assembly and the time from opening it to
// its first rendered frame in headless Chromium (median of three loads);
// then the same with the GLB quantised and meshopt-compressed by gltfpack.
//   node bench/viewer/first_frame.mjs VELMORA NODE_MODULES CORPUS_DIR WORK_DIR
// NODE_MODULES holds playwright-core (the build's tests/viewer/node_modules).
import { spawnSync } from 'node:child_process';
import { mkdirSync, readdirSync, statSync } from 'node:fs';
import { basename, join } from 'node:path';
import { launchBrowser, meshoptCompressed, openPage, withGlb } from '../../tests/viewer/browser.mjs';

const [velmora, modules, corpus, work] = process.argv.slice(2);
mkdirSync(work, { recursive: true });
const browser = await launchBrowser(modules);
const median = (values) => [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];

// Median first-frame time of three loads of `html`, and its part count.
async function firstFrame(html) {
  const times = [];
  let parts = 0;
  for (let i = 0; i < 3; ++i) {
    const problems = [];
    const { context, page } = await openPage(browser, html, problems);
    times.push(await page.evaluate(() => window.velmoraViewer.firstFrameMs));
    parts = await page.evaluate(() => window.velmoraViewer.partCount());
    await context.close();
    if (problems.length) console.log(`${html}: ${problems.join('; ')}`);
  }
  return { parts, ms: median(times) };
}

const mb = (file) => (statSync(file).size / 1e6).toFixed(2).padStart(8);
console.log('assembly             parts   GLB MB  page MB  first frame ms | meshopt: GLB MB  page MB  first frame ms');
for (const entry of readdirSync(corpus).sort()) {
  const input = join(corpus, entry);
  if (!statSync(input).isDirectory() && !entry.endsWith('.glb')) continue;
  const name = basename(entry, '.glb');
  const at = (suffix) => join(work, name + suffix);
  const run = spawnSync(velmora, ['explode', input, '-o', at('.glb'), '--html', at('.html')], { encoding: 'utf8' });
  if (run.status !== 0) {
    console.log(`${name}: velmora failed: ${run.stderr.trim()}`);
    continue;
  }
  const plain = await firstFrame(at('.html'));
  meshoptCompressed(modules, at('.glb'), at('-meshopt.glb'));
  withGlb(at('.html'), at('-meshopt.glb'), at('-meshopt.html'));
  const packed = await firstFrame(at('-meshopt.html'));
  console.log(`${name.padEnd(20)} ${String(plain.parts).padStart(5)} ${mb(at('.glb'))} ${mb(at('.html'))} ` +
    `${plain.ms.toFixed(0).padStart(15)} |         ${mb(at('-meshopt.glb'))} ${mb(at('-meshopt.html'))} ${packed.ms.toFixed(0).padStart(15)}`);
}
await browser.close();
