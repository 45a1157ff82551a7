"""One assembly of a batch, run in a process of its own.

``python3 -m velmora._job INPUT OUTDIR NAME THREADS EXPLODE HTML`` plans INPUT,
writes ``NAME.json`` (the command-line tool's ``plan`` report) and, with
EXPLODE ``1``, ``NAME.glb`` and ``NAME.explode.json`` (with HTML ``1`` also
the viewer page ``NAME.html``, as ``velmora explode --html`` writes it) first, each through a
temporary file renamed into place, so an output that exists is complete.
The plan report is written last: its presence marks the assembly done.
On success it prints one JSON line (parts, contacts, splits); on bad input
it prints the message on standard error and exits with status 3, as the
command-line tool does.
"""

import json
import os
import sys
import tempfile

import velmora


def write_atomically(path, write):
    """Calls ``write(temporary_path)`` then renames it to ``path``."""
    directory = os.path.dirname(path) or "."
    handle, temporary = tempfile.mkstemp(dir=directory, prefix=".velmora-", suffix=".part")
    os.close(handle)
    try:
        write(temporary)
        os.replace(temporary, path)
    except BaseException:
        if os.path.exists(temporary):
            os.unlink(temporary)
        raise


def write_text(path, text):
    def write(temporary):
        with open(temporary, "w", encoding="utf-8") as out:
            out.write(text)

    write_atomically(path, write)


def count_splits(report):
    return sum(1 for node in report["hierarchy"]["nodes"] if node["split"] is not None)


def run(source, outdir, name, threads, explode, html=False):
    plan = velmora.load(source).plan(threads=threads)
    text = plan.to_json()
    report = json.loads(text)
    if explode:
        view = plan.explode()
        view.save_glb(os.path.join(outdir, name + ".glb"))  # appears only when complete
        write_text(os.path.join(outdir, name + ".explode.json"), view.to_json())
        if html:
            view.save_html(os.path.join(outdir, name + ".html"))  # appears only when complete
    write_text(os.path.join(outdir, name + ".json"), text)
    return {"parts": len(report["parts"]), "contacts": len(report["contacts"]), "splits": count_splits(report)}


def main(argv):
    source, outdir, name, threads, explode, html = argv
    try:
        row = run(source, outdir, name, int(threads), explode == "1", html == "1")
    except (ValueError, OSError) as error:
        print(f"velmora: error: {error}", file=sys.stderr)
        return 3
    print(json.dumps(row))
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
