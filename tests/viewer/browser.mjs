// Starting headless Chromium through playwright-core for the page tests and
// the first-frame measurement, opening a velmora page in it offline, and
// making pages that show a meshopt-compressed GLB.
import { createRequire } from 'node:module';
import { spawnSync } from 'node:child_process';
import { existsSync, readFileSync, writeFileSync } from 'node:fs';
import { gzipSync } from 'node:zlib';
import { join, resolve } from 'node:path';
import { pathToFileURL } from 'node:url';

export const SKIP = 77;  // CTest's SKIP_RETURN_CODE for these tests

export function skip(reason) {
  console.log(`SKIP: ${reason}`);
  process.exit(SKIP);
}

const CANDIDATES = ['/usr/bin/chromium', '/usr/bin/chromium-browser', '/usr/bin/google-chrome'];

// The browser, or a skip with the reason when none can start. WebGL runs on
// SwiftShader, so no GPU is needed.
export async function launchBrowser(modules) {
  let chromium;
  try {
    chromium = createRequire(join(resolve(modules), 'noop.js'))('playwright-core').chromium;
  } catch {
    skip(`playwright-core is not installed in ${modules} (npm ci of tests/viewer failed or npm is missing)`);
  }
  const executablePath = [process.env.VELMORA_CHROMIUM, ...CANDIDATES].find((p) => p && existsSync(p));
  if (!executablePath) skip('no Chromium found (install the chromium package or set VELMORA_CHROMIUM)');
  try {
    return await chromium.launch({
      executablePath,
      headless: true,
      args: ['--no-sandbox', '--use-angle=swiftshader', '--enable-unsafe-swiftshader', '--ignore-gpu-blocklist'],
    });
  } catch (error) {
    skip(`Chromium cannot start: ${String(error.message).split('\n')[0]}`);
  }
}

// Opens `html` from disk with the network off; `problems` collects console
// errors, page errors and any request that is not for the file itself.
export async function openPage(browser, html, problems) {
  const context = await browser.newContext({ offline: true, viewport: { width: 1000, height: 700 } });
  const page = await context.newPage();
  const url = pathToFileURL(html).href;
  page.on('console', (m) => { if (m.type() === 'error') problems.push(`console error: ${m.text()}`); });
  page.on('pageerror', (e) => problems.push(`page error: ${e.message}`));
  page.on('requestfailed', (r) => problems.push(`failed request: ${r.url()}`));
  page.on('request', (r) => {
    if (r.url() !== url && !/^(data|blob):/.test(r.url())) problems.push(`request: ${r.url()}`);
  });
  await page.goto(url);
  await page.waitForFunction(() => window.velmoraViewer?.ready || window.velmoraViewer?.error, null, { timeout: 120000 });
  const error = await page.evaluate(() => window.velmoraViewer.error);
  if (error) problems.push(`viewer error: ${error}`);
  return { context, page };
}

// A copy of `html` showing `glb` instead of its own GLB.
export function withGlb(html, glb, out) {
  const packed = gzipSync(readFileSync(glb)).toString('base64');
  const page = readFileSync(html, 'utf8').replace(/(<script id="velmora-glb"[^>]*>)[^<]*/, (_, open) => open + packed);
  writeFileSync(out, page);
}

// The GLB squeezed by gltfpack (from `modules`): quantised, meshopt-compressed,
// named nodes kept.
export function meshoptCompressed(modules, glb, out) {
  const cli = join(resolve(modules), 'gltfpack', 'cli.js');
  const run = spawnSync(process.execPath, [cli, '-i', glb, '-o', out, '-cc', '-kn', '-km'], { encoding: 'utf8' });
  if (run.status !== 0) throw new Error(`gltfpack failed: ${run.stderr}`);
}
