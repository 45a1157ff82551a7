#!/usr/bin/python3
"""Mutation testing of the library and app sources against the test suite.

Finds simple mutation sites in the C++ sources, draws a fixed seeded sample
of them (kept in a list file so the same sample can be run again), and runs
each mutant in a scratch copy of the tree with its own build folder: apply,
rebuild what the mutated file feeds, run the tests that cover it, restore.
A mutant is killed when a test fails, crashes or runs out of time, survives
when every test passes, and is not counted when it does not compile.

Sub-commands: sites, sample, run, summary, compare, lines (see --help).
Standard library only; runs under Debian's /usr/bin/python3.
"""

import argparse
import collections
import concurrent.futures
import datetime
import fcntl
import hashlib
import json
import math
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import threading
import time
from dataclasses import dataclass
from pathlib import Path

REPO = Path(__file__).resolve().parents[2]
SOURCE_DIRS = ("src", "platform/src", "app/src")
HEADER_DIRS = ("include", "platform/include", "app/include")
CPP_SUFFIXES = (".cpp", ".h")
SAMPLE_COLUMNS = ("id", "subsystem", "file", "line", "operator", "original", "replacement")
RESULT_COLUMNS = ("id", "subsystem", "file", "line", "operator", "status", "detail",
                  "build_s", "test_s", "tests", "finished")
COUNTED = ("killed", "survived")
RUNNING = set()  # process groups of the commands running now
RUNNING_LOCK = threading.Lock()
STOPPING = threading.Event()

# ---------------------------------------------------------------------------
# Reading C++: comments, literals and preprocessor lines are blanked out so
# that the site patterns only ever see code.


def mask_code(text):
    """Returns text with comments, string and character literals and
    preprocessor lines replaced by spaces; line breaks stay in place, so
    line and column numbers are those of the original."""
    out = list(text)
    i, n = 0, len(text)
    line_start = True

    def blank(a, b):
        for k in range(a, b):
            if out[k] != "\n":
                out[k] = " "

    while i < n:
        c = text[i]
        if line_start and c == "#":
            j = i
            while j < n and not (text[j] == "\n" and text[j - 1] != "\\"):
                j += 1
            blank(i, j)
            i = j
            continue
        if c == "\n":
            line_start = True
            i += 1
            continue
        if not c.isspace():
            line_start = False
        if text.startswith("//", i):
            j = text.find("\n", i)
            j = n if j < 0 else j
            blank(i, j)
            i = j
        elif text.startswith("/*", i):
            j = text.find("*/", i + 2)
            j = n if j < 0 else j + 2
            blank(i, j)
            i = j
        elif c == "R" and text.startswith('R"', i) and (i == 0 or not (text[i - 1].isalnum() or text[i - 1] == "_")):
            open_paren = text.find("(", i + 2)
            delimiter = ")" + text[i + 2:open_paren] + '"'
            j = text.find(delimiter, open_paren)
            j = n if j < 0 else j + len(delimiter)
            blank(i + 1, j)
            i = j
        elif c in "\"'" and not (c == "'" and i > 0 and text[i - 1].isalnum()):
            j = i + 1
            while j < n and text[j] != c and text[j] != "\n":
                j += 2 if text[j] == "\\" else 1
            blank(i + 1, min(j, n))
            i = j + 1
        else:
            i += 1
    return "".join(out)


FUNCTION_HEAD = re.compile(
    r"\)\s*(?:const|noexcept(?:\([^)]*\))?|override|final|mutable|&|&&|\s)*"
    r"(?:->\s*[\w:<>,\s*&]+)?$")
CONSTRUCTOR_HEAD = re.compile(r"\)\s*:(?!:)")


def classify_brace(head, in_function):
    """What a '{' opens, from the code since the previous ';', '{' or '}':
    'block' inside a function, else 'namespace', 'class', 'function' or
    'init' (a braced initialiser or anything unrecognised)."""
    if in_function:
        return "block"
    h = " ".join(head.split())
    if re.search(r'\bnamespace\b|\bextern\s*"[^"]*"$', h):
        return "namespace"
    if FUNCTION_HEAD.search(h) and "=" not in re.sub(r"operator\s*\S+|=\s*(default|delete)", "", h.split("(")[0]):
        return "function"
    if CONSTRUCTOR_HEAD.search(h) and h.endswith(("}", ")")):
        return "function"
    if re.search(r"\b(class|struct|union|enum)\b", h) and "(" not in h and "=" not in h:
        return "class"
    return "init"


@dataclass
class Scope:
    kind: str
    in_function: bool
    head: str


def scan_scopes(masked):
    """For every line: whether it lies in a function body, and the function
    bodies' opening braces as (line index, column, head text)."""
    lines_in_function = []
    bodies = []
    stack = []
    head = []
    for row, line in enumerate(masked.split("\n")):
        lines_in_function.append(any(s.in_function for s in stack))
        for col, c in enumerate(line):
            if c == "{":
                in_function = any(s.in_function for s in stack)
                kind = classify_brace("".join(head), in_function)
                if kind == "function":
                    bodies.append((row, col, "".join(head)))
                stack.append(Scope(kind, in_function or kind == "function", "".join(head)))
                head = []
            elif c == "}":
                closed = stack.pop() if stack else None
                # A braced initialiser inside a declaration continues it.
                head = list(closed.head) + ["{}"] if closed and closed.kind == "init" else []
            elif c == ";":
                head = []
            else:
                head.append(c)
        head.append(" ")
    return lines_in_function, bodies


# ---------------------------------------------------------------------------
# Mutation sites. A site is one edit of one line: the whole original line and
# the whole mutated line, so a list of sites reads as a diff and finds its
# line again when code above it moves.

@dataclass
class Site:
    subsystem: str
    file: str
    line: int  # 1-based
    operator: str
    original: str  # the line, without its indentation and line break
    replacement: str


SKIPPED_LINE = re.compile(r"^\s*(static_assert|template\b|using\b|typedef\b|assert\s*\(|#)")
COMPARISON = re.compile(r"(?<=\s)(<=|>=|==|!=|<|>)(?=\s)")
COMPARISON_FLIP = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
ARITHMETIC = re.compile(r"(?<=[\w)\]] )([+-])(?= )")
COMPOUND = re.compile(r"(?<=\s)(\+=|-=)(?=\s)")
NUMBER = re.compile(r"(?<![\w.])(\d+\.\d*(?:[eE][+-]?\d+)?|\.\d+(?:[eE][+-]?\d+)?|\d+[eE][+-]?\d+|\d+)"
                    r"([fFlLuU]*)(?![\w.'])")
ARRAY_DECLARATION = re.compile(r"^[\w:<>, ]*\s\w+\[$")
STATEMENT_KEYWORDS = re.compile(
    r"^(return|throw|break|continue|goto|case|default|if|for|while|do|switch|else|delete|"
    r"co_\w+|using|typedef|namespace|template|static_assert|assert|friend|public|private|protected)\b")
CALL_STATEMENT = re.compile(r"^(?:\w[\w:]*)(?:(?:\.|->)\w+|\[[^\]]*\]|\([^()]*\))*\(.*\);$")
ASSIGN_STATEMENT = re.compile(
    r"^\*?\w[\w:]*(?:(?:\.|->)\w+|\[[^\]]*\]|\([^()]*\))*\s*(?:[-+*/%&|^]|<<|>>)?=(?!=).*;$")
STEP_STATEMENT = re.compile(r"^(?:(?:\+\+|--)\*?[\w.\->\[\]]+|\*?[\w.\->\[\]]+(?:\+\+|--));$")
SPECIFIERS = re.compile(r'^(?:(?:static|inline|constexpr|virtual|explicit|friend|extern\s*"[^"]*"|\[\[[^\]]*\]\])\s+)*')


def format_float(value, suffix):
    text = repr(value)
    if "e" not in text and "." not in text:
        text += ".0"
    return text + suffix


def changed_constant(literal, suffix, subscript):
    """An integer one up (one down for a subscript, to stay in bounds), a
    floating constant half as large again (zero becomes one)."""
    if re.fullmatch(r"\d+", literal):
        value = int(literal)
        return str(value - 1 if subscript and value else value + 1) + suffix
    value = float(literal)
    return format_float(value * 1.5 if value else 1.0, suffix)


def replace_at(line, start, end, text):
    return line[:start] + text + line[end:]


def token_sites(raw, code, in_function):
    """(operator, mutated line) for each operator token of one line."""
    if SKIPPED_LINE.match(code) or re.search(r"\boperator\b|\btemplate\s*<", code):
        return
    for m in COMPARISON.finditer(code):
        yield "comparison", replace_at(raw, m.start(), m.end(), COMPARISON_FLIP[m.group(1)])
    for m in ARITHMETIC.finditer(code if '"' not in code else ""):  # no string concatenation
        yield "arithmetic", replace_at(raw, m.start(), m.end(), "-" if m.group(1) == "+" else "+")
    for m in COMPOUND.finditer(code):
        yield "arithmetic", replace_at(raw, m.start(), m.end(), "-=" if m.group(1) == "+=" else "+=")
    if not in_function and "=" not in code:
        return
    for m in NUMBER.finditer(code):
        before, after = code[:m.start()].rstrip(), code[m.end():].lstrip()
        if code[m.start() - 1:m.start()] == "<" or code[m.end():m.end() + 1] == ">":
            continue  # a template argument
        subscript = before.endswith("[") and after.startswith("]")
        if subscript and ARRAY_DECLARATION.match(before.strip()):
            continue  # an array's size
        yield "constant", replace_at(raw, m.start(), m.end(), changed_constant(m.group(1), m.group(2), subscript))


def previous_code_line(masked_lines, row):
    """The last line with code before `row`, without trailing spaces."""
    for r in range(row - 1, -1, -1):
        stripped = masked_lines[r].rstrip()
        if stripped:
            return stripped
    return ""


def is_dropped_statement(code, previous):
    """A whole expression statement on one line: a call, an assignment or an
    increment that starts on this line and is not a declaration."""
    stripped = code.strip()
    if not stripped.endswith(";") or STATEMENT_KEYWORDS.match(stripped):
        return False
    if stripped.count("(") != stripped.count(")") or stripped.count("{") != stripped.count("}"):
        return False
    if not (previous.endswith((";", "{", "}", ")", ":")) or re.search(r"\b(else|do)$", previous)):
        return False
    if previous.endswith("::"):
        return False
    return bool(CALL_STATEMENT.match(stripped) or ASSIGN_STATEMENT.match(stripped) or STEP_STATEMENT.match(stripped))


def early_return(head):
    """The statement that leaves a function at once, from its head."""
    h = " ".join(head.split())
    h = re.sub(r"^template\s*<.*?>\s*", "", h)
    h = SPECIFIERS.sub("", h)
    name = re.search(r"(~?[\w:]+)\s*\(", h)
    if re.match(r"void\s", h) or not name:
        return "return;"
    qualified = name.group(1)
    parts = qualified.split("::")
    if qualified == h[:len(qualified)] or (len(parts) > 1 and parts[-1].lstrip("~") == parts[-2]):
        return "return;"  # a constructor or destructor
    return "return {};"


def find_sites(text, relative_file, subsystem):
    masked = mask_code(text)
    raw_lines = text.split("\n")
    masked_lines = masked.split("\n")
    in_function, bodies = scan_scopes(masked)
    sites = []

    def add(row, operator, mutated):
        original = raw_lines[row].strip()
        sites.append(Site(subsystem, relative_file, row + 1, operator, original, mutated.strip()))

    for row, (raw, code) in enumerate(zip(raw_lines, masked_lines)):
        if not code.strip():
            continue
        for operator, mutated in token_sites(raw, code, in_function[row]):
            add(row, operator, mutated)
        if in_function[row] and is_dropped_statement(code, previous_code_line(masked_lines, row)):
            add(row, "drop-statement", ";")
    for row, col, head in bodies:
        if re.search(r"\boperator\b", head) or not raw_lines[row].strip():
            continue
        add(row, "return-early", replace_at(raw_lines[row], col + 1, col + 1, " " + early_return(head)))
    return sites


# ---------------------------------------------------------------------------
# Which files are mutated, which subsystem each belongs to, which tests
# cover it.

def subsystem_of(relative, header_owner):
    parts = Path(relative).parts
    if parts[0] == "src":
        return parts[1]
    if parts[0] in ("platform", "app"):
        return parts[0]
    return header_owner.get(relative, "frame")


def source_files(repo, with_headers):
    roots = SOURCE_DIRS + (HEADER_DIRS if with_headers else ())
    files = []
    for root in roots:
        for path in sorted((repo / root).rglob("*")):
            if path.suffix in CPP_SUFFIXES and path.is_file():
                files.append(path.relative_to(repo).as_posix())
    return files


def header_owners(repo):
    """The library subsystem of each header under include/: the tests/ folder
    with a test program of the same name, else the folder of the source file
    of the same name, else the folder whose sources include it most often."""
    tested = {p.stem[:-len("Test")]: p.parent.name for p in (repo / "tests").glob("*/*Test.cpp")}
    stems = {p.stem: p.parent.name for p in (repo / "src").glob("*/*.cpp")}
    owners = {}
    for header in (repo / "include").rglob("*.h"):
        relative = header.relative_to(repo).as_posix()
        name = re.sub("^kx", "", header.stem)
        if name in tested:
            owners[relative] = tested[name]
        elif header.stem in stems:
            owners[relative] = stems[header.stem]
        else:
            needle = re.compile(r'#include\s*[<"]([\w/]*/)?' + re.escape(header.name) + '[>"]')
            counts = collections.Counter(source.parent.name for source in (repo / "src").glob("*/*")
                                         if needle.search(source.read_text(errors="replace")))
            if counts:
                owners[relative] = counts.most_common(1)[0][0]
    return owners


def all_sites(repo, with_headers):
    owners = header_owners(repo)
    sites = []
    for relative in source_files(repo, with_headers):
        text = (repo / relative).read_text(errors="replace")
        sites.extend(find_sites(text, relative, subsystem_of(relative, owners)))
    return sites


def stratified_sample(sites, count, seed):
    """`count` sites drawn with a seeded generator, spread over subsystems:
    every subsystem first gets an equal share of half the sample (or all its
    sites when it has fewer), the rest goes by number of sites."""
    by_subsystem = collections.defaultdict(list)
    for site in sites:
        by_subsystem[site.subsystem].append(site)
    names = sorted(by_subsystem)
    floor = math.ceil(count / len(names) / 2)
    quota = {name: min(len(by_subsystem[name]), floor) for name in names}
    left = count - sum(quota.values())
    spare = {name: len(by_subsystem[name]) - quota[name] for name in names}
    while left > 0 and any(spare.values()):
        total = sum(spare.values())
        shares = {name: min(spare[name], left * spare[name] // total) for name in names}
        if not any(shares.values()):
            shares = {max(names, key=lambda n: spare[n]): 1}
        for name, share in shares.items():
            quota[name] += share
            spare[name] -= share
            left -= share
    rng = random.Random(seed)
    chosen = []
    for name in names:
        chosen.extend(sorted(rng.sample(by_subsystem[name], quota[name]),
                             key=lambda s: (s.file, s.line, s.operator, s.replacement)))
    return chosen


# ---------------------------------------------------------------------------
# List files: tab-separated, '#' comment lines, a header row.

def escape(text):
    return text.replace("\\", "\\\\").replace("\t", "\\t")


def unescape(text):
    return re.sub(r"\\(.)", lambda m: "\t" if m.group(1) == "t" else m.group(1), text)


def read_table(path):
    rows, comments = [], []
    columns = None
    for line in Path(path).read_text().splitlines():
        if line.startswith("#"):
            comments.append(line[1:].strip())
        elif columns is None:
            columns = line.split("\t")
        elif line:
            rows.append(dict(zip(columns, (unescape(v) for v in line.split("\t")))))
    return comments, rows


def write_sample(path, sites, comment):
    with open(path, "w") as out:
        out.write(f"# {comment}\n")
        out.write("\t".join(SAMPLE_COLUMNS) + "\n")
        for number, site in enumerate(sites, 1):
            values = (f"m{number:03d}", site.subsystem, site.file, str(site.line), site.operator,
                      site.original, site.replacement)
            out.write("\t".join(escape(v) for v in values) + "\n")


# ---------------------------------------------------------------------------
# The scratch tree: a copy of the checkout's files (committed and not yet
# committed, ignored ones left out) with its own build folder; the corpus is
# reached through a link beside it, as from the checkout.

def checkout_files(repo):
    listing = subprocess.run(["git", "-C", str(repo), "ls-files", "-z", "--cached", "--others",
                              "--exclude-standard"], check=True, capture_output=True).stdout
    return sorted({f for f in listing.decode().split("\0") if f and (repo / f).is_file()})


def sync_tree(repo, tree):
    """Makes `tree` hold the checkout's files, rewriting only those that
    differ so that the build folder stays incremental; returns a digest of
    the files."""
    wanted = checkout_files(repo)
    digest = hashlib.sha256()
    for relative in wanted:
        source, target = repo / relative, tree / relative
        data = source.read_bytes()
        if not relative.startswith("tools/mutate/"):  # the tool's own files do not change a test's outcome
            digest.update(relative.encode() + b"\0" + data)
        if not target.is_file() or target.read_bytes() != data:
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(data)
            shutil.copymode(source, target)
    keep = set(wanted)
    for path in sorted(tree.rglob("*"), reverse=True):
        relative = path.relative_to(tree).as_posix()
        if relative.startswith("build/") or relative == "build":
            continue
        if path.is_file() and relative not in keep:
            path.unlink()
        elif path.is_dir() and not any(path.iterdir()):
            path.rmdir()
    shared = repo.parent / "shared"
    link = tree.parent / "shared"
    if shared.is_dir() and not link.exists():
        link.symlink_to(shared.resolve())
    return digest.hexdigest()


class Worker:
    """One scratch tree and build folder; mutants run in it one at a time."""

    def __init__(self, root, args):
        self.root = root
        self.tree = root / "tree"
        self.build = self.tree / "build" / "mutate-release"
        self.logs = root / "logs"
        self.args = args
        self.programs = {}  # test folder -> baseline seconds
        self.baseline_failures = {}  # test folder -> failing gtest names
        self.ctest_baseline = 0.0
        self.ctest_failures = []

    def log(self, message):
        print(f"[{self.root.name}] {message}", flush=True)

    def prepare(self, repo):
        self.tree.mkdir(parents=True, exist_ok=True)
        self.lock = open(self.root / "lock", "w")
        try:
            fcntl.flock(self.lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise SystemExit(f"mutate: error: {self.root} is in use by another run")
        self.logs.mkdir(parents=True, exist_ok=True)
        tree_digest = sync_tree(repo, self.tree)
        if not (self.build / "build.ninja").exists():
            env = dict(os.environ, CMAKE_CXX_COMPILER_LAUNCHER=os.environ.get("CMAKE_CXX_COMPILER_LAUNCHER", "ccache"))
            # Release flags as in the release preset, so ccache shares the
            # checkout's objects; executables do not relink when only a
            # shared library they use changed.
            subprocess.run(["cmake", "-S", str(self.tree), "-B", str(self.build), "-G", "Ninja",
                            "-DCMAKE_BUILD_TYPE=Release", "-DVELMORA_BUILD_BENCH=OFF",
                            "-DVELMORA_BUILD_EXAMPLES=OFF", "-DCMAKE_LINK_DEPENDS_NO_SHARED=ON"],
                           check=True, env=env, stdout=subprocess.DEVNULL)
        folders = sorted(p.name for p in (self.tree / "tests").iterdir()
                         if p.is_dir() and any(p.glob("*.cpp")) and p.name not in ("support", "consumer"))
        unknown = sorted(set(self.args.extra_tests) - set(folders))
        if unknown:
            raise SystemExit(f"mutate: error: no test program for {', '.join(unknown)} (there are: {', '.join(folders)})")
        self.log("building " + ("everything" if self.args.all_tests else "the test programs"))
        ok, seconds, output = self.build_targets(None if self.args.all_tests else
                                                 [f"velmora_tests_{f}" for f in folders] + ["velmora_cli"],
                                                 timeout=None)
        if not ok:
            raise SystemExit(f"mutate: error: the unmutated tree does not build:\n{output[-3000:]}")
        self.log(f"built in {seconds:.0f} s")
        fingerprint = self.fingerprint(tree_digest)
        saved = self.root / "baseline.json"
        state = json.loads(saved.read_text()) if saved.exists() else {}
        if state.get("fingerprint") != fingerprint or (self.args.all_tests and not state.get("all_tests")):
            self.log("baseline test run")
            state = self.baseline(folders)
            state["fingerprint"] = fingerprint
            saved.write_text(json.dumps(state, indent=1))
        self.programs, self.baseline_failures = state["programs"], state["baseline_failures"]
        self.ctest_baseline, self.ctest_failures = state["ctest_baseline"], state["ctest_failures"]
        for folder, failures in self.baseline_failures.items():
            if failures:
                self.log(f"baseline: {folder} fails {failures}; those are left out")
        if self.ctest_failures:
            self.log(f"baseline: ctest fails {self.ctest_failures}; those are left out")
        self.log("baseline seconds: " + ", ".join(f"{k} {v:.1f}" for k, v in self.programs.items())
                 + (f", other ctest tests {self.ctest_baseline:.1f}" if self.args.all_tests else ""))

    def fingerprint(self, tree_digest):
        """What the baseline depends on: the sources and the built libraries
        and programs (linking the same objects gives the same bytes)."""
        digest = hashlib.sha256(tree_digest.encode())
        for path in sorted(self.build.rglob("*")):
            if path.is_file() and (".so" in path.name or path.name.startswith("velmora")) and os.access(path, os.X_OK):
                digest.update(path.relative_to(self.build).as_posix().encode() + path.read_bytes())
        return digest.hexdigest()

    def baseline(self, folders):
        """Time and failures of the unmutated tests."""
        state = dict(programs={}, baseline_failures={}, ctest_baseline=0.0, ctest_failures=[],
                     all_tests=self.args.all_tests)
        for folder in folders:
            start = time.monotonic()
            _, output = run_bounded([str(self.build / "tests" / f"velmora_tests_{folder}")],
                                    self.build / "tests", None)
            state["programs"][folder] = time.monotonic() - start
            state["baseline_failures"][folder] = sorted(set(
                re.findall(r"^\[  FAILED  \] (\S+\.\S+?)(?:,|$| )", output, re.M)))
        self.programs = state["programs"]
        if self.args.all_tests:
            failed = self.build / "Testing" / "Temporary" / "LastTestsFailed.log"
            failed.unlink(missing_ok=True)
            start = time.monotonic()
            run_bounded(self.ctest_command(stop_on_failure=False), self.build, None)
            state["ctest_baseline"] = time.monotonic() - start
            state["ctest_failures"] = [l.split(":", 1)[1] for l in failed.read_text().split()] if failed.exists() else []
        return state

    def ctest_command(self, stop_on_failure=True):
        """ctest for the tests that are not in the GoogleTest programs."""
        gtest_labels = "|".join(self.programs)
        command = ["ctest", "--test-dir", str(self.build), "-LE", f"^({gtest_labels})$"]
        command += ["--stop-on-failure"] if stop_on_failure else []
        if self.ctest_failures:
            command += ["-E", "^(" + "|".join(re.escape(t) for t in self.ctest_failures) + ")$"]
        return command

    def build_targets(self, targets, timeout):
        command = ["ninja", "-C", str(self.build), "-j", str(self.args.build_jobs)] + (targets or [])
        start = time.monotonic()
        code, output = run_bounded(command, self.build, timeout)
        return code == 0, time.monotonic() - start, output

    def covering_folders(self, subsystem):
        chosen = [subsystem] if subsystem in self.programs else []
        extra = list(self.programs) if self.args.all_tests else self.args.extra_tests
        return chosen + [f for f in extra if f not in chosen and f in self.programs]

    def run_tests(self, subsystem):
        """('killed' or 'survived', detail) for the covering tests, stopping
        at the first failure."""
        folders = self.covering_folders(subsystem)
        budget = self.args.timeout or 3 * (sum(self.programs[f] for f in folders) + self.ctest_baseline) + 30
        deadline = time.monotonic() + budget
        for folder in folders:
            command = [str(self.build / "tests" / f"velmora_tests_{folder}"), "--gtest_fail_fast", "--gtest_brief=1"]
            if self.baseline_failures[folder]:
                command.append("--gtest_filter=-" + ":".join(self.baseline_failures[folder]))
            code, output = run_bounded(command, self.build / "tests", deadline - time.monotonic())
            if code != 0:
                return "killed", f"{folder}: {failure_of(code, output)}", output
        if self.args.all_tests:
            code, output = run_bounded(self.ctest_command() + ["--timeout", str(int(budget))],
                                       self.build, deadline - time.monotonic())
            if code != 0:
                failed = re.findall(r"\d+ - (\S+) \(", output)
                return "killed", "ctest: " + (failed[0] if failed else failure_of(code, output)), output
        return "survived", "", ""

    def run_mutant(self, row):
        path = self.tree / row["file"]
        original = path.read_bytes() if path.is_file() else b""
        lines = original.decode(errors="surrogateescape").split("\n")
        line = locate(lines, int(row["line"]), row["original"])
        if line is None:
            return dict(status="stale", detail="line not found", build_s=0.0, test_s=0.0)
        old = lines[line - 1]
        indent = old[:len(old) - len(old.lstrip())]
        lines[line - 1] = indent + row["replacement"] + ("\r" if old.endswith("\r") else "")
        try:
            path.write_bytes("\n".join(lines).encode(errors="surrogateescape"))
            targets = None if self.args.all_tests else \
                [f"velmora_tests_{f}" for f in self.covering_folders(row["subsystem"])] + ["velmora_cli"]
            ok, build_s, output = self.build_targets(targets, self.args.build_timeout)
            if not ok:
                (self.logs / f"{row['id']}.log").write_text(output)
                return dict(status="compile-error", detail=first_error(output), build_s=build_s, test_s=0.0)
            start = time.monotonic()
            status, detail, output = self.run_tests(row["subsystem"])
            if output:
                (self.logs / f"{row['id']}.log").write_text(output)
            return dict(status=status, detail=detail if line == int(row["line"]) else f"{detail} (at line {line})",
                        build_s=build_s, test_s=time.monotonic() - start)
        finally:
            path.write_bytes(original)


def locate(lines, line, original):
    """The line (1-based) holding `original`: the recorded one, else the
    nearest line with that text when the file has moved under the sample."""
    if 0 < line <= len(lines) and lines[line - 1].strip() == original:
        return line
    if len(original) < 8:
        return None
    matches = [i + 1 for i, l in enumerate(lines) if l.strip() == original]
    return min(matches, key=lambda m: abs(m - line)) if matches else None


def run_bounded(command, cwd, timeout):
    """(exit status, output) of a command run in its own process group; on
    timeout the group is killed and the status is 'timeout'."""
    if timeout is not None and timeout <= 0:
        return "timeout", ""
    process = subprocess.Popen(command, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                               start_new_session=True)
    with RUNNING_LOCK:
        RUNNING.add(process.pid)
    try:
        output, _ = process.communicate(timeout=timeout)
        return process.returncode, output.decode(errors="replace")
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        output, _ = process.communicate()
        return "timeout", output.decode(errors="replace")
    except BaseException:
        os.killpg(process.pid, signal.SIGKILL)
        process.wait()
        raise
    finally:
        with RUNNING_LOCK:
            RUNNING.discard(process.pid)


def stop_running():
    """Kills the process groups of every command still running."""
    STOPPING.set()
    with RUNNING_LOCK:
        for pid in RUNNING:
            try:
                os.killpg(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass


def failure_of(code, output):
    if code == "timeout":
        return "timeout"
    if isinstance(code, int) and code < 0:
        return f"crash ({signal.Signals(-code).name})"
    failed = re.search(r"^\[  FAILED  \] (\S+)", output, re.M)
    return failed.group(1) if failed else f"exit {code}"


def first_error(output):
    error = re.search(r"error: (.*)", output)
    return error.group(1)[:120] if error else "build failed"


# ---------------------------------------------------------------------------
# Sub-commands.

def command_sites(args):
    sites = all_sites(REPO, args.headers)
    table = collections.Counter((s.subsystem, s.operator) for s in sites)
    operators = sorted({s.operator for s in sites})
    print("subsystem\t" + "\t".join(operators) + "\ttotal")
    for subsystem in sorted({s.subsystem for s in sites}):
        counts = [table[(subsystem, o)] for o in operators]
        print(f"{subsystem}\t" + "\t".join(map(str, counts)) + f"\t{sum(counts)}")
    print(f"total\t" + "\t".join(str(sum(table[(s, o)] for s in {x.subsystem for x in sites}))
                                 for o in operators) + f"\t{len(sites)}")
    if args.list:
        for s in sites:
            print(f"{s.file}:{s.line}\t{s.operator}\t{s.original}\t=>\t{s.replacement}")


def command_sample(args):
    sites = all_sites(REPO, args.headers)
    chosen = stratified_sample(sites, args.count, args.seed)
    head = subprocess.run(["git", "-C", str(REPO), "rev-parse", "--short", "HEAD"],
                          capture_output=True, text=True).stdout.strip()
    write_sample(args.out, chosen, f"seed={args.seed} count={args.count} headers={'yes' if args.headers else 'no'} "
                                   f"of {len(sites)} sites at {head}")
    counts = collections.Counter(s.subsystem for s in chosen)
    print(f"{len(chosen)} mutants of {len(sites)} sites written to {args.out}: "
          + ", ".join(f"{k} {v}" for k, v in sorted(counts.items())))


def tests_mode(args):
    return "all" if args.all_tests else "+".join(["mirrored"] + args.extra_tests)


def command_run(args):
    parts = [p for p in args.tests.split(",") if p]
    args.all_tests = "all" in parts
    args.extra_tests = [p for p in parts if p not in ("all", "mirrored")]
    args.build_jobs = args.build_jobs or max(1, (os.cpu_count() or 2) // args.jobs)
    mode = tests_mode(args)
    _, sample = read_table(args.sample)
    results = Path(args.results)
    done = set()
    if results.exists():
        comments, rows = read_table(results)
        if rows and rows[0]["tests"] != mode:
            raise SystemExit(f"mutate: error: {results} holds results of --tests {rows[0]['tests']}, not {mode}")
        done = {r["id"] for r in rows}
    else:
        results.parent.mkdir(parents=True, exist_ok=True)
        results.write_text(f"# sample {Path(args.sample).name}, tests {mode}\n" + "\t".join(RESULT_COLUMNS) + "\n")
    pending = [r for r in sample if r["id"] not in done
               and (not args.only or r["id"] in args.only.split(","))
               and (not args.subsystems or r["subsystem"] in args.subsystems.split(","))]
    pending = pending[:args.limit] if args.limit else pending
    print(f"{len(pending)} mutants to run ({len(done)} already in {results})", flush=True)
    if not pending:
        return
    work = Path(args.work)
    workers = [Worker(work / f"w{k}", args) for k in range(min(args.jobs, len(pending)))]
    for worker in workers:
        worker.prepare(REPO)
    queue = collections.deque(pending)
    lock = threading.Lock()

    def drain(worker):
        while True:
            with lock:
                if not queue:
                    return
                row = queue.popleft()
            outcome = worker.run_mutant(row)
            if STOPPING.is_set():
                return  # the outcome of an interrupted mutant is not kept
            values = [row["id"], row["subsystem"], row["file"], row["line"], row["operator"], outcome["status"],
                      outcome["detail"], f"{outcome['build_s']:.1f}", f"{outcome['test_s']:.1f}", mode,
                      datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ")]
            with lock:
                with open(results, "a") as out:
                    out.write("\t".join(escape(v) for v in values) + "\n")
                worker.log(f"{row['id']} {row['file']}:{row['line']} {row['operator']}: {outcome['status']} "
                           f"{outcome['detail']} (build {outcome['build_s']:.1f} s, tests {outcome['test_s']:.1f} s)")

    with concurrent.futures.ThreadPoolExecutor(len(workers)) as pool:
        futures = [pool.submit(drain, w) for w in workers]
        try:
            for future in futures:
                future.result()
        except KeyboardInterrupt:
            # The workers restore their mutated files as their commands end.
            with lock:
                queue.clear()
            stop_running()
            concurrent.futures.wait(futures)
            print(f"mutate: interrupted; the mutants done so far are in {results}", file=sys.stderr)
            return 130
    print_summary([results], args.sample)


def print_summary(paths, sample=None):
    for path in paths:
        _, rows = read_table(path)
        print(f"{path}: {len(rows)} mutants")
        groups = collections.defaultdict(list)
        for row in rows:
            groups[row["subsystem"]].append(row)
        print(f"{'subsystem':<12}{'mutants':>8}{'killed':>8}{'survived':>9}{'no-build':>9}{'stale':>6}"
              f"{'score':>7}{'build s':>9}{'test s':>8}")
        for name in sorted(groups) + ["total"]:
            group = rows if name == "total" else groups[name]
            count = collections.Counter(r["status"] for r in group)
            counted = count["killed"] + count["survived"]
            built = [r for r in group if r["status"] in COUNTED]
            score = f"{100 * count['killed'] / counted:.0f}%" if counted else "-"
            mean_build = sum(float(r["build_s"]) for r in group) / len(group) if group else 0
            mean_test = sum(float(r["test_s"]) for r in built) / len(built) if built else 0
            print(f"{name:<12}{len(group):>8}{count['killed']:>8}{count['survived']:>9}{count['compile-error']:>9}"
                  f"{count['stale']:>6}{score:>7}{mean_build:>9.1f}{mean_test:>8.1f}")
        if rows and sample:
            print(estimate_line(rows, sample))


def estimate_line(rows, sample_path):
    """The projected time of a whole sample from the mean cost per mutant of
    each subsystem in these results (of all of them where one has none)."""
    _, sample = read_table(sample_path)
    cost = collections.defaultdict(list)
    for row in rows:
        cost[row["subsystem"]].append(float(row["build_s"]) + float(row["test_s"]))
    overall = sum(map(sum, cost.values())) / len(rows)
    seconds = sum(sum(cost[r["subsystem"]]) / len(cost[r["subsystem"]]) if cost[r["subsystem"]] else overall
                  for r in sample)
    return (f"mean {overall:.1f} s a mutant; the {len(sample)} mutants of {Path(sample_path).name} "
            f"would take about {seconds / 3600:.1f} h on one worker")


def command_summary(args):
    print_summary(args.results, args.sample)


def command_compare(args):
    _, old = read_table(args.old)
    _, new = read_table(args.new)
    old_status = {r["id"]: r for r in old}
    new_status = {r["id"]: r for r in new}
    common = sorted(set(old_status) & set(new_status))
    killed_old = {i for i in common if old_status[i]["status"] == "killed"}
    killed_new = {i for i in common if new_status[i]["status"] == "killed"}
    counted = [i for i in common if old_status[i]["status"] in COUNTED and new_status[i]["status"] in COUNTED]
    print(f"{len(common)} mutants in both; of {len(counted)} counted in both: "
          f"killed before {len(killed_old & set(counted))}, after {len(killed_new & set(counted))}")
    for label, ids in (("killed only before", killed_old - killed_new), ("killed only after", killed_new - killed_old)):
        for i in sorted(ids):
            r = old_status[i]
            print(f"{label}: {i} {r['file']}:{r['line']} {r['operator']} "
                  f"(before: {old_status[i]['status']}, after: {new_status[i]['status']})")
    return 1 if killed_old - killed_new else 0


def nonblank_lines(paths):
    total = 0
    for path in paths:
        if path.is_file() and "node_modules" not in path.parts and path.name != "package-lock.json":
            total += sum(1 for line in path.read_text(errors="replace").splitlines() if line.strip())
    return total


def command_lines(args):
    code_suffixes = {".cpp", ".h"}
    test_suffixes = {".cpp", ".h", ".py", ".mjs", ".js", ".cmake", ".txt"}
    tracked = [REPO / f for f in checkout_files(REPO)]
    print("tests (non-blank lines of .cpp .h .py .mjs .js .cmake CMakeLists.txt)")
    folders = sorted({p.relative_to(REPO).parts[1] for p in tracked
                      if p.relative_to(REPO).parts[0] == "tests" and len(p.relative_to(REPO).parts) > 2})
    total = 0
    for folder in folders:
        count = nonblank_lines(p for p in tracked if p.relative_to(REPO).parts[:2] == ("tests", folder)
                               and p.suffix in test_suffixes)
        total += count
        print(f"  tests/{folder:<14}{count:>7}")
    total += nonblank_lines(p for p in tracked if p.relative_to(REPO).parts[0] == "tests"
                            and len(p.relative_to(REPO).parts) == 2 and p.suffix in test_suffixes)
    print(f"  {'tests total':<20}{total:>7}")
    print("code (non-blank lines of .cpp .h)")
    code_total = 0
    for folder in ("src", "include", "platform", "app", "tools"):
        count = nonblank_lines(p for p in tracked if p.relative_to(REPO).parts[0] == folder
                               and p.suffix in code_suffixes)
        code_total += count
        print(f"  {folder:<20}{count:>7}")
    print(f"  {'code total':<20}{code_total:>7}")
    print(f"tests / code: {100 * total / code_total:.0f}%")


def main(argv=None):
    parser = argparse.ArgumentParser(prog="mutate.py", description=__doc__.split("\n\n")[0])
    sub = parser.add_subparsers(dest="command", required=True)
    p = sub.add_parser("sites", help="count the mutation sites per subsystem and operator")
    p.add_argument("--headers", action="store_true", help="mutate the public headers too")
    p.add_argument("--list", action="store_true", help="print every site")
    p.set_defaults(func=command_sites)
    p = sub.add_parser("sample", help="draw a seeded sample spread over the subsystems")
    p.add_argument("--seed", type=int, default=18)
    p.add_argument("--count", type=int, default=300)
    p.add_argument("--headers", action="store_true", help="mutate the public headers too")
    p.add_argument("--out", default=str(Path(__file__).parent / "sample.tsv"))
    p.set_defaults(func=command_sample)
    p = sub.add_parser("run", help="run the mutants of a sample, resuming where a results file stopped")
    p.add_argument("--sample", default=str(Path(__file__).parent / "sample.tsv"))
    p.add_argument("--results", default=str(REPO / "build" / "mutate" / "results.tsv"))
    p.add_argument("--tests", default="mirrored",
                   help="'mirrored' (the tests/ folder mirroring the mutated file), 'all' (every test of "
                        "ctest), or 'mirrored,FOLDER,…' to add test folders")
    p.add_argument("--work", default=str(REPO / "build" / "mutate"),
                   help="folder of the scratch trees and build folders")
    p.add_argument("-j", "--jobs", type=int, default=1, help="mutants run at once, each in its own tree")
    p.add_argument("--build-jobs", type=int, default=0, help="ninja -j of each worker (default: cores / jobs)")
    p.add_argument("--timeout", type=float, default=0,
                   help="seconds for the tests of one mutant (default: 3 x their unmutated time + 30)")
    p.add_argument("--build-timeout", type=float, default=1800)
    p.add_argument("--only", help="comma-separated mutant ids")
    p.add_argument("--subsystems", help="comma-separated subsystems")
    p.add_argument("--limit", type=int, default=0, help="run at most this many mutants")
    p.set_defaults(func=command_run)
    p = sub.add_parser("summary", help="kill counts per subsystem of results files")
    p.add_argument("results", nargs="+")
    p.add_argument("--sample", help="project the time of this sample from the results")
    p.set_defaults(func=command_summary)
    p = sub.add_parser("compare", help="mutants killed by one results file and not the other")
    p.add_argument("old")
    p.add_argument("new")
    p.set_defaults(func=command_compare)
    p = sub.add_parser("lines", help="non-blank lines per tests/ folder and per code folder")
    p.set_defaults(func=command_lines)
    args = parser.parse_args(argv)
    # A terminated run restores the mutated file as an interrupted one does.
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)  # `summary | head` ends quietly
    try:
        return args.func(args) or 0
    except KeyboardInterrupt:
        stop_running()
        print("mutate: interrupted", file=sys.stderr)
        return 130


if __name__ == "__main__":
    sys.exit(main())
