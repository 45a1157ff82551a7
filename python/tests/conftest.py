"""Shared helpers: the command-line tool to compare against, the corpus, and
small generated assemblies written as OBJ files."""

import json
import os
import subprocess
from pathlib import Path

import pytest

HERE = Path(__file__).resolve().parent
CORPUS = Path(os.environ.get("VELMORA_CORPUS", HERE.parents[2] / "shared" / "corpus"))
EXAMPLES = Path(os.environ.get("VELMORA_EXAMPLES", HERE.parents[1] / "examples"))
PINS = EXAMPLES / "assemblies" / "pins.glb"


@pytest.fixture(scope="session")
def cli():
    path = os.environ.get("VELMORA_CLI")
    if not path or not os.path.exists(path):
        pytest.skip("the velmora tool is not built (VELMORA_CLI)")
    return path


def run_cli(cli, *args):
    """Runs the tool; returns (status, stdout, stderr)."""
    done = subprocess.run([cli, *map(str, args)], capture_output=True, text=True)
    return done.returncode, done.stdout, done.stderr


def without_timings(report):
    """A report without what changes from run to run (stage and verification timings)."""
    out = {key: value for key, value in report.items() if key != "timings"}
    if "verification" in out:
        out["verification"] = {k: v for k, v in out["verification"].items() if k != "timeMs"}
    return out


def cli_report(cli, *args):
    status, out, err = run_cli(cli, *args, "-o", "-")
    assert status == 0, err
    return json.loads(out)


def corpus_path(name):
    path = CORPUS / name
    if not path.exists():
        pytest.skip(f"the corpus assembly {name} is absent")
    return path


def write_box_stack(path, boxes, size=1.0):
    """An OBJ file of `boxes` unit cubes stacked along z, face to face, one
    object per box: every box can only leave the stack upwards or downwards."""
    lines = []
    corners = [(x, y, z) for z in (0, 1) for y in (0, 1) for x in (0, 1)]
    # Outward faces of a cube over the corners above (index = x + 2y + 4z).
    quads = [(0, 2, 3, 1), (4, 5, 7, 6), (0, 1, 5, 4), (2, 6, 7, 3), (0, 4, 6, 2), (1, 3, 7, 5)]
    for b in range(boxes):
        lines.append(f"o box{b}")
        for x, y, z in corners:
            lines.append(f"v {x * size} {y * size} {(z + b) * size}")
        base = 8 * b + 1
        for a, b_, c, d in quads:
            lines.append(f"f {base + a} {base + b_} {base + c}")
            lines.append(f"f {base + a} {base + c} {base + d}")
    Path(path).write_text("\n".join(lines) + "\n")
    return Path(path)
