// The page's pure functions: name stems and the bill of materials, the steps
// drawn from a removal or a hierarchy, the base and the report's offsets.
import { test } from 'node:test';
import assert from 'node:assert/strict';
import { billOfMaterials, baseName, extremeIndex, formatDirection, nameStem, planSteps, reportOffsets } from '../src/model.js';

test('name stems drop instance suffixes but keep digits glued to letters', () => {
  const table = [
    ['bolt_M8', 'bolt_M8'], ['bolt_M8_2', 'bolt_M8'], ['dowel#1:9:6:8:7', 'dowel'], ['Part1-1', 'Part1'],
    ['Screw (3)', 'Screw'], ['nut.002', 'nut'], ['Washer<4>', 'Washer'], ['file.obj/gear#2', 'gear'],
    ['42', '42'], ['pin1', 'pin1'], ['_7', '_7'],
  ];
  for (const [name, stem] of table) assert.equal(nameStem(name), stem, name);
});

test('identical parts share a row: same stem and same triangle count', () => {
  const rows = billOfMaterials([
    { name: 'bolt_1', triangles: 120 }, { name: 'plate', triangles: 12 }, { name: 'bolt_2', triangles: 120 },
    { name: 'bolt_3', triangles: 96 }, { name: 'bolt (4)', triangles: 120 },
  ]);
  assert.deepEqual(rows.map((r) => [r.stem, r.triangles, r.quantity]), [['bolt', 120, 3], ['plate', 12, 1], ['bolt', 96, 1]]);
  assert.deepEqual(rows[0].names, ['bolt_1', 'bolt_2', 'bolt (4)']);
});

const parts = [{ name: 'base', group: 0 }, { name: 'lid', group: 1 }, { name: 'screw', group: 2 }];

test('a removal lists its steps in order, the last one without a direction', () => {
  const report = { parts, removal: { steps: [
    { parts: ['lid', 'screw'], direction: [0, 0, 1] },
    { parts: ['screw'], direction: null },
  ] } };
  assert.deepEqual(planSteps(report), [
    { parts: ['lid', 'screw'], direction: [0, 0, 1], text: 'Move lid, screw along (0.000, 0.000, 1.000)' },
    { parts: ['screw'], direction: null, text: 'Take out screw' },
  ]);
});

test('a hierarchy gives one step per split, in preorder, with the moving side\'s parts', () => {
  const report = { parts, hierarchy: { nodes: [
    { id: 0, groups: [0, 1, 2], names: ['base', 'lid', 'screw'], split: { moving: 2, staying: 1, direction: [0, -1, 0] } },
    { id: 1, groups: [0, 1], names: ['base', 'lid'], split: { moving: 4, staying: 3, direction: [1, 0, 0] } },
    { id: 3, groups: [0], names: ['base'], split: null },
    { id: 4, groups: [1], names: ['lid'], split: null },
    { id: 2, groups: [2], names: ['screw'], split: null },
  ] } };
  const steps = planSteps(report);
  assert.deepEqual(steps.map((s) => s.parts), [['screw'], ['lid']]);
  assert.equal(steps[0].text, 'Separate screw from base, lid along (0.000, -1.000, 0.000)');
  assert.deepEqual(planSteps(null), []);
  assert.deepEqual(planSteps({ parts }), []);
});

test('the base comes from explosion.base in any of its forms, else there is none', () => {
  assert.equal(baseName({ parts, explosion: { base: 'lid' } }), 'lid');
  assert.equal(baseName({ parts, explosion: { base: 2 } }), 'screw');
  assert.equal(baseName({ parts, explosion: { base: { name: 'base' } } }), 'base');
  assert.equal(baseName({ parts, explosion: {} }), null);
  assert.equal(baseName(null), null);
});

test('offsets by part name follow the part\'s group', () => {
  const offsets = reportOffsets({ parts, explosion: { offsets: [[0, 0, 0], [0, 0, 5], [1, 2, 3]] } });
  assert.deepEqual([...offsets], [['base', [0, 0, 0]], ['lid', [0, 0, 5]], ['screw', [1, 2, 3]]]);
  assert.equal(reportOffsets({ parts }), null);
});

test('extremes pick the first of equal values; directions print without -0', () => {
  assert.equal(extremeIndex([3, 1, 1, 4, 4], 1), 1);
  assert.equal(extremeIndex([3, 1, 1, 4, 4], -1), 3);
  assert.equal(formatDirection([-0.0001, 0.7071068, -1]), '(0.000, 0.707, -1.000)');
});
