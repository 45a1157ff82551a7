"""Exploded views, removals and pages from Python against the command-line
tool run with the flags of the same names: the same reports, the same glTF
bytes, the same printed steps, the same pages."""

import json
import re
import subprocess
import sys

import numpy as np
import pytest

import velmora
from conftest import PINS, cli_report, corpus_path, run_cli, without_timings
from test_bindings import two_cubes_face_to_face

REPORT_IN_PAGE = re.compile(r'(<script id="velmora-report" type="application/json">)(.*?)(</script>)', re.S)

needs_viewer = pytest.mark.skipif(not velmora.viewer_built_in, reason="built without the viewer")


def page_parts(path):
    """The page with its embedded report taken out, and that report without timings."""
    page = path.read_text(encoding="utf-8")
    match = REPORT_IN_PAGE.search(page)
    assert match, "the page embeds a report"
    return REPORT_IN_PAGE.sub(r"\1\3", page, count=1), without_timings(json.loads(match.group(2)))


def assert_same_page(ours, theirs):
    assert page_parts(ours) == page_parts(theirs)


# (flags of the tool, the same as keyword arguments); the fixed part is the first one.
VIEW_OPTIONS = [
    ([], {}),
    (["--fix", "{first}", "--lines", "--no-compress", "--units", "in", "--speed", "0.5", "--crease-angle", "45"],
     {"fix": "{first}", "lines": True, "compress": False, "units": "in", "speed": 0.5, "crease_angle": 45.0}),
    (["--speed", "0", "--policy", "0", "--play-style", "3", "--split-distance", "0.02"],
     {"speed": 0.0, "policy": 0, "play_style": 3, "split_distance": 0.02}),
]


def filled(options, first):
    if isinstance(options, dict):
        return {k: v.format(first=first) if isinstance(v, str) else v for k, v in options.items()}
    return [o.format(first=first) for o in options]


@pytest.mark.parametrize("source", [PINS, "beam_assembly"])
@pytest.mark.parametrize("flags, kwargs", VIEW_OPTIONS)
def test_exploded_views_equal_the_tools(cli, tmp_path, source, flags, kwargs):
    path = source if source == PINS else corpus_path(source)
    plan = velmora.load(str(path)).plan(threads=2)
    first = plan.to_dict()["parts"][0]["name"]
    html = ["--html", tmp_path / "cli.html"] if velmora.viewer_built_in else []
    status, _, err = run_cli(cli, "explode", path, "--threads", 2, "-o", tmp_path / "cli.glb",
                             "--report", tmp_path / "cli.json", *html, *filled(flags, first))
    assert status == 0, err
    view = plan.explode(**filled(kwargs, first))
    view.save_glb(tmp_path / "py.glb")
    assert (tmp_path / "py.glb").read_bytes() == (tmp_path / "cli.glb").read_bytes()
    assert without_timings(view.to_dict()) == without_timings(json.loads((tmp_path / "cli.json").read_text()))
    if velmora.viewer_built_in:
        view.save_html(tmp_path / "py.html")
        assert_same_page(tmp_path / "py.html", tmp_path / "cli.html")


@pytest.mark.parametrize("source, fix", [(PINS, None), (PINS, "{first}"), ("beam_assembly", None)])
def test_removals_equal_the_tools(cli, tmp_path, source, fix):
    path = source if source == PINS else corpus_path(source)
    plan = velmora.load(str(path)).plan(threads=2)
    parts = plan.to_dict()["parts"]
    first, part = parts[0]["name"], parts[-1]["name"]
    fix_flags = ["--fix", fix.format(first=first)] if fix else []
    html = ["--html", tmp_path / "cli.html"] if velmora.viewer_built_in else []
    status, printed, err = run_cli(cli, "remove", path, "--threads", 2, "--part", part, *fix_flags,
                                   "-o", tmp_path / "cli.json", "--gltf", tmp_path / "cli.glb", *html)
    assert status == 0, err
    removal = plan.remove(part, fix=fix.format(first=first) if fix else None)
    expected = json.loads((tmp_path / "cli.json").read_text())
    assert without_timings(removal.to_dict()) == without_timings(expected)
    assert json.loads(removal.to_json()) == removal.to_dict()
    assert removal.text == printed
    assert removal.instructions == expected["removal"]["instructions"]
    assert removal.base == expected["removal"]["base"]
    removal.save_glb(tmp_path / "py.glb")
    assert (tmp_path / "py.glb").read_bytes() == (tmp_path / "cli.glb").read_bytes()
    if velmora.viewer_built_in:
        removal.save_html(tmp_path / "py.html")
        assert_same_page(tmp_path / "py.html", tmp_path / "cli.html")


def test_a_removals_view_leaves_the_plan_as_it_was(tmp_path):
    plan = velmora.load(str(PINS)).plan(threads=2)
    before = without_timings(plan.to_dict())
    plan.explode().save_glb(tmp_path / "before.glb")
    removal = plan.remove(plan.to_dict()["parts"][-1]["name"])
    removal.save_glb(tmp_path / "steps.glb")
    assert without_timings(plan.to_dict()) == before
    plan.explode().save_glb(tmp_path / "after.glb")
    assert (tmp_path / "after.glb").read_bytes() == (tmp_path / "before.glb").read_bytes()
    assert (tmp_path / "steps.glb").read_bytes() != (tmp_path / "before.glb").read_bytes()


def test_taking_the_upper_cube_off_the_lower_one():
    plan = velmora.Assembly.from_meshes(two_cubes_face_to_face()).plan(threads=1)
    # The library frees the upper cube by moving the lower one down; held by
    # the lower cube, a person lifts the upper one off instead.
    removal = plan.remove("upper")
    assert removal.base == ["lower"]
    assert [(i["parts"], i["direction"], i["target"]) for i in removal.instructions] == [(["upper"], [0, 0, 1], True)]
    assert removal.text == "Taking out upper (lower stays in place): 1 step\n  1. take out upper along +Z\n"
    # Held by the upper cube, the lower one comes out downwards.
    held = plan.remove("lower", fix="upper")
    assert held.base == ["upper"]
    assert [(i["parts"], i["direction"]) for i in held.instructions] == [(["lower"], [0, 0, -1])]


def test_the_plans_fixed_part_is_the_default_of_its_views():
    meshes = two_cubes_face_to_face()
    plan = velmora.Assembly.from_meshes(meshes).plan(threads=1, fix="upper")
    d = np.float32(plan.explode().split_distance)
    assert plan.explode().offsets.tolist() == [[0, 0, -d], [0, 0, 0]]
    assert plan.explode(fix="lower").offsets.tolist() == [[0, 0, 0], [0, 0, d]]
    assert plan.remove("lower").base == ["upper"]
    with pytest.raises(ValueError, match="cannot stay in place"):
        plan.remove("upper")
    with pytest.raises(ValueError, match="nothing"):
        velmora.Assembly.from_meshes(meshes).plan(threads=1, fix="nothing")
    with pytest.raises(ValueError, match="nothing"):
        plan.explode(fix="nothing")


def test_the_defaults_are_the_tools():
    plan = velmora.Assembly.from_meshes(two_cubes_face_to_face()).plan(threads=1)
    # Timed by travel: 0.8 diagonals a second; without speed, one second per split.
    assert plan.explode().duration != plan.explode(speed=0).duration
    assert plan.explode(speed=0).duration == pytest.approx(1.0)
    with pytest.raises(ValueError):
        plan.explode(units="furlong")


def test_grouping_and_tessellation_options_equal_the_tools(cli):
    for grouping in ("level:1", "node", "file"):
        expected = cli_report(cli, "info", PINS, "--group-by", grouping, "--deflection", 0.1,
                              "--angular-deflection", 20)
        assembly = velmora.load(PINS, group_by=grouping, deflection=0.1, angular_deflection=20)
        assert assembly.to_dict() == without_timings(expected)
    with pytest.raises(ValueError):
        velmora.load(PINS, angular_deflection=95)
    with pytest.raises(ValueError):
        velmora.load(PINS, deflection=-1)


@pytest.mark.skipif(velmora.viewer_built_in, reason="this build has the viewer")
def test_pages_need_the_viewer(tmp_path):
    plan = velmora.Assembly.from_meshes(two_cubes_face_to_face()).plan(threads=1)
    with pytest.raises(ValueError, match="built without the viewer"):
        plan.explode().save_html(tmp_path / "view.html")
    with pytest.raises(ValueError, match="built without the viewer"):
        plan.remove("upper").save_html(tmp_path / "steps.html")
    assert not (tmp_path / "view.html").exists()


def run_batch(*args):
    return subprocess.run([sys.executable, "-m", "velmora.batch", *map(str, args)], capture_output=True, text=True)


@needs_viewer
def test_the_batch_writes_pages(tmp_path):
    out = tmp_path / "out"
    done = run_batch(PINS, "-o", out, "--workers", 1, "--explode", "--html")
    assert done.returncode == 0, done.stderr
    plan = velmora.load(str(PINS)).plan(threads=1)
    plan.explode().save_html(tmp_path / "pins.html")
    assert_same_page(out / "pins.html", tmp_path / "pins.html")
    assert page_parts(out / "pins.html")[1] == without_timings(json.loads((out / "pins.explode.json").read_text()))
    # A rerun finds the page and does nothing; without --explode there is no view to show.
    assert "1 already complete, 0 to plan" in run_batch(PINS, "-o", out, "--explode", "--html").stderr
    refused = run_batch(PINS, "-o", out, "--html")
    assert refused.returncode == 2 and "--html needs --explode" in refused.stderr
