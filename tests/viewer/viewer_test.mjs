// Browser tests of the pages `velmora … --html` writes: each page opens from
// disk with the network off, shows one mesh per part, plays the report's
// offsets, keeps the base still, highlights a step's parts and draws
// different, non-blank pictures assembled and exploded.
//   node viewer_test.mjs VELMORA NODE_MODULES EXAMPLES_DIR CORPUS_DIR WORK_DIR
import { spawnSync } from 'node:child_process';
import { existsSync, mkdirSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { launchBrowser, meshoptCompressed, openPage, withGlb } from './browser.mjs';

const [velmora, modules, examples, corpus, work] = process.argv.slice(2);
const failures = [];
const check = (ok, what) => { if (!ok) failures.push(what); };
// A check of what the page shows after an input: the page updates on its next
// frames, which a loaded machine may delay, so the condition gets a few seconds.
const checkSoon = async (condition, what) => {
  for (let waited = 0; waited < 5000; waited += 50) {
    if (await condition()) return;
    await new Promise((resolve) => setTimeout(resolve, 50));
  }
  check(await condition(), what);
};

function runVelmora(args) {
  const run = spawnSync(velmora, args, { encoding: 'utf8' });
  if (run.status !== 0) throw new Error(`velmora ${args.join(' ')} failed (${run.status}): ${run.stderr}`);
}

// Each case: the page, the report the command wrote beside it, how it was made.
function makeCases() {
  rmSync(work, { recursive: true, force: true });
  mkdirSync(work, { recursive: true });
  const at = (name) => join(work, name);
  const pins = join(examples, 'assemblies', 'pins.glb');
  const cases = [];
  runVelmora(['demo', 'pins', '-o', at('demo.json')]);
  cases.push({ name: 'demo pins', html: at('demo.html'), report: at('demo.json'), controls: true });
  meshoptCompressed(modules, at('demo.glb'), at('demo-meshopt.glb'));
  withGlb(at('demo.html'), at('demo-meshopt.glb'), at('demo-meshopt.html'));
  cases.push({ name: 'demo pins, meshopt-compressed GLB', html: at('demo-meshopt.html'), report: at('demo.json'), tolerance: 1e-3 });
  runVelmora(['explode', pins, '-o', at('static.glb'), '--pose', 'exploded', '--report', at('static.json'), '--html', at('static.html')]);
  cases.push({ name: 'explode --pose exploded', html: at('static.html'), report: at('static.json'), staticPose: true });
  runVelmora(['remove', pins, '--part', 'dowel#1:9:6:8:7', '-o', at('remove.json'), '--html', at('remove.html')]);
  cases.push({ name: 'remove', html: at('remove.html'), report: at('remove.json') });
  const corpusPins = join(corpus, 'pins.glb');
  if (existsSync(corpusPins)) {
    runVelmora(['explode', corpusPins, '-o', at('corpus.glb'), '--report', at('corpus.json'), '--html', at('corpus.html')]);
    cases.push({ name: 'corpus pins.glb', html: at('corpus.html'), report: at('corpus.json') });
  } else {
    console.log(`note: ${corpus} is absent, the corpus page is not tested`);
  }
  return cases;
}

const near = (a, b, tol) => a.every((x, i) => Math.abs(x - b[i]) <= tol);

function diagonal(report) {
  const { min, max } = report.bounds;
  return Math.hypot(max[0] - min[0], max[1] - min[1], max[2] - min[2]);
}

// The canvas drawn into a small 2D canvas: luminance of every pixel.
async function grabLuminance(page) {
  return page.evaluate(() => {
    window.velmoraViewer.render();
    const c = document.createElement('canvas');
    c.width = 200;
    c.height = 140;
    const ctx = c.getContext('2d');
    ctx.drawImage(document.getElementById('canvas'), 0, 0, c.width, c.height);
    const rgba = ctx.getImageData(0, 0, c.width, c.height).data;
    const out = [];
    for (let i = 0; i < rgba.length; i += 4) out.push(0.299 * rgba[i] + 0.587 * rgba[i + 1] + 0.114 * rgba[i + 2]);
    return out;
  });
}

function variance(values) {
  const mean = values.reduce((s, v) => s + v, 0) / values.length;
  return values.reduce((s, v) => s + (v - mean) ** 2, 0) / values.length;
}

// Parts named by the report as the base, else those whose exploded offset is zero.
function stillParts(report) {
  if (typeof report.explosion?.base === 'string') return [report.explosion.base];
  return report.parts.filter((p) => report.explosion.offsets[p.group].every((x) => x === 0)).map((p) => p.name);
}

// The controls a person uses: the parts list, the keyboard, hovering, the
// tree, the theme, saving a picture.
async function testControls(page, c, hook) {
  const names = await hook('partNames');
  const rows = await page.locator('#bom tbody tr').evaluateAll((trs) => trs.map((tr) => [...tr.cells].map((td) => td.textContent)));
  check(JSON.stringify(rows) === JSON.stringify([['sides', '1', '1524'], ['dowel', '6', '314']]), `${c.name}: parts list ${JSON.stringify(rows)}`);

  await hook('setTime', 0);
  await page.locator('body').press('ArrowRight');
  const keys = await hook('keyTimes');
  check(await page.evaluate(() => Number(document.getElementById('timeline').value)) * (await hook('duration')) === keys[1] ||
    (await page.locator('#clock').textContent()).startsWith(keys[1].toFixed(2)), `${c.name}: the right arrow does not go to the next split`);
  await page.locator('body').press('ArrowLeft');
  await checkSoon(async () => (await page.locator('#clock').textContent()).startsWith('0.00'), `${c.name}: the left arrow does not go back`);
  await page.locator('body').press(' ');
  await checkSoon(async () => (await page.locator('#play').textContent()) === 'pause', `${c.name}: space does not play`);
  await page.locator('body').press(' ');
  await checkSoon(async () => (await page.locator('#play').textContent()) === 'play', `${c.name}: space does not pause`);

  const box = await page.locator('#canvas').boundingBox();
  await page.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
  const partNames = await hook('partNames');
  await checkSoon(async () => (await page.locator('#tip').isVisible()) && partNames.includes(await page.locator('#tip').textContent()),
    `${c.name}: hovering the middle shows no part name`);

  const before = (await grabLuminance(page)).reduce((a, b) => a + b, 0);
  await page.click('#theme');
  const after = (await grabLuminance(page)).reduce((a, b) => a + b, 0);
  check(before !== after, `${c.name}: the theme does not change the picture`);

  await hook('setExplode', 1);
  const sum = async () => (await grabLuminance(page)).reduce((a, b) => a + b, 0);
  const withoutLines = await sum();
  await page.click('#lines');
  check(await hook('hasLines') && (await sum()) !== withoutLines, `${c.name}: explosion lines do not show`);
  await page.click('#lines');
  check((await sum()) === withoutLines, `${c.name}: explosion lines do not hide`);

  const leaf = page.locator('#tree .leaf').first();
  await leaf.click();
  check(JSON.stringify(await hook('visibleParts')) === JSON.stringify([await leaf.textContent()]), `${c.name}: a leaf does not isolate its part`);
  await page.locator('#tree .node').first().click();
  check((await hook('visibleParts')).length === names.length, `${c.name}: the root does not show every part`);
  await leaf.click();
  await page.click('#show-all');
  check((await hook('visibleParts')).length === names.length, `${c.name}: show all does not`);
  await page.locator('#tree summary').first().click({ position: { x: 4, y: 8 } });
  check(!(await page.locator('#tree details').first().evaluate((d) => d.open)), `${c.name}: the tree does not fold`);

  const [download] = await Promise.all([page.waitForEvent('download'), page.click('#save')]);
  const saved = join(work, 'saved.png');
  await download.saveAs(saved);
  check(readFileSync(saved).subarray(1, 4).toString() === 'PNG', `${c.name}: save picture gives no PNG`);
}

// Printing shows one page per step with its picture and text, and no controls.
async function testPrint(page, c, steps) {
  await page.emulateMedia({ media: 'print' });
  check(!(await page.locator('#app').isVisible()) && (await page.locator('#print').isVisible()), `${c.name}: print shows the controls`);
  const pages = await page.locator('.print-step').evaluateAll((divs) => divs.map((d) =>
    [d.querySelector('img').src.startsWith('data:image/png'), d.querySelector('p').textContent, getComputedStyle(d).breakAfter]));
  check(pages.length === steps.length, `${c.name}: ${pages.length} printed pages for ${steps.length} steps`);
  for (const [k, [picture, text, breakAfter]] of pages.entries())
    check(picture && text.includes(steps[k].parts[0]) && breakAfter === 'page', `${c.name}: printed step ${k + 1}: ${text}`);
  await page.emulateMedia({ media: 'screen' });
}

async function testPage(browser, c) {
  const problems = [];
  const { context, page } = await openPage(browser, c.html, problems);
  const fileReport = JSON.parse(readFileSync(c.report, 'utf8'));
  const report = await page.evaluate(() => JSON.parse(document.getElementById('velmora-report').textContent));
  const hook = (name, ...args) => page.evaluate(([n, a]) => window.velmoraViewer[n](...a), [name, args]);
  const tol = (c.tolerance ?? 1e-5) * diagonal(report);

  const names = await hook('partNames');
  check(JSON.stringify([...names].sort()) === JSON.stringify(fileReport.parts.map((p) => p.name).sort()),
    `${c.name}: the page's parts ${names} are not the report's`);
  check(await hook('meshCount') >= fileReport.parts.length, `${c.name}: a part has no mesh`);

  // The exploded pose puts every part at its report offset; assembled, at none.
  if (c.staticPose) await hook('setExplode', 1);
  else await hook('setTime', await hook('duration'));
  const offsets = await hook('offsets');
  for (const p of report.parts)
    check(near(offsets[p.name], report.explosion.offsets[p.group], tol),
      `${c.name}: ${p.name} ends at ${offsets[p.name]}, the report says ${report.explosion.offsets[p.group]}`);
  await hook('setExplode', 0);
  const assembled = await hook('offsets');
  check(Object.values(assembled).every((o) => near(o, [0, 0, 0], tol)), `${c.name}: explode 0 is not the assembled pose`);

  // The base never moves, at any key time or between two.
  const still = stillParts(report);
  check(still.length > 0, `${c.name}: no part stays put`);
  const keys = await hook('keyTimes');
  for (const t of [...keys, ...keys.slice(1).map((k, i) => (k + keys[i]) / 2)]) {
    await hook('setTime', t);
    const at = await hook('offsets');
    for (const name of still) check(near(at[name], [0, 0, 0], tol), `${c.name}: ${name} moved at ${t} s`);
  }

  // Clicking step k highlights exactly its parts; clicking again clears.
  if (fileReport.removal) {
    const steps = fileReport.removal.steps;
    check((await page.locator('#steps li').count()) === steps.length, `${c.name}: not one list item per step`);
    for (let k = 0; k < steps.length; ++k) {
      await page.locator('#steps li').nth(k).click();
      const lit = (await hook('highlighted')).sort();
      check(JSON.stringify(lit) === JSON.stringify([...steps[k].parts].sort()), `${c.name}: step ${k + 1} lights ${lit}`);
      await page.locator('#steps li').nth(k).click();
      check((await hook('highlighted')).length === 0, `${c.name}: step ${k + 1} stays lit`);
    }
    const thumbs = await page.locator('#steps img.thumb').evaluateAll((imgs) => imgs.map((i) => i.src.startsWith('data:image/png')));
    check(thumbs.length === steps.length && thumbs.every(Boolean), `${c.name}: a step has no picture`);
    await testPrint(page, c, steps);
  }
  if (c.controls) await testControls(page, c, hook);

  // Pictures: assembled and exploded differ, and neither is blank.
  await hook('setExplode', 0);
  const before = await grabLuminance(page);
  await hook('setExplode', 1);
  const after = await grabLuminance(page);
  writeFileSync(`${c.html}.png`, await page.locator('#canvas').screenshot());
  const changed = before.filter((v, i) => Math.abs(v - after[i]) > 16).length;
  check(variance(before) > 20 && variance(after) > 20, `${c.name}: a picture is blank (variance ${variance(before)}, ${variance(after)})`);
  check(changed >= 20, `${c.name}: exploded and assembled pictures differ in only ${changed} pixels`);

  for (const p of problems) failures.push(`${c.name}: ${p}`);
  const firstFrame = await page.evaluate(() => window.velmoraViewer.firstFrameMs);
  console.log(`${c.name}: ${names.length} parts, first frame at ${firstFrame.toFixed(0)} ms`);
  await context.close();
}

const browser = await launchBrowser(modules);
try {
  for (const c of makeCases()) await testPage(browser, c);
} finally {
  await browser.close();
}
for (const f of failures) console.log(`FAIL: ${f}`);
console.log(failures.length ? `${failures.length} failures` : 'all page checks passed');
process.exit(failures.length ? 1 : 0);
