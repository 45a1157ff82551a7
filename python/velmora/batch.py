"""Plans many assemblies on a Dask cluster.

    python3 -m velmora.batch INPUT... -o OUTDIR [--scheduler ADDRESS]
        [--workers N] [--threads-per-task K] [--explode [--html]]

Every INPUT folder or mesh file is one assembly; a ``.txt`` INPUT is a
manifest listing one such input per line (blank lines and ``#`` comments
skipped, relative paths taken from the manifest's folder). Without
``--scheduler`` the batch starts a local cluster of N worker processes on
127.0.0.1; with ``--scheduler tcp://host:8786`` it runs on that cluster,
whose workers must have this package.

For assembly NAME the batch writes ``OUTDIR/NAME.json`` (the ``velmora plan``
report) and with ``--explode`` ``NAME.glb`` and ``NAME.explode.json`` (with
``--html`` also the viewer page ``NAME.html``), each atomically; ``summary.json`` and ``summary.csv`` (assembly, parts, contacts,
splits, seconds, status, error) are rewritten as every result arrives.
Assemblies whose outputs are complete are not planned again. Every assembly
runs in a child process of the worker, so bad input or a crash in native
code is recorded as that assembly's failure; a worker that dies mid-task has
its task run again by Dask.
"""

import argparse
import csv
import io
import json
import os
import subprocess
import sys
import time

from ._velmora import viewer_built_in

SUMMARY_FIELDS = ["assembly", "parts", "contacts", "splits", "seconds", "status", "error"]


def manifest_entries(path):
    base = os.path.dirname(os.path.abspath(path))
    with open(path, encoding="utf-8") as manifest:
        for line in manifest:
            entry = line.strip()
            if entry and not entry.startswith("#"):
                yield entry if os.path.isabs(entry) else os.path.join(base, entry)


def expand_inputs(inputs):
    """The assembly sources: inputs as given, manifests replaced by their entries."""
    sources = []
    for source in inputs:
        if source.lower().endswith(".txt") and os.path.isfile(source):
            sources.extend(manifest_entries(source))
        else:
            sources.append(source)
    return sources


def assembly_names(sources):
    """A unique output name per source: its file stem or folder name."""
    names, taken = [], set()
    for source in sources:
        stem = os.path.splitext(os.path.basename(os.path.normpath(source)))[0] or "assembly"
        name, k = stem, 2
        while name in taken:
            name, k = f"{stem}-{k}", k + 1
        taken.add(name)
        names.append(name)
    return names


def expected_outputs(outdir, name, explode, html=False):
    names = [name + ".json"] + ([name + ".glb", name + ".explode.json"] if explode else [])
    names += [name + ".html"] if html else []
    return [os.path.join(outdir, n) for n in names]


def completed_row(outdir, name, explode, previous, html=False):
    """The summary row of an assembly whose outputs are all there, else None."""
    if not all(os.path.isfile(p) for p in expected_outputs(outdir, name, explode, html)):
        return None
    try:
        with open(os.path.join(outdir, name + ".json"), encoding="utf-8") as f:
            report = json.load(f)
    except (OSError, ValueError):
        return None
    splits = sum(1 for node in report["hierarchy"]["nodes"] if node["split"] is not None)
    row = {"assembly": name, "parts": len(report["parts"]), "contacts": len(report["contacts"]),
           "splits": splits, "seconds": None, "status": "ok", "error": ""}
    if previous.get(name, {}).get("status") == "ok":
        row["seconds"] = previous[name].get("seconds")
    return row


def plan_assembly(source, outdir, name, threads, explode, html=False):
    """Dask task: plans one assembly in a child process and returns its summary row."""
    start = time.monotonic()
    command = [sys.executable, "-m", "velmora._job", source, outdir, name, str(threads),
               "1" if explode else "0", "1" if html else "0"]
    child = subprocess.run(command, capture_output=True, text=True)
    row = {"assembly": name, "parts": None, "contacts": None, "splits": None,
           "seconds": round(time.monotonic() - start, 3), "status": "ok", "error": ""}
    if child.returncode == 0:
        row.update(json.loads(child.stdout.strip().splitlines()[-1]))
    elif child.returncode < 0:
        row.update(status="crashed", error=f"the planner stopped on signal {-child.returncode}")
    else:
        lines = child.stderr.strip().splitlines()
        row.update(status="failed", error=lines[-1].removeprefix("velmora: error: ") if lines else
                   f"the planner exited with status {child.returncode}")
    return row


def write_atomically(path, text):
    temporary = f"{path}.{os.getpid()}.part"
    with open(temporary, "w", encoding="utf-8", newline="") as out:
        out.write(text)
    os.replace(temporary, path)


def write_summary(outdir, rows):
    ordered = sorted(rows.values(), key=lambda r: r["assembly"])
    write_atomically(os.path.join(outdir, "summary.json"), json.dumps(ordered, indent=2) + "\n")
    text = io.StringIO()
    writer = csv.DictWriter(text, fieldnames=SUMMARY_FIELDS, lineterminator="\n")
    writer.writeheader()
    writer.writerows(ordered)
    write_atomically(os.path.join(outdir, "summary.csv"), text.getvalue())


def read_previous_summary(outdir):
    try:
        with open(os.path.join(outdir, "summary.json"), encoding="utf-8") as f:
            return {row["assembly"]: row for row in json.load(f)}
    except (OSError, ValueError):
        return {}


class ProgressBar:
    """One line on standard error, redrawn as assemblies finish (only on a terminal)."""

    def __init__(self, total, stream=sys.stderr):
        self.total, self.done, self.failed, self.stream = total, 0, 0, stream
        self.enabled = stream.isatty()
        self.draw()

    def advance(self, row):
        self.done += 1
        self.failed += row["status"] != "ok"
        self.draw()

    def draw(self):
        if not self.enabled:
            return
        width = 30
        filled = width * self.done // max(self.total, 1)
        self.stream.write(f"\rvelmora batch [{'#' * filled}{'.' * (width - filled)}] "
                          f"{self.done}/{self.total} ({self.failed} failed)")
        self.stream.flush()

    def finish(self):
        if self.enabled:
            self.stream.write("\n")


def make_client(args):
    from distributed import Client, LocalCluster

    if args.scheduler:
        return Client(args.scheduler), None
    cluster = LocalCluster(n_workers=args.workers, threads_per_worker=1, processes=True,
                           host="127.0.0.1", dashboard_address=None)
    return Client(cluster), cluster


def run_batch(args):
    """Plans every assembly; returns the summary rows by assembly name."""
    from distributed import as_completed

    os.makedirs(args.output, exist_ok=True)
    sources = expand_inputs(args.inputs)
    names = assembly_names(sources)
    previous = read_previous_summary(args.output)
    rows, todo = {}, []
    for source, name in zip(sources, names):
        row = completed_row(args.output, name, args.explode, previous, args.html)
        if row is None:
            todo.append((source, name))
        else:
            rows[name] = row
    write_summary(args.output, rows)
    print(f"velmora: {len(sources)} assemblies, {len(rows)} already complete, {len(todo)} to plan",
          file=sys.stderr)
    progress = ProgressBar(len(sources))
    for row in rows.values():
        progress.advance(row)
    if todo:
        client, cluster = make_client(args)
        try:
            # Sources go as given, so reports name the inputs as a run of the tool would.
            futures = [client.submit(plan_assembly, source, os.path.abspath(args.output), name,
                                     args.threads_per_task, args.explode, args.html,
                                     key=f"velmora-{name}-{i}", pure=False, retries=2)
                       for i, (source, name) in enumerate(todo)]
            for future in as_completed(futures):
                row = future.result()
                rows[row["assembly"]] = row
                write_summary(args.output, rows)
                progress.advance(row)
        finally:
            client.close()
            if cluster is not None:
                cluster.close()
    progress.finish()
    return rows


def parse_args(argv):
    parser = argparse.ArgumentParser(prog="python3 -m velmora.batch", description=__doc__.split("\n\n")[0])
    parser.add_argument("inputs", nargs="+", metavar="INPUT",
                        help="an assembly folder or file, or a .txt manifest of them")
    parser.add_argument("-o", "--output", required=True, metavar="OUTDIR", help="folder for reports and summary")
    parser.add_argument("--scheduler", metavar="ADDRESS", help="an existing Dask scheduler (tcp://host:8786)")
    parser.add_argument("--workers", type=int, default=2, metavar="N",
                        help="worker processes of the local cluster (default 2)")
    parser.add_argument("--threads-per-task", type=int, default=1, metavar="K",
                        help="planner threads per assembly (default 1)")
    parser.add_argument("--explode", action="store_true", help="also write each exploded view (.glb) and its report")
    parser.add_argument("--html", action="store_true",
                        help="with --explode, also write each exploded view as a self-contained HTML page")
    args = parser.parse_args(argv)
    if args.html and not args.explode:
        parser.error("--html needs --explode")
    if args.workers < 1 or not 1 <= args.threads_per_task <= 256:
        parser.error("--workers must be at least 1 and --threads-per-task between 1 and 256")
    return args


def main(argv=None):
    args = parse_args(sys.argv[1:] if argv is None else argv)
    if args.html and not viewer_built_in:
        print("velmora: error: built without the viewer", file=sys.stderr)
        return 3
    try:
        rows = run_batch(args)
    except OSError as error:  # the output folder or a manifest cannot be used
        print(f"velmora: error: {error}", file=sys.stderr)
        return 3
    failed = [row for row in rows.values() if row["status"] != "ok"]
    for row in failed:
        print(f"velmora: error: {row['assembly']}: {row['error']}", file=sys.stderr)
    return 3 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
