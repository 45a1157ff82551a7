// The 3D side of the page: loads the embedded GLB, finds the parts, keeps
// the assembled and exploded poses, and renders. Offsets are measured in the
// assembly's frame: the frame of the scene's one top node holding every part
// (a unit/axis conversion root), else the scene's own frame.
import * as THREE from 'three';
import { GLTFLoader } from 'three/addons/loaders/GLTFLoader.js';
import { MeshoptDecoder } from 'three/addons/libs/meshopt_decoder.module.js';
import { OrbitControls } from 'three/addons/controls/OrbitControls.js';
import { extremeIndex, reportOffsets } from './model.js';

const PALETTE = [0x4e79a7, 0xf28e2b, 0xe15759, 0x76b7b2, 0x59a14f, 0xedc948, 0xb07aa1, 0xff9da7, 0x9c755f, 0xbab0ac];
const HIGHLIGHT = new THREE.Color(0xffaa00);
const BLACK = new THREE.Color(0);

export async function loadGlb(bytes) {
  await MeshoptDecoder.ready;
  const loader = new GLTFLoader();
  loader.setMeshoptDecoder(MeshoptDecoder);
  return new Promise((resolve, reject) => loader.parse(bytes.buffer, '', resolve, reject));
}

// Part records {name, object, meshes, triangles, index}: per report part,
// the deepest glTF node named after it with meshes in its subtree (a
// compressor may hang the mesh under the named node). Without a report,
// every node with a mesh of its own, named after its nearest named node.
function findParts(gltf, report) {
  const nodeDefs = gltf.parser.json.nodes ?? [];
  const nodeOf = (o) => gltf.parser.associations.get(o)?.nodes;
  const meshesUnder = (object) => {
    const meshes = [];
    object.traverse((o) => { if (o.isMesh) meshes.push(o); });
    return meshes;
  };
  const namedAbove = (object) => {
    for (let o = object; o; o = o.parent) if (nodeDefs[nodeOf(o)]?.name) return nodeDefs[nodeOf(o)].name;
    return `node ${nodeOf(object)}`;
  };
  const known = report ? new Set(report.parts.map((p) => p.name)) : null;
  const found = new Map();  // preorder: a deeper node of the same name replaces its ancestor
  gltf.scene.traverse((object) => {
    const def = nodeDefs[nodeOf(object)];
    if (!def) return;
    if (known ? known.has(def.name) && meshesUnder(object).length : def.mesh !== undefined) {
      let name = known ? def.name : namedAbove(object);
      for (let n = 2; !known && found.has(name); ++n) name = `${namedAbove(object)} (${n})`;
      found.set(name, object);
    }
  });
  const triangles = new Map(report ? report.parts.map((p) => [p.name, p.triangles]) : []);
  return [...found].map(([name, object], index) => {
    const meshes = meshesUnder(object);
    return { name, object, meshes, index,
      triangles: triangles.get(name) ?? meshes.reduce((n, m) => n + triangleCount(m.geometry), 0) };
  });
}

function triangleCount(geometry) {
  return Math.floor((geometry.index ? geometry.index.count : geometry.attributes.position.count) / 3);
}

// Every mesh gets a material of its own so that highlighting one part leaves
// the others alone; a primitive without a material in the file gets a
// palette colour, stable by part order.
function ownMaterials(gltf, parts) {
  for (const part of parts) {
    for (const mesh of part.meshes) {
      const fromFile = gltf.parser.associations.get(mesh.material)?.materials !== undefined;
      mesh.material = fromFile
        ? mesh.material.clone()
        : new THREE.MeshStandardMaterial({ color: PALETTE[part.index % PALETTE.length], metalness: 0.1, roughness: 0.6 });
      if (!mesh.material.emissive) mesh.material.emissive = new THREE.Color(0);
      mesh.userData.part = part;
    }
  }
}

function assemblyFrame(scene, parts) {
  const tops = new Set(parts.map((p) => {
    let o = p.object;
    while (o.parent && o.parent !== scene) o = o.parent;
    return o;
  }));
  const [top] = tops;
  return tops.size === 1 && !parts.some((p) => p.object === top) ? top : scene;
}

export class Viewer {
  constructor(canvas, gltf, report) {
    this.report = report;
    this.scene = gltf.scene;
    this.parts = findParts(gltf, report);
    this.byName = new Map(this.parts.map((p) => [p.name, p]));
    ownMaterials(gltf, this.parts);
    this.frame = assemblyFrame(this.scene, this.parts);
    this.fileLines = [];
    this.scene.traverse((o) => { if (o.isLine) this.fileLines.push(o); });

    this.renderer = new THREE.WebGLRenderer({ canvas, antialias: true, preserveDrawingBuffer: true });
    this.renderer.setPixelRatio(Math.min(window.devicePixelRatio, 2));
    this.camera = new THREE.PerspectiveCamera(40, 1, 0.01, 1000);
    this.controls = new OrbitControls(this.camera, canvas);
    this.root = new THREE.Scene();
    this.root.add(this.scene);
    this.root.add(new THREE.HemisphereLight(0xffffff, 0x444455, 1.6));
    const sun = new THREE.DirectionalLight(0xffffff, 1.8);
    sun.position.set(0.5, 1, 0.8);
    this.camera.add(sun);
    this.root.add(this.camera);
    this.overlay = new THREE.Group();
    this.root.add(this.overlay);

    this.clip = gltf.animations[0] ?? null;
    if (this.clip) {
      this.mixer = new THREE.AnimationMixer(this.scene);
      this.action = this.mixer.clipAction(this.clip);
      this.action.setLoop(THREE.LoopOnce, 1);
      this.action.clampWhenFinished = true;
      this.action.paused = true;
      this.action.play();
    }
    this.time = 0;
    this.keyTimes = this.clip ? [...new Set(this.clip.tracks.flatMap((t) => [...t.times]))].sort((a, b) => a - b) : [0];
    this.capturePoses();
    this.lines = this.fileLines.length ? this.fileLines : [this.drawnLines()];
    this.frameCamera();
  }

  get duration() { return this.clip ? this.clip.duration : 0; }

  setTime(t) {
    this.time = Math.min(Math.max(t, 0), this.duration);
    if (!this.clip) return;
    this.action.enabled = true;
    this.action.paused = true;
    this.action.time = this.time;
    this.mixer.update(0);
    this.scene.updateMatrixWorld(true);
  }

  // Local positions of every object that the animation moves (or, for a
  // static pose with report offsets, of every part) assembled and exploded.
  capturePoses() {
    const snapshot = () => {
      const pose = new Map();
      this.scene.traverse((o) => pose.set(o, o.position.clone()));
      return pose;
    };
    if (this.clip) {
      const sizes = this.keyTimes.map((t) => { this.setTime(t); return this.bounds().getSize(new THREE.Vector3()).length(); });
      this.assembledTime = this.keyTimes[extremeIndex(sizes, 1)];
      this.explodedTime = this.keyTimes[extremeIndex(sizes, -1)];
      this.setTime(this.assembledTime);
      this.assembled = snapshot();
      this.assembledPositions = this.framePositions();
      this.setTime(this.explodedTime);
      this.exploded = snapshot();
      this.setTime(0);
      return;
    }
    this.scene.updateMatrixWorld(true);
    this.exploded = snapshot();
    this.assembled = snapshot();
    const offsets = reportOffsets(this.report);
    for (const part of this.parts) {
      const offset = offsets?.get(part.name);
      if (!offset) continue;
      const toParent = new THREE.Matrix4().copy(part.object.parent.matrixWorld).invert().multiply(this.frame.matrixWorld);
      const local = new THREE.Vector3(...offset).applyMatrix3(new THREE.Matrix3().setFromMatrix4(toParent));
      this.assembled.get(part.object).sub(local);
    }
    this.setExplode(0);
    this.assembledPositions = this.framePositions();
    this.setExplode(1);
  }

  // Every part's origin in the assembly frame.
  framePositions() {
    const toFrame = this.frame.matrixWorld.clone().invert();
    return this.parts.map((p) => new THREE.Vector3().setFromMatrixPosition(p.object.matrixWorld).applyMatrix4(toFrame));
  }

  // Each part's offset from its assembled place, in the assembly frame.
  offsets() {
    this.scene.updateMatrixWorld(true);
    const now = this.framePositions();
    return Object.fromEntries(this.parts.map((p, i) => [p.name, now[i].sub(this.assembledPositions[i]).toArray()]));
  }

  setExplode(s) {
    for (const [object, a] of this.assembled) object.position.lerpVectors(a, this.exploded.get(object), s);
    this.scene.updateMatrixWorld(true);
  }

  bounds() {
    const box = new THREE.Box3();
    for (const p of this.parts) if (p.object.visible) box.expandByObject(p.object);
    return box;
  }

  // Straight lines from each moving part's assembled centre to its exploded
  // one, for files that carry no explosion lines of their own.
  drawnLines() {
    const centres = (pose) => {
      for (const [o, p] of pose) o.position.copy(p);
      this.scene.updateMatrixWorld(true);
      return this.parts.map((p) => new THREE.Box3().setFromObject(p.object).getCenter(new THREE.Vector3()));
    };
    const saved = new Map([...this.assembled.keys()].map((o) => [o, o.position.clone()]));
    const from = centres(this.assembled), to = centres(this.exploded);
    centres(saved);
    const points = [];
    from.forEach((a, i) => { if (a.distanceTo(to[i]) > 0) points.push(a, to[i]); });
    const lines = new THREE.LineSegments(new THREE.BufferGeometry().setFromPoints(points),
      new THREE.LineBasicMaterial({ color: 0x888888 }));
    this.overlay.add(lines);
    return lines;
  }

  setLinesVisible(visible) { for (const l of this.lines) l.visible = visible; }

  frameCamera() {
    const saved = new Map([...this.exploded.keys()].map((o) => [o, o.position.clone()]));
    this.setExplode(1);
    const box = this.bounds();
    this.setExplode(0);
    box.union(this.bounds());
    for (const [o, p] of saved) o.position.copy(p);
    this.scene.updateMatrixWorld(true);
    // A three-quarter view, turned away from the main explosion axis so
    // that parts do not explode straight at the camera.
    const view = new THREE.Vector3(1, 0.8, 1.3).normalize();
    const axis = this.explosionAxis();
    if (axis) view.addScaledVector(axis, -0.8 * view.dot(axis)).normalize();
    this.size = Math.max(box.getBoundingSphere(new THREE.Sphere()).radius, 1e-6);
    this.lookAt(box, view);
  }

  // Frames `box` from direction `view` (pointing from the box to the eye).
  lookAt(box, view) {
    const sphere = box.getBoundingSphere(new THREE.Sphere());
    const radius = Math.max(sphere.radius, 1e-6);
    const distance = radius / Math.sin(THREE.MathUtils.degToRad(this.camera.fov / 2));
    this.camera.near = distance / 100;
    this.camera.far = distance * 100;
    this.camera.position.copy(sphere.center).addScaledVector(view.clone().normalize(), distance);
    this.camera.updateProjectionMatrix();
    this.controls.target.copy(sphere.center);
    this.controls.update();
  }

  // The world direction along which the parts travel most (the main axis of
  // their exploded displacements), or null when nothing moves.
  explosionAxis() {
    const moves = [];
    for (const [o, a] of this.assembled) {
      if (!o.parent) continue;
      const d = this.exploded.get(o).clone().sub(a).applyMatrix3(new THREE.Matrix3().setFromMatrix4(o.parent.matrixWorld));
      if (d.lengthSq() > 0) moves.push(d);
    }
    if (!moves.length) return null;
    // Power iteration on the scatter matrix of the displacements.
    let axis = moves.reduce((best, d) => (d.lengthSq() > best.lengthSq() ? d : best)).clone().normalize();
    for (let i = 0; i < 16; ++i) {
      const next = new THREE.Vector3();
      for (const d of moves) next.addScaledVector(d, d.dot(axis));
      if (next.lengthSq() === 0) break;
      axis = next.normalize();
    }
    return axis;
  }

  // Highlighted parts glow and the others fade; `names` null (or none)
  // clears.
  highlight(names) {
    const wanted = new Set(names ?? []);
    for (const part of this.parts) {
      const lit = wanted.has(part.name), faded = wanted.size > 0 && !lit;
      for (const mesh of part.meshes) {
        const m = mesh.material;
        m.userData.opacity ??= m.opacity;
        m.userData.transparent ??= m.transparent;
        m.emissive.copy(lit ? HIGHLIGHT : BLACK).multiplyScalar(0.5);
        m.opacity = faded ? 0.2 : m.userData.opacity;
        m.transparent = faded || m.userData.transparent;
        m.depthWrite = !faded;
      }
    }
    this.highlighted = this.parts.filter((p) => wanted.has(p.name)).map((p) => p.name);
  }

  isolate(names) {
    const wanted = names ? new Set(names) : null;
    for (const part of this.parts) part.object.visible = !wanted || wanted.has(part.name);
  }

  // An arrow per step with a direction, starting on the bounds of its parts
  // (assembled) and pointing along the direction in the 3D view; drawn over
  // the parts.
  addStepArrows(steps) {
    const toWorld = new THREE.Matrix3().setFromMatrix4(this.frame.matrixWorld);
    const boundsOf = (names) => {
      const box = new THREE.Box3();
      for (const n of names) if (this.byName.has(n)) box.expandByObject(this.byName.get(n).object);
      return box;
    };
    const saved = new Map([...this.assembled.keys()].map((o) => [o, o.position.clone()]));
    this.setExplode(0);
    this.arrows = steps.map((step) => {
      const box = boundsOf(step.parts);
      if (!step.direction || box.isEmpty()) return null;
      const dir = new THREE.Vector3(...step.direction).applyMatrix3(toWorld).normalize();
      const half = box.getSize(new THREE.Vector3()).multiplyScalar(0.5);
      const reach = Math.abs(dir.x) * half.x + Math.abs(dir.y) * half.y + Math.abs(dir.z) * half.z;
      const start = box.getCenter(new THREE.Vector3()).addScaledVector(dir, reach);
      const arrow = new THREE.ArrowHelper(dir, start, this.size * 0.5, 0xd62728, this.size * 0.12, this.size * 0.06);
      arrow.traverse((o) => { if (o.material) o.material.depthTest = false; o.renderOrder = 10; });
      arrow.visible = false;
      this.overlay.add(arrow);
      return arrow;
    });
    for (const [o, p] of saved) o.position.copy(p);
    this.scene.updateMatrixWorld(true);
  }

  arrowBounds(k) {
    const arrow = this.arrows?.[k];
    return arrow ? new THREE.Box3().setFromObject(arrow) : new THREE.Box3();
  }

  showArrow(k) { (this.arrows ?? []).forEach((a, i) => { if (a) a.visible = i === k; }); }

  resize(width, height) {
    this.renderer.setSize(width, height, false);
    this.camera.aspect = width / Math.max(height, 1);
    this.camera.updateProjectionMatrix();
  }

  render(background) {
    this.root.background = background;
    this.renderer.render(this.root, this.camera);
  }

  partAt(x, y) {
    const ray = new THREE.Raycaster();
    ray.setFromCamera(new THREE.Vector2(x, y), this.camera);
    const hit = ray.intersectObjects(this.parts.filter((p) => p.object.visible).flatMap((p) => p.meshes), false)[0];
    return hit ? hit.object.userData.part : null;
  }
}
