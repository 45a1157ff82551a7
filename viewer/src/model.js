// What the page knows about a plan apart from three.js: part names and
// their groups, the steps it shows, the bill of materials. Pure functions of
// the report (and of per-part triangle counts), so they run in node as well.

// The stem shared by copies of one part: the last '/' segment of the name
// without instance suffixes ("#2", " (2)", "<2>", "_2", "-2", ".002", ":2"),
// removed repeatedly; digits glued to letters ("M8", "part1") are kept.
export function nameStem(name) {
  let stem = name.slice(name.lastIndexOf('/') + 1);
  const suffixes = [/#\d+$/, /\s*\(\d+\)$/, /<\d+>$/, /[\s_.:\-]\d+$/];
  for (let changed = true; changed;) {
    changed = false;
    for (const suffix of suffixes) {
      const shorter = stem.replace(suffix, '');
      if (shorter !== stem && shorter.length > 0) {
        stem = shorter;
        changed = true;
      }
    }
  }
  return stem;
}

// Bill of materials: parts are identical when they have the same name stem
// and the same triangle count. `parts` is [{name, triangles}]; rows come in
// the order of their first part.
export function billOfMaterials(parts) {
  const rows = new Map();
  for (const part of parts) {
    const stem = nameStem(part.name);
    const key = `${stem}\u0000${part.triangles}`;
    if (!rows.has(key)) rows.set(key, { stem, triangles: part.triangles, names: [] });
    rows.get(key).names.push(part.name);
  }
  return [...rows.values()].map((row) => ({ ...row, quantity: row.names.length }));
}

// Names of the parts whose group is one of `groups`.
export function partNamesOfGroups(report, groups) {
  const wanted = new Set(groups);
  return report.parts.filter((p) => wanted.has(p.group)).map((p) => p.name);
}

export function formatDirection(d) {
  const rounded = (x) => (Math.round(x * 1000) / 1000 + 0).toFixed(3);
  return `(${d.map(rounded).join(', ')})`;
}

function joinNames(names) {
  return names.length > 3 ? `${names[0]} and ${names.length - 1} more` : names.join(', ');
}

// The steps the page lists, prints and points arrows along: the removal's
// steps for a removal, else the hierarchy's splits in preorder (the moving
// side leaves the staying side). Each is {text, parts, direction|null}.
export function planSteps(report) {
  if (!report) return [];
  if (report.removal) {
    return report.removal.steps.map((step) => ({
      parts: step.parts,
      direction: step.direction ?? null,
      text: step.direction
        ? `Move ${joinNames(step.parts)} along ${formatDirection(step.direction)}`
        : `Take out ${joinNames(step.parts)}`,
    }));
  }
  const nodes = new Map((report.hierarchy?.nodes ?? []).map((n) => [n.id, n]));
  const steps = [];
  for (const node of nodes.values()) {
    if (!node.split) continue;
    const moving = nodes.get(node.split.moving), staying = nodes.get(node.split.staying);
    steps.push({
      parts: partNamesOfGroups(report, moving.groups),
      direction: node.split.direction,
      text: `Separate ${joinNames(moving.names)} from ${joinNames(staying.names)} along ` +
        formatDirection(node.split.direction),
    });
  }
  return steps;
}

// The name of the part that stays put, when the report names one
// (`explosion.base` as a part name, an object with a name, or a part index).
export function baseName(report) {
  const base = report?.explosion?.base;
  if (typeof base === 'string') return base;
  if (typeof base === 'number') return report.parts?.[base]?.name ?? null;
  if (base && typeof base.name === 'string') return base.name;
  if (base && typeof base.part === 'string') return base.part;
  return null;
}

// Every part's exploded offset from the report, by name (null without one).
export function reportOffsets(report) {
  const offsets = report?.explosion?.offsets;
  if (!offsets || !report.parts) return null;
  return new Map(report.parts.map((p) => [p.name, offsets[p.group]]));
}

// Index of the first smallest (`sign` 1) or largest (`sign` -1) value.
export function extremeIndex(values, sign) {
  let best = 0;
  for (let i = 1; i < values.length; ++i)
    if (sign * values[i] < sign * values[best]) best = i;
  return best;
}
