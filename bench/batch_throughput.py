#!/usr/bin/python3
"""Batch throughput and the cost of the Python binding.

    PYTHONPATH=build/release/python bench/batch_throughput.py build/release/tools/velmora/velmora

Plans the corpus (when ../shared/corpus is there) and 50 generated box
stacks three ways: the velmora tool one assembly at a time, the Dask batch
on one local worker, and on two; prints assemblies per minute for each.
Then compares one assembly planned by the tool and through the binding
(median of several runs, whole process and in-process) and one exploded view
written by each (whole process). VELMORA_CORPUS overrides where the corpus
is. Wall-clock figures:
run it on a quiet machine.
"""

import json
import os
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(ROOT / "python" / "tests"))
from conftest import write_box_stack  # noqa: E402

CORPUS = Path(os.environ.get("VELMORA_CORPUS", ROOT.parent / "shared" / "corpus"))


def assemblies(workdir):
    generated = [write_box_stack(workdir / f"stack{k:02d}.obj", 2 + k % 12, size=1.0 + k / 10) for k in range(50)]
    corpus = sorted(CORPUS.iterdir()) if CORPUS.is_dir() else []
    return [str(p) for p in generated + [c for c in corpus if c.suffix != ".md"]]


def timed(command, env=None):
    start = time.perf_counter()
    subprocess.run(command, check=True, capture_output=True, env=env)
    return time.perf_counter() - start


def per_minute(count, seconds):
    return 60.0 * count / seconds


def main(cli):
    with tempfile.TemporaryDirectory() as tmp:
        work = Path(tmp)
        inputs = assemblies(work)
        serial = sum(timed([cli, "plan", a, "--threads", "1", "-o", str(work / "cli.json")]) for a in inputs)
        print(f"{len(inputs)} assemblies; tool one by one: {serial:.1f} s, {per_minute(len(inputs), serial):.1f}/min")
        for workers in (1, 2):
            seconds = timed([sys.executable, "-m", "velmora.batch", *inputs, "-o", str(work / f"out{workers}"),
                             "--workers", str(workers)])
            print(f"batch, {workers} worker(s): {seconds:.1f} s, {per_minute(len(inputs), seconds):.1f}/min")

        one = str(CORPUS / "beam_assembly") if CORPUS.is_dir() else str(ROOT / "examples" / "assemblies" / "pins.glb")
        script = f"import velmora; velmora.load({one!r}).plan(threads=1).to_json()"
        runs = 7
        tool = statistics.median(timed([cli, "plan", one, "--threads", "1", "-o", str(work / "one.json")])
                                 for _ in range(runs))
        binding = statistics.median(timed([sys.executable, "-c", script]) for _ in range(runs))
        print(f"one assembly ({Path(one).name}), whole process: tool {tool * 1000:.0f} ms, "
              f"python {binding * 1000:.0f} ms ({100 * (binding / tool - 1):+.1f}%)")

        glb = str(work / "one.glb")
        script = f"import velmora; velmora.load({one!r}).plan(threads=1).explode().save_glb({glb!r})"
        tool = statistics.median(timed([cli, "explode", one, "--threads", "1", "-o", glb]) for _ in range(runs))
        binding = statistics.median(timed([sys.executable, "-c", script]) for _ in range(runs))
        print(f"one exploded view ({Path(one).name}), whole process: tool {tool * 1000:.0f} ms, "
              f"python {binding * 1000:.0f} ms ({100 * (binding / tool - 1):+.1f}%)")

        import velmora

        def in_process():
            start = time.perf_counter()
            velmora.load(one).plan(threads=1).to_json()
            return time.perf_counter() - start

        inside = statistics.median(in_process() for _ in range(runs))
        reported = statistics.median(
            json.loads(subprocess.run([cli, "plan", one, "--threads", "1", "-o", "-"], check=True,
                                      capture_output=True, text=True).stdout)["timings"]["totalMs"]
            for _ in range(runs)) / 1000
        print(f"one assembly, in process: tool's import+plan {reported * 1000:.0f} ms, "
              f"binding load+plan+report {inside * 1000:.0f} ms ({100 * (inside / reported - 1):+.1f}%)")


if __name__ == "__main__":
    main(sys.argv[1] if len(sys.argv) > 1 else str(ROOT / "build" / "release" / "tools" / "velmora" / "velmora"))
