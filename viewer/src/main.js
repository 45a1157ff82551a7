// The page: reads the report and the GLB embedded in the HTML, builds the
// panels (steps, hierarchy, parts), wires the controls and exposes
// `window.velmoraViewer`, the hook the browser tests drive.
import * as THREE from 'three';
import css from './viewer.css';
import { billOfMaterials, baseName, planSteps, partNamesOfGroups } from './model.js';
import { Viewer, loadGlb } from './viewer.js';

const LAYOUT = `
<div id="app">
  <header>
    <h1 id="title"></h1>
    <button id="theme" title="Light or dark theme">theme</button>
    <button id="save" title="Save the current view as a PNG picture">save picture</button>
  </header>
  <main>
    <aside id="side">
      <details id="steps-panel" open hidden><summary>Steps</summary><ol id="steps"></ol></details>
      <details open><summary>Hierarchy</summary><button id="show-all" title="Show every part">show all</button><div id="tree"></div></details>
      <details open><summary>Parts</summary><table id="bom"><thead><tr><th>part</th><th>qty</th><th>triangles</th></tr></thead><tbody></tbody></table></details>
    </aside>
    <div id="view"><canvas id="canvas"></canvas><div id="tip" hidden></div><div id="status">loading…</div></div>
  </main>
  <footer>
    <button id="play" title="Play or pause (space)">play</button>
    <button id="prev" title="Previous split (left arrow)">&#9664;</button>
    <input id="timeline" type="range" min="0" max="1" step="0.001" value="0" title="Timeline">
    <button id="next" title="Next split (right arrow)">&#9654;</button>
    <span id="clock">0.00 s</span>
    <label>explode <input id="explode" type="range" min="0" max="1" step="0.01" value="0"></label>
    <label><input id="lines" type="checkbox"> explosion lines</label>
  </footer>
</div>
<section id="print"></section>`;

const $ = (id) => document.getElementById(id);

// The report and the GLB bytes embedded in the page (the GLB base64, gzip
// compressed when its element says so).
async function embedded() {
  const reportText = $('velmora-report')?.textContent ?? '';
  const report = reportText.trim() ? JSON.parse(reportText) : null;
  const glb = $('velmora-glb');
  let bytes = Uint8Array.from(atob(glb.textContent.trim()), (c) => c.charCodeAt(0));
  if (glb.dataset.encoding === 'gzip') {
    const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream('gzip'));
    bytes = new Uint8Array(await new Response(stream).arrayBuffer());
  }
  return { report, bytes };
}

function element(tag, text, className) {
  const e = document.createElement(tag);
  if (text !== undefined) e.textContent = text;
  if (className) e.className = className;
  return e;
}

class Page {
  constructor(viewer, report) {
    this.viewer = viewer;
    this.report = report;
    this.steps = planSteps(report);
    this.playing = false;
    this.selectedStep = -1;
    this.base = baseName(report);
    viewer.addStepArrows(this.steps);
    this.buildSteps();
    this.buildTree();
    this.buildBom();
    this.wireControls();
    this.showTime();
  }

  background() {
    return new THREE.Color(getComputedStyle(document.documentElement).getPropertyValue('--scene').trim() || '#ffffff');
  }

  draw() { this.viewer.render(this.background()); }

  showTime() {
    const v = this.viewer;
    $('timeline').value = v.duration > 0 ? v.time / v.duration : 0;
    $('clock').textContent = `${v.time.toFixed(2)} / ${v.duration.toFixed(2)} s`;
    $('play').textContent = this.playing ? 'pause' : 'play';
  }

  setTime(t) {
    this.viewer.setTime(t);
    this.showTime();
    this.draw();
  }

  setExplode(s) {
    this.playing = false;
    this.viewer.setExplode(s);
    $('explode').value = s;
    this.showTime();
    this.draw();
  }

  togglePlay() {
    if (!this.viewer.clip) return;
    if (!this.playing && this.viewer.time >= this.viewer.duration) this.viewer.setTime(0);
    this.playing = !this.playing;
    this.lastTick = performance.now();
    this.showTime();
  }

  tick(now) {
    if (!this.playing) return;
    const t = this.viewer.time + (now - this.lastTick) / 1000;
    this.lastTick = now;
    if (t >= this.viewer.duration) this.playing = false;
    this.setTime(t);
  }

  // Jumps to the next (`sense` 1) or previous (-1) key time of the animation.
  stepSplit(sense) {
    const now = this.viewer.time, eps = 1e-6;
    const times = this.viewer.keyTimes;
    const next = sense > 0 ? times.find((t) => t > now + eps) : [...times].reverse().find((t) => t < now - eps);
    this.playing = false;
    this.setTime(next ?? (sense > 0 ? this.viewer.duration : 0));
  }

  selectStep(k) {
    this.selectedStep = k;
    [...$('steps').children].forEach((li, i) => li.classList.toggle('selected', i === k));
    this.viewer.highlight(k >= 0 ? this.steps[k].parts : null);
    this.viewer.showArrow(k);
    this.draw();
    return this.viewer.highlighted;
  }

  buildSteps() {
    if (!this.steps.length) return;
    $('steps-panel').hidden = false;
    document.body.classList.add('has-steps');
    this.steps.forEach((step, k) => {
      const li = element('li');
      li.append(element('img', undefined, 'thumb'), element('span', step.text));
      li.addEventListener('click', () => this.selectStep(this.selectedStep === k ? -1 : k));
      $('steps').append(li);
      const page = element('div', undefined, 'print-step');
      page.append(element('h2', `Step ${k + 1}`), element('img'), element('p', step.text));
      $('print').append(page);
    });
  }

  hoverParts(names) {
    this.viewer.highlight(names ?? (this.selectedStep >= 0 ? this.steps[this.selectedStep].parts : null));
    this.draw();
  }

  isolate(names) {
    this.viewer.isolate(names);
    this.draw();
  }

  // The hierarchy from the report, else the glTF node tree.
  buildTree() {
    const tree = $('tree');
    const nodes = this.report?.hierarchy?.nodes;
    const label = (names) => (names.length === 1 ? names[0] : `${names.length} parts`);
    const attach = (row, names) => {
      row.addEventListener('mouseenter', () => this.hoverParts(names));
      row.addEventListener('mouseleave', () => this.hoverParts(null));
      row.addEventListener('click', (e) => { e.preventDefault(); this.isolate(names); });
    };
    const make = (title, names, children) => {
      if (!children.length) {
        const leaf = element('div', title, 'leaf');
        attach(leaf, names);
        return leaf;
      }
      // The label isolates, the marker beside it folds.
      const details = element('details');
      details.open = true;
      const summary = element('summary');
      const labelText = element('span', title, 'node');
      attach(labelText, names);
      summary.append(labelText);
      details.append(summary, ...children);
      return details;
    };
    if (nodes) {
      const byId = new Map(nodes.map((n) => [n.id, n]));
      const build = (n) => {
        const names = partNamesOfGroups(this.report, n.groups);
        const kids = n.split ? [byId.get(n.split.staying), byId.get(n.split.moving)].map(build) : [];
        return make(label(n.names), names, kids);
      };
      tree.append(build(nodes[0]));
    } else {
      const partOf = new Map(this.viewer.parts.map((p) => [p.object, p]));
      const build = (o) => {
        const names = this.viewer.parts.filter((p) => { let x = p.object; while (x && x !== o) x = x.parent; return x === o; }).map((p) => p.name);
        const kids = partOf.has(o) ? [] : o.children.filter((c) => names.length).map(build);
        return make(partOf.get(o)?.name ?? (o.name || 'assembly'), names, kids);
      };
      tree.append(build(this.viewer.scene));
    }
  }

  buildBom() {
    const body = $('bom').tBodies[0];
    for (const row of billOfMaterials(this.viewer.parts)) {
      const tr = element('tr');
      const isBase = row.names.includes(this.base);
      tr.append(element('td', row.stem + (isBase ? ' (base)' : '')), element('td', String(row.quantity)),
        element('td', String(row.triangles)));
      tr.title = row.names.join('\n');
      tr.addEventListener('mouseenter', () => this.hoverParts(row.names));
      tr.addEventListener('mouseleave', () => this.hoverParts(null));
      body.append(tr);
    }
  }

  savePicture() {
    this.draw();
    const link = element('a');
    link.download = `${document.title || 'velmora'}.png`;
    link.href = this.viewer.renderer.domElement.toDataURL('image/png');
    link.click();
  }

  wireControls() {
    $('play').addEventListener('click', () => this.togglePlay());
    $('prev').addEventListener('click', () => this.stepSplit(-1));
    $('next').addEventListener('click', () => this.stepSplit(1));
    $('timeline').addEventListener('input', (e) => { this.playing = false; this.setTime(e.target.value * this.viewer.duration); });
    $('explode').addEventListener('input', (e) => this.setExplode(Number(e.target.value)));
    $('lines').checked = this.viewer.fileLines.length > 0;
    this.viewer.setLinesVisible($('lines').checked);
    $('lines').addEventListener('change', (e) => { this.viewer.setLinesVisible(e.target.checked); this.draw(); });
    $('show-all').addEventListener('click', () => this.isolate(null));
    $('save').addEventListener('click', () => this.savePicture());
    $('theme').addEventListener('click', () => {
      const dark = document.documentElement.dataset.theme !== 'dark';
      document.documentElement.dataset.theme = dark ? 'dark' : 'light';
      this.draw();
    });
    if (!this.viewer.clip) {
      for (const id of ['play', 'prev', 'next', 'timeline']) $(id).disabled = true;
      $('explode').value = 1;
    }
    document.addEventListener('keydown', (e) => {
      if (e.target instanceof HTMLInputElement && e.target.type !== 'range' && e.target.type !== 'checkbox') return;
      const keys = { ' ': () => this.togglePlay(), ArrowRight: () => this.stepSplit(1), ArrowLeft: () => this.stepSplit(-1),
        ArrowDown: () => this.selectStep(Math.min(this.selectedStep + 1, this.steps.length - 1)),
        ArrowUp: () => this.selectStep(Math.max(this.selectedStep - 1, -1)) };
      if (!keys[e.key]) return;
      e.preventDefault();
      keys[e.key]();
    });
    const canvas = this.viewer.renderer.domElement;
    canvas.addEventListener('pointermove', (e) => {
      const r = canvas.getBoundingClientRect();
      const part = this.viewer.partAt(((e.clientX - r.left) / r.width) * 2 - 1, -((e.clientY - r.top) / r.height) * 2 + 1);
      const tip = $('tip');
      tip.hidden = !part;
      if (part) {
        tip.textContent = part.name;
        tip.style.left = `${e.clientX - r.left + 12}px`;
        tip.style.top = `${e.clientY - r.top + 12}px`;
      }
    });
    this.viewer.controls.addEventListener('change', () => this.draw());
    new ResizeObserver(() => this.fit()).observe($('view'));
    this.fit();
  }

  // Follows the view's size; a hidden view (printing) keeps the last one.
  fit() {
    const view = $('view');
    if (!view.clientWidth || !view.clientHeight) return;
    this.viewer.resize(view.clientWidth, view.clientHeight);
    this.draw();
  }

  // One picture per step (assembled, the step's parts highlighted, its
  // arrow shown, the camera closing in on them) for the list and the print
  // view; the view is restored after.
  renderThumbnails() {
    const v = this.viewer;
    const time = v.time;
    const eye = v.camera.position.clone(), target = v.controls.target.clone();
    const lists = [...$('steps').querySelectorAll('img.thumb')], prints = [...$('print').querySelectorAll('img')];
    v.setExplode(0);
    v.resize(640, 480);
    this.steps.forEach((step, k) => {
      v.highlight(step.parts);
      v.showArrow(k);
      v.lookAt(v.bounds().union(v.arrowBounds(k)), eye.clone().sub(target));
      this.draw();
      lists[k].src = prints[k].src = v.renderer.domElement.toDataURL('image/png');
    });
    v.camera.position.copy(eye);
    v.controls.target.copy(target);
    v.controls.update();
    if (v.clip) v.setTime(time);
    else v.setExplode(Number($('explode').value));
    this.selectStep(this.selectedStep);
    this.fit();
  }
}

function exposeHook(page, hook) {
  const v = page.viewer;
  Object.assign(hook, {
    partCount: () => v.parts.length,
    partNames: () => v.parts.map((p) => p.name),
    meshCount: () => v.parts.reduce((n, p) => n + p.meshes.length, 0),
    duration: () => v.duration,
    keyTimes: () => [...v.keyTimes],
    setTime: (t) => { page.playing = false; page.setTime(t); },
    setExplode: (s) => page.setExplode(s),
    offsets: () => v.offsets(),
    steps: () => page.steps.map((s) => ({ text: s.text, parts: s.parts })),
    highlightStep: (k) => page.selectStep(k),
    highlighted: () => [...(v.highlighted ?? [])],
    visibleParts: () => v.parts.filter((p) => p.object.visible).map((p) => p.name),
    baseName: () => page.base,
    hasLines: () => v.lines.some((l) => l.isLine),
    render: () => page.draw(),
  });
}

async function start() {
  const style = element('style', css);
  document.head.append(style);
  document.body.insertAdjacentHTML('beforeend', LAYOUT);
  const prefersDark = window.matchMedia?.('(prefers-color-scheme: dark)').matches;
  document.documentElement.dataset.theme = prefersDark ? 'dark' : 'light';
  const hook = { ready: false, firstFrameMs: null, error: null };
  window.velmoraViewer = hook;
  try {
    const { report, bytes } = await embedded();
    $('title').textContent = document.title;
    const gltf = await loadGlb(bytes);
    const page = new Page(new Viewer($('canvas'), gltf, report), report);
    exposeHook(page, hook);
    page.draw();
    page.viewer.renderer.getContext().finish();
    hook.firstFrameMs = performance.now();
    $('status').hidden = true;
    requestAnimationFrame(() => {
      page.renderThumbnails();
      const loop = (now) => { page.tick(now); requestAnimationFrame(loop); };
      requestAnimationFrame(loop);
      hook.ready = true;
    });
  } catch (error) {
    hook.error = String(error?.stack ?? error);
    $('status').textContent = `cannot show this plan: ${error?.message ?? error}`;
    throw error;
  }
}

start();
