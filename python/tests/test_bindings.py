"""The Python package against the command-line tool: the same reports, the
same glTF bytes, the same messages; numpy input checked."""

import json
import sys
import threading
import types

import numpy as np
import pytest

import velmora
from conftest import PINS, cli_report, corpus_path, run_cli, without_timings, write_box_stack

CUBE_VERTICES = np.array([(x, y, z) for z in (0, 1) for y in (0, 1) for x in (0, 1)], dtype=np.float64)
CUBE_FACES = np.array([(0, 2, 3), (0, 3, 1), (4, 5, 7), (4, 7, 6), (0, 1, 5), (0, 5, 4),
                       (2, 6, 7), (2, 7, 3), (0, 4, 6), (0, 6, 2), (1, 3, 7), (1, 7, 5)], dtype=np.int64)


def two_cubes_face_to_face():
    """Two unit cubes, the second standing on the first."""
    upper = CUBE_VERTICES + (0.0, 0.0, 1.0)
    return [("lower", CUBE_VERTICES, CUBE_FACES), types.SimpleNamespace(name="upper", vertices=upper, faces=CUBE_FACES)]


@pytest.mark.parametrize("name", velmora.demo_names())
def test_demo_reports_equal_the_tools(cli, name):
    expected = cli_report(cli, "demo", name, "--threads", 2)
    plan = velmora.demo(name).plan(threads=2)
    assert without_timings(plan.to_dict()) == without_timings(expected)
    assert set(plan.to_dict()["timings"]) == set(expected["timings"])


@pytest.mark.parametrize("source", [PINS, "pins.glb", "beam_assembly"])
def test_file_reports_equal_the_tools(cli, tmp_path, source):
    path = source if source == PINS else corpus_path(source)
    plan = velmora.load(str(path)).plan(threads=2)
    assert without_timings(plan.to_dict()) == without_timings(cli_report(cli, "plan", path, "--threads", 2))
    assert json.loads(plan.to_json()) == plan.to_dict()

    # The exploded view: same report, same glTF bytes.
    status, _, err = run_cli(cli, "explode", path, "--threads", 2, "-o", tmp_path / "cli.glb",
                             "--report", tmp_path / "cli.json")
    assert status == 0, err
    view = plan.explode()
    view.save_glb(tmp_path / "py.glb")
    assert (tmp_path / "py.glb").read_bytes() == (tmp_path / "cli.glb").read_bytes()
    assert without_timings(view.to_dict()) == without_timings(json.loads((tmp_path / "cli.json").read_text()))
    assert view.offsets.shape == (len(plan.to_dict()["groups"]), 3)
    assert view.offsets.tolist() == [o for o in view.to_dict()["explosion"]["offsets"]]

    # Taking out the last part.
    part = velmora.load(str(path)).parts[-1]
    expected = cli_report(cli, "remove", path, "--threads", 2, "--part", part)
    assert without_timings(plan.remove(part).to_dict()) == without_timings(expected)


def test_arrays_and_properties_are_the_reports():
    plan = velmora.load(str(PINS)).plan(threads=2)
    report = plan.to_dict()
    assert plan.directions.dtype == np.float64
    assert plan.directions.tolist() == report["directions"]
    assert plan.contacts == report["contacts"]
    assert plan.hierarchy == report["hierarchy"]["nodes"]


def test_two_cubes_face_to_face():
    assembly = velmora.Assembly.from_meshes(two_cubes_face_to_face())
    assert assembly.parts == ["lower", "upper"]
    plan = assembly.plan(threads=1)
    # One contact, on the shared face: the lower cube leaves downwards or
    # slides along the face; the set's lines are the three axes.
    (contact,) = plan.contacts
    assert contact["names"] == ["lower", "upper"]
    assert sorted(map(tuple, np.array(contact["directions"]) + 0.0)) == \
        sorted([(0, 0, -1), (1, 0, 0), (-1, 0, 0), (0, 1, 0), (0, -1, 0)])
    assert (plan.directions + 0.0).tolist() == [[0, 0, -1], [1, 0, 0], [0, 1, 0]]
    # The only split takes the lower cube down, away from the upper one.
    root = plan.hierarchy[0]
    assert root["groups"] == [0, 1]
    assert root["split"]["direction"] == [0, 0, -1]
    assert plan.hierarchy[root["split"]["moving"]]["names"] == ["lower"]
    # Split distance: a tenth of the bounds' diagonal (1 x 1 x 2). The cubes tie for the
    # largest part, the first one (lower) stays still, so the upper one moves up.
    view = plan.explode()
    assert view.split_distance == pytest.approx(np.sqrt(6) / 10, rel=1e-6)
    assert view.offsets.tolist() == [[0, 0, 0], [0, 0, np.float32(view.split_distance)]]
    # Kept still by name, the upper one stays and the lower one moves down.
    fixed = plan.explode(fix="upper")
    assert fixed.offsets.tolist() == [[0, 0, -np.float32(view.split_distance)], [0, 0, 0]]
    steps = plan.remove("upper").to_dict()["removal"]["steps"]
    assert [(s["parts"], s["direction"], s["target"]) for s in steps] == \
        [(["lower"], [0, 0, -1], False), (["upper"], None, True)]


def test_meshes_equal_the_same_geometry_read_from_a_file(tmp_path):
    from_file = velmora.load(str(write_box_stack(tmp_path / "stack.obj", 2))).plan(threads=1).to_dict()
    from_arrays = velmora.Assembly.from_meshes(two_cubes_face_to_face()).plan(threads=1).to_dict()
    def unnamed(items):
        return [{k: v for k, v in item.items() if k != "names"} for item in items]

    assert len(from_file["contacts"]) == 1
    assert unnamed(from_file["contacts"]) == unnamed(from_arrays["contacts"])
    assert from_file["directions"] == from_arrays["directions"]
    assert unnamed(from_file["hierarchy"]["nodes"]) == unnamed(from_arrays["hierarchy"]["nodes"])


def test_results_do_not_depend_on_the_thread_count():
    one = without_timings(velmora.load(str(PINS)).plan(threads=1).to_dict())
    three = without_timings(velmora.load(str(PINS)).plan(threads=3).to_dict())
    one["settings"].pop("threads")
    three["settings"].pop("threads")
    assert one == three


BAD_MESHES = [
    ([("a", CUBE_VERTICES[:, :2], CUBE_FACES)], "a: vertices must be an array of shape (n, 3)"),
    ([("a", CUBE_VERTICES.ravel(), CUBE_FACES)], "a: vertices must be an array of shape (n, 3)"),
    ([("a", CUBE_VERTICES, CUBE_FACES[:, :2])], "a: faces must be an array of shape (n, 3)"),
    ([("a", CUBE_VERTICES.astype(np.int32), CUBE_FACES)], "a: vertices must hold floats, not int32"),
    ([("a", CUBE_VERTICES, CUBE_FACES.astype(np.float32))], "a: faces must hold integers, not float32"),
    ([("a", CUBE_VERTICES, CUBE_FACES + 1)], "a: a triangle refers to a vertex that does not exist"),
    ([("a", CUBE_VERTICES, CUBE_FACES - 1)], "a: a triangle refers to a vertex that does not exist"),
    ([("a", np.where(CUBE_VERTICES > 0, np.nan, 0.0), CUBE_FACES)], "a: non-finite vertex coordinate"),
    ([("a", np.zeros((3, 3)), np.array([[0, 1, 2]]))], "a: no usable triangle"),
    ([("a", CUBE_VERTICES, CUBE_FACES)] * 2, "a: two meshes have this name"),
    ([], "no mesh given"),
    ([("a", CUBE_VERTICES)], "a mesh is (name, vertices, faces) or has vertices and faces attributes"),
]


@pytest.mark.parametrize("meshes,message", BAD_MESHES)
def test_bad_arrays_raise_value_error(meshes, message):
    with pytest.raises(ValueError) as error:
        velmora.Assembly.from_meshes(meshes)
    assert str(error.value) == message


def test_float32_and_int32_arrays_are_accepted():
    meshes = [(n, v.astype(np.float32), f.astype(np.int32)) for n, v, f in
              [("lower", CUBE_VERTICES, CUBE_FACES), ("upper", CUBE_VERTICES + (0, 0, 1), CUBE_FACES)]]
    assert len(velmora.Assembly.from_meshes(meshes).plan(threads=1).contacts) == 1


def test_bad_input_raises_with_the_tools_message(cli, tmp_path):
    corrupt = tmp_path / "corrupt.glb"
    corrupt.write_bytes(b"not a glTF file at all")
    cases = [(OSError, tmp_path / "missing.stl", []), (ValueError, corrupt, []),
             (ValueError, PINS, ["--group-by", "nothing"])]
    for kind, path, flags in cases:
        status, _, err = run_cli(cli, "info", path, *flags)
        with pytest.raises(kind) as error:
            velmora.load(str(path), group_by=flags[1] if flags else "mesh")
        if status == 3:
            assert err == f"velmora: error: {error.value}\n"
    with pytest.raises(ValueError, match="keep-together set needs at least two different groups"):
        velmora.load(str(PINS)).plan(keep_together=[[velmora.load(str(PINS)).parts[0]]])
    with pytest.raises(ValueError, match="no part named|closest|nothing"):
        velmora.load(str(PINS)).plan(threads=1).remove("nothing")


def test_progress_reaches_every_stage_in_order():
    seen = []
    velmora.load(str(PINS)).plan(threads=2, progress=lambda stage, fraction: seen.append((stage, fraction)))
    stages = [stage for stage, _ in seen]
    assert [s for i, s in enumerate(stages) if i == 0 or stages[i - 1] != s] == \
        ["contacts", "distant contacts", "hierarchy"]
    for stage in set(stages):
        fractions = [f for s, f in seen if s == stage]
        assert fractions == sorted(fractions) and 0.0 <= fractions[0] and fractions[-1] <= 1.0


def test_a_failing_callback_does_not_stop_the_plan(monkeypatch):
    def fail(*_):
        raise RuntimeError("callback failed")

    reported = []
    monkeypatch.setattr(sys, "unraisablehook", lambda u: reported.append((str(u.object), str(u.exc_value))))
    expected = without_timings(velmora.load(str(PINS)).plan(threads=2).to_dict())
    velmora.set_log(fail)
    try:
        plan = velmora.load(str(PINS)).plan(threads=2, progress=fail)
    finally:
        velmora.set_log(None)
    assert without_timings(plan.to_dict()) == expected
    assert ("velmora progress callback", "callback failed") in reported
    assert ("velmora log callback", "callback failed") in reported


def test_library_lines_go_to_the_callback_only_when_set(capfd):
    lines = []
    velmora.set_log(lines.append)
    try:
        velmora.load(str(PINS)).plan(threads=2)
    finally:
        velmora.set_log(None)
    assert lines[0].startswith("solver time: ") and lines[-1].startswith("total: ")
    velmora.load(str(PINS)).plan(threads=2)
    assert capfd.readouterr().out == ""


def test_plans_run_in_parallel_threads():
    results = [None] * 3

    def plan(k):
        results[k] = without_timings(velmora.load(str(PINS)).plan(threads=1).to_dict())

    threads = [threading.Thread(target=plan, args=(k,)) for k in range(3)]
    for t in threads:
        t.start()
    for t in threads:
        t.join()
    assert results[0] == results[1] == results[2] is not None
