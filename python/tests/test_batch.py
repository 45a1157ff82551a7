"""The batch on a local Dask cluster: the same reports as the tool run one
assembly at a time, failures recorded, killed workers survived, reruns
resumed."""

import csv
import json
import os
import shutil
import signal
import subprocess
import sys
import time

import pytest

from conftest import CORPUS, PINS, cli_report, run_cli, without_timings, write_box_stack
from velmora import batch

pytest.importorskip("distributed")


def run_batch(*args):
    done = subprocess.run([sys.executable, "-m", "velmora.batch", *map(str, args)], capture_output=True, text=True)
    return done.returncode, done.stderr


def read_summary(outdir):
    rows = json.loads((outdir / "summary.json").read_text())
    with open(outdir / "summary.csv", newline="") as f:
        table = list(csv.DictReader(f))
    assert [r["assembly"] for r in table] == [r["assembly"] for r in rows]
    for row, line in zip(rows, table):
        assert {k: "" if v is None else str(v) for k, v in row.items()} == line
    return {row["assembly"]: row for row in rows}


def outputs_of(outdir):
    return {p.name: p.stat().st_mtime_ns for p in outdir.iterdir()}


@pytest.fixture
def assemblies(tmp_path):
    """Inputs: the shipped pins, generated stacks (two through a manifest),
    the beam assembly when the corpus is there, and a corrupt file."""
    inputs = tmp_path / "inputs"
    inputs.mkdir()
    shutil.copy(PINS, inputs / "pins.glb")
    for boxes in (2, 3, 4):
        write_box_stack(inputs / f"stack{boxes}.obj", boxes)
    (inputs / "corrupt.glb").write_bytes(b"glTF but not really")
    (inputs / "more.txt").write_text("# two stacks\nstack3.obj\n\nstack4.obj\n")
    sources = [inputs / "pins.glb", inputs / "stack2.obj", inputs / "more.txt", inputs / "corrupt.glb"]
    if (CORPUS / "beam_assembly").is_dir():
        sources.append(CORPUS / "beam_assembly")
    return sources


def test_batch_plans_like_the_tool_records_failures_and_resumes(cli, assemblies, tmp_path):
    out = tmp_path / "out"
    status, err = run_batch(*assemblies, "-o", out, "--workers", 2, "--explode")
    assert status == 3, err
    summary = read_summary(out)
    planned = ["pins", "stack2", "stack3", "stack4"] + (["beam_assembly"] if len(assemblies) == 5 else [])
    assert sorted(summary) == sorted(planned + ["corrupt"])

    corrupt = assemblies[3]
    _, _, cli_error = run_cli(cli, "info", corrupt)
    assert summary["corrupt"]["status"] == "failed"
    assert f"velmora: error: {summary['corrupt']['error']}\n" == cli_error
    assert not (out / "corrupt.json").exists()

    sources = {"pins": assemblies[0], "stack2": assemblies[1], "stack3": assemblies[1].with_name("stack3.obj"),
               "stack4": assemblies[1].with_name("stack4.obj"), "beam_assembly": CORPUS / "beam_assembly"}
    for name in planned:
        report = json.loads((out / f"{name}.json").read_text())
        expected = cli_report(cli, "plan", sources[name], "--threads", 1)
        assert without_timings(report) == without_timings(expected)
        row = summary[name]
        assert (row["status"], row["parts"], row["contacts"], row["error"]) == \
            ("ok", len(report["parts"]), len(report["contacts"]), "")
        assert row["splits"] == sum(n["split"] is not None for n in report["hierarchy"]["nodes"])
        assert (out / f"{name}.glb").read_bytes()[:4] == b"glTF"
        assert json.loads((out / f"{name}.explode.json").read_text())["explosion"]["offsets"]
    # Two cubes: one contact, one split.
    assert (summary["stack2"]["parts"], summary["stack2"]["contacts"], summary["stack2"]["splits"]) == (2, 1, 1)
    assert not [p for p in out.iterdir() if p.name.endswith(".part") or p.name.startswith(".")]

    # Without the corrupt file a rerun has nothing to do and touches nothing.
    before = outputs_of(out)
    complete = [a for a in assemblies if a != corrupt]
    status, err = run_batch(*complete, "-o", out, "--explode")
    assert status == 0, err
    assert f"velmora: {len(planned)} assemblies, {len(planned)} already complete, 0 to plan" in err
    after = outputs_of(out)
    assert {k: v for k, v in after.items() if not k.startswith("summary")} == \
        {k: v for k, v in before.items() if not k.startswith("summary") and k in after}
    assert {n: r for n, r in read_summary(out).items()} == {n: summary[n] for n in planned}

    # The failed one is tried again on a rerun that names it.
    status, err = run_batch(*assemblies, "-o", out, "--explode")
    assert status == 3 and "1 to plan" in err


def test_a_worker_killed_mid_task_loses_nothing(assemblies, tmp_path):
    from distributed import Client, LocalCluster

    inputs = assemblies[1].parent
    stacks = [write_box_stack(inputs / f"tall{k}.obj", 5 + k) for k in range(6)]
    out = tmp_path / "out"
    with LocalCluster(n_workers=2, threads_per_worker=1, processes=True, host="127.0.0.1",
                      dashboard_address=None) as cluster, Client(cluster) as client:
        job = subprocess.Popen([sys.executable, "-m", "velmora.batch", *map(str, stacks), "-o", str(out),
                                "--scheduler", cluster.scheduler_address], stderr=subprocess.PIPE, text=True)
        pids = client.run(os.getpid)
        victim = None
        while victim is None and job.poll() is None:
            busy = [worker for worker, keys in client.processing().items() if keys]
            victim = busy[0] if busy else None
            time.sleep(0.02)
        assert victim is not None, "the batch ended before any task was seen running"
        os.kill(pids[victim], signal.SIGKILL)
        _, err = job.communicate(timeout=240)
    assert job.returncode == 0, err
    summary = read_summary(out)
    assert sorted(summary) == sorted(f"tall{k}" for k in range(6))
    for k in range(6):
        assert summary[f"tall{k}"]["status"] == "ok"
        assert summary[f"tall{k}"]["parts"] == 5 + k
        assert json.loads((out / f"tall{k}.json").read_text())["hierarchy"]["nodes"]


def test_a_crash_in_native_code_is_recorded(tmp_path, monkeypatch):
    crashing = tmp_path / "crashing-python"
    crashing.write_text("#!/bin/sh\nkill -SEGV $$\n")
    crashing.chmod(0o755)
    monkeypatch.setattr(sys, "executable", str(crashing))
    row = batch.plan_assembly(str(PINS), str(tmp_path), "pins", 1, False)
    assert (row["status"], row["error"], row["parts"]) == ("crashed", "the planner stopped on signal 11", None)
    assert not (tmp_path / "pins.json").exists()


def test_names_and_manifests(tmp_path):
    (tmp_path / "list.txt").write_text("a/x.obj\n# skipped\n/abs/y\n\n")
    sources = batch.expand_inputs([str(tmp_path / "list.txt"), "b/x.stl", "c/"])
    assert sources == [str(tmp_path / "a" / "x.obj"), "/abs/y", "b/x.stl", "c/"]
    assert batch.assembly_names(sources) == ["x", "y", "x-2", "c"]
    with pytest.raises(SystemExit):
        batch.parse_args(["in", "-o", "out", "--workers", "0"])


def test_an_unusable_output_folder_is_one_error_line(tmp_path):
    (tmp_path / "file").write_text("")
    status, err = run_batch(PINS, "-o", tmp_path / "file" / "out")
    assert status == 3
    assert err.startswith("velmora: error: ") and err.count("\n") == 1 and "file/out" in err
