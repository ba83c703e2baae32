#!/usr/bin/env python3
"""Runs piglit's OpenGL ES tests directly and through velour-run, and compares.

Takes the tests that run on OpenGL ES from the installed piglit's own lists,
runs each directly and once per runtime mode, and reports every test whose
result word, as piglit itself would give it, differs from the direct one.
Differences listed in the --expected file are reported but do not fail the run.
"""

import argparse
import ast
import collections
import concurrent.futures
import functools
import gzip
import json
import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
import sysconfig
import tempfile
import threading
import time
import xml.etree.ElementTree as ET

SKIP_EXIT = 77  # what ctest is told to read as "skipped"
PACKAGE = "com.velour.loadertest"
PLATFORM = "surfaceless_egl"
GLES_RUNNERS = ("shader_runner_gles2", "shader_runner_gles3", "glslparsertest_gles2")
GLES_LIBRARIES = (b"libpiglitutil_gles1", b"libpiglitutil_gles2", b"libpiglitutil_gles3")
SEVERITY = ["notrun", "pass", "skip", "warn", "fail", "timeout", "crash"]
OUTPUT_CAP = 64 * 1024
INTERFACE_LOG = "data/local/tmp/orlo/interface_log.txt"

# argv[0] is relative to piglit's bin/, file arguments to its top folder.
Test = collections.namedtuple("Test", "name argv concurrent skip_reason")


def piglit_dir():
    arch = sysconfig.get_config_var("MULTIARCH")
    candidates = (["/usr/lib/%s/piglit" % arch] if arch else []) + ["/usr/lib/piglit"]
    found = [c for c in candidates if os.path.isfile(os.path.join(c, "bin", "shader_runner_gles2"))]
    return os.environ.get("PIGLIT_DIR") or (found or candidates)[0]


@functools.lru_cache(maxsize=None)
def links_gles(path):
    try:
        with open(path, "rb") as f:
            data = f.read()
    except OSError:
        return False
    return any(lib in data for lib in GLES_LIBRARIES)


def enumerate_tests(piglit):
    """The GLES tests of the installed piglit, in the order of its lists."""
    tests = []
    for profile in ("opengl", "shader", "glslparser"):
        path = os.path.join(piglit, "tests", profile + ".xml.gz")
        if not os.path.exists(path):
            raise SystemExit("piglit_compare: no %s: is piglit installed?" % path)
        for node in ET.parse(gzip.open(path)).getroot():
            options = {o.get("name"): o.get("value") for o in node.findall("option")}
            if "command" not in options:
                continue
            argv = ast.literal_eval(options["command"])
            kind = node.get("type")
            program = argv[0]
            concurrent = options.get("run_concurrent", "True") == "True"
            if kind in ("shader", "glsl_parser"):
                if program not in GLES_RUNNERS:
                    continue
                if kind == "shader":
                    argv = argv + ["-auto", "-fbo"]
            elif kind in ("gl", "gl_builtin"):
                if not links_gles(os.path.join(piglit, "bin", program)):
                    continue
                if kind == "gl_builtin":
                    argv = [program, os.path.join("tests", argv[1])] + argv[2:]
                else:
                    argv = argv + (["-auto", "-fbo"] if concurrent else ["-auto"])
            else:
                continue
            # Platform limits, as piglit applies them before running anything.
            skip = None
            required = ast.literal_eval(options.get("require_platforms") or "[]")
            excluded = ast.literal_eval(options.get("exclude_platforms") or "[]")
            if required and PLATFORM not in required:
                skip = "needs platform %s" % "/".join(required)
            elif PLATFORM in excluded:
                skip = "not for platform %s" % PLATFORM
            # Without piglit's top-level group, which says nothing here.
            name = node.get("name").split("@", 1)[-1]
            tests.append(Test(name, argv, concurrent, skip))
    return tests


def entries(path):
    """The numbered lines of a list file, without blank lines and # comments."""
    with open(path, encoding="utf-8") as f:
        for number, line in enumerate(f, 1):
            line = line.strip()
            if line and not line.startswith("#"):
                yield number, line


def read_expected(path):
    """'MODE TEST NAME | reason' lines: differences that do not fail the run."""
    expected = {}
    for number, line in entries(path) if path and os.path.exists(path) else ():
        m = re.match(r"^(\d+)\s+(.+?)\s*\|\s*(.*)$", line)
        if not m or not m.group(3):
            raise SystemExit("%s:%d: want 'MODE TEST NAME | reason', got: %s" %
                             (path, number, line))
        expected[(m.group(1), m.group(2))] = m.group(3)
    return expected


def interpret(returncode, output):
    """The result word piglit would give, from exit status and PIGLIT: lines."""
    result = None
    subtests = {}
    for line in output.splitlines():
        if not line.startswith("PIGLIT:"):
            continue
        try:
            report = json.loads(line[7:])
        except ValueError:
            continue
        if "result" in report:
            result = report["result"]
        if isinstance(report.get("subtest"), dict):
            subtests.update(report["subtest"])
    if result is None:
        worst = [s for s in subtests.values() if s in SEVERITY]
        result = max(worst, key=SEVERITY.index) if worst else "notrun"
    # Killed by a signal: negative from a direct run, 128 + signal through
    # velour-run, which waits for its child and exits as a shell would.
    if returncode is not None and (returncode < 0 or 128 < returncode <= 128 + 64):
        return "crash"
    if returncode:
        return "warn" if result == "pass" else "fail"
    return result


def where(mode):
    return "direct" if mode == "direct" else "mode" + mode


def log_path(out, mode, name):
    safe = re.sub(r"[^A-Za-z0-9_.@,=+-]", "_", name)[:200]
    return os.path.join(out, "logs", where(mode), safe + ".log")


def run_one(args, test, mode):
    """The result word, the seconds taken, and in mode 4 the number of GL
    entry points the interface log names (None elsewhere)."""
    if test.skip_reason:
        return "skip", 0.0, None
    argv = [os.path.join(args.piglit, "bin", test.argv[0])] + test.argv[1:]
    sysroot = None
    if mode != "direct":
        argv = [args.velour_run, "--package", args.package, "--mode", mode, "--"] + argv
    if mode == "4":
        # A sysroot kept for the run, to read the interface log from.
        sysroot = tempfile.mkdtemp(prefix="velour-piglit-")
        argv[1:1] = ["--sysroot", sysroot]
    start = time.monotonic()
    # A session of its own, so that a timeout ends velour-run's child too.
    proc = subprocess.Popen(argv, cwd=args.piglit, env=dict(os.environ, PIGLIT_PLATFORM=PLATFORM),
                            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, start_new_session=True)
    try:
        out, _ = proc.communicate(timeout=args.timeout)
        timed_out = False
    except subprocess.TimeoutExpired:
        os.killpg(proc.pid, signal.SIGKILL)
        out, _ = proc.communicate()
        timed_out = True
    output = out.decode("utf-8", "replace")
    result = "timeout" if timed_out else interpret(proc.returncode, output)
    seconds = time.monotonic() - start
    gl_names = None
    if sysroot:
        try:
            with open(os.path.join(sysroot, INTERFACE_LOG), errors="replace") as f:
                gl_names = sum(1 for line in f if line.startswith("gl"))
        except OSError:
            gl_names = 0
        shutil.rmtree(sysroot, ignore_errors=True)
    if args.out:
        # The first line runs the test again by hand, or under gdb.
        head = ["$ cd %s && PIGLIT_PLATFORM=%s %s" % (args.piglit, PLATFORM, shlex.join(argv)),
                "exit %s, %s, %.1f s" % (proc.returncode, result, seconds)]
        if gl_names is not None:
            head.append("GL entry points in the interface log: %d" % gl_names)
        with open(log_path(args.out, mode, test.name), "w", encoding="utf-8") as f:
            f.write("\n".join(head) + "\n\n" + output[-OUTPUT_CAP:])
    return result, seconds, gl_names


def run_mode(args, tests, mode):
    """Concurrent tests on the job pool, then the others one at a time."""
    if args.out:
        os.makedirs(os.path.join(args.out, "logs", where(mode)), exist_ok=True)
    results, gl_names = {}, {}
    lock = threading.Lock()
    progress = not args.verbose and sys.stderr.isatty()
    started = time.monotonic()

    def task(test):
        result, seconds, names = run_one(args, test, mode)
        with lock:
            results[test.name] = result
            if names is not None:
                gl_names[test.name] = names
            if args.verbose:
                print("  [%s %d/%d] %-7s %5.1fs %s" % (where(mode), len(results), len(tests),
                                                     result, seconds, test.name), flush=True)
            elif progress:
                print("\r  %s: %d/%d" % (where(mode), len(results), len(tests)), end="",
                      file=sys.stderr, flush=True)

    with concurrent.futures.ThreadPoolExecutor(max_workers=args.jobs) as pool:
        list(pool.map(task, [t for t in tests if t.concurrent]))
    for test in tests:
        if not test.concurrent:
            task(test)
    if progress:
        sys.stderr.write("\r\033[K")
    return results, gl_names, time.monotonic() - started


def tally(results):
    counts = collections.Counter(results.values())
    return ", ".join("%d %s" % (counts[k], k) for k in SEVERITY if k in counts)


def parse_args(argv):
    p = argparse.ArgumentParser(description=__doc__,
                                formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--velour-run", help="the velour-run launcher (needed unless --list)")
    p.add_argument("--modes", default="3 4 0 1 2", help='runtime modes (default "3 4 0 1 2")')
    p.add_argument("--jobs", type=int, default=2, help="tests run at once (default 2)")
    p.add_argument("--filter", help="only tests whose name matches this regular expression")
    p.add_argument("--names", help="only the tests named in this file, one a line")
    p.add_argument("--expected", help="expected differences: 'MODE TEST NAME | reason' lines")
    p.add_argument("--out", help="folder for results.tsv and one log per test and mode")
    p.add_argument("--direct-results", help="a results.tsv to take instead of a direct run")
    p.add_argument("--timeout", type=float, default=60, help="seconds per test (default 60)")
    p.add_argument("--package", default=PACKAGE,
                   help=f"the process name, so the settings section, of the layer runs (default "
                        f"{PACKAGE}, no game; com.velour.piglitgame runs them as game 1)")
    p.add_argument("--loader-dir", help="the loader's stand-ins (default: from --velour-run)")
    p.add_argument("--list", action="store_true", help="print the selected test names and stop")
    p.add_argument("--skip-if-missing", action="store_true",
                   help="exit %d with a message when piglit is not installed" % SKIP_EXIT)
    p.add_argument("-v", "--verbose", action="store_true", help="print each test as it ends")
    args = p.parse_args(argv)
    args.modes = args.modes.split()
    for m in args.modes:
        if not m.isdigit():
            p.error("--modes takes numbers: %s" % m)
    if args.velour_run:
        # Absolute, since the tests run in the piglit folder.
        args.velour_run = os.path.abspath(args.velour_run)
        args.loader_dir = args.loader_dir or os.path.join(
            os.path.dirname(args.velour_run), "..", "..", "loader")
    args.piglit = piglit_dir()
    return args


def fail(message):
    print("piglit_compare: " + message, file=sys.stderr)
    return 2


def main(argv):
    args = parse_args(argv)
    if not os.path.isfile(os.path.join(args.piglit, "bin", "shader_runner_gles2")):
        message = ("piglit is not installed (no %s/bin/shader_runner_gles2): "
                   "apt-get install piglit, or scripts/setup.sh" % args.piglit)
        if args.skip_if_missing:
            print("SKIP: " + message)
            return SKIP_EXIT
        return fail(message)

    tests = enumerate_tests(args.piglit)
    if args.names:
        wanted = [line for _, line in entries(args.names)]
        by_name = {t.name: t for t in tests}
        missing = [n for n in wanted if n not in by_name]
        if missing:
            return fail("not among the installed GLES tests: " + "; ".join(missing))
        tests = [by_name[n] for n in wanted]
    if args.filter:
        tests = [t for t in tests if re.search(args.filter, t.name)]
    if not tests:
        return fail("no test selected")
    if args.list:
        print("\n".join(t.name for t in tests))
        return 0
    if args.modes and not args.velour_run:
        return fail("--velour-run is needed")
    if args.modes and not os.path.exists(os.path.join(args.loader_dir, "libGLESv2.so.2")):
        return fail("no stand-ins in %s (see --loader-dir)" % args.loader_dir)

    expected = read_expected(args.expected)
    if args.out:
        os.makedirs(args.out, exist_ok=True)
    print("piglit: %d GLES tests from %s, %d at once, %g s timeout" %
          (len(tests), args.piglit, args.jobs, args.timeout), flush=True)
    results = {}
    if args.direct_results:
        try:
            with open(args.direct_results, encoding="utf-8") as f:
                stored = dict(line.split("\t")[:2] for line in f.read().splitlines()[1:])
        except OSError as e:
            return fail("no direct results: %s" % e)
        lacking = [t.name for t in tests if t.name not in stored]
        if lacking:
            return fail("%s lacks %d of the tests, e.g. %s" %
                        (args.direct_results, len(lacking), lacking[0]))
        results["direct"] = {t.name: stored[t.name] for t in tests}
        print("  direct  (from %s): %s" % (args.direct_results, tally(results["direct"])),
              flush=True)
    else:
        results["direct"], _, seconds = run_mode(args, tests, "direct")
        print("  direct: %s  (%.0f s)" % (tally(results["direct"]), seconds), flush=True)

    differences, bypassed = [], []
    for mode in args.modes:
        results[mode], gl_names, seconds = run_mode(args, tests, mode)
        differ = [t.name for t in tests if results[mode][t.name] != results["direct"][t.name]]
        differences += [(mode, name) for name in differ]
        print("  mode %s: %s  (%.0f s); %d differ from direct" %
              (mode, tally(results[mode]), seconds, len(differ)), flush=True)
        if gl_names:
            # A test that passes has drawn or queried something: with no GL name
            # in the interface log its calls went around the layer.
            around = [t.name for t in tests if results["direct"][t.name] == "pass" and
                      results[mode][t.name] == "pass" and gl_names.get(t.name) == 0]
            bypassed += around
            print("  mode %s: %d tests called GL through the layer, %d passing tests "
                  "called none" % (mode, sum(1 for n in gl_names.values() if n), len(around)),
                  flush=True)

    if args.out:
        columns = ["direct"] + args.modes
        with open(os.path.join(args.out, "results.tsv"), "w", encoding="utf-8") as f:
            f.write("\t".join(["test"] + [where(m) for m in columns]) + "\n")
            for t in tests:
                f.write("\t".join([t.name] + [results[m][t.name] for m in columns]) + "\n")

    if differences:
        print("differences from direct (mode, test: direct -> mode):")
    for mode, name in differences:
        note = expected.get((mode, name))
        print("  %s %s: %s -> %s%s" % (mode, name, results["direct"][name], results[mode][name],
                                       "  [expected: %s]" % note if note else ""))
        if args.out:
            print("      log: %s" % log_path(args.out, mode, name))
    for name in bypassed:
        print("  GL around the layer in mode 4 (no GL name in its interface log): %s" % name)
    names = {t.name for t in tests}
    for mode, name in expected:
        if mode in args.modes and name in names and (mode, name) not in differences:
            print("note: expected a difference in mode %s for %s, but there is none" %
                  (mode, name))
    if not args.modes:
        return 0
    bad = len([d for d in differences if d not in expected]) + len(bypassed)
    print("%d passed, %d failed" % (len(tests) * len(args.modes) - bad, bad))
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
