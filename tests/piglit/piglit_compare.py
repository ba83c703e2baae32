#!/usr/bin/env python3
"""Runs piglit's OpenGL ES tests directly and through velour-run, and compares.

The tests are read from the installed piglit's own test lists (the opengl,
shader and glslparser profiles), keeping those that run on OpenGL ES: programs
linked to piglit's GLES utility libraries, shader_runner_gles2/3 and
glslparsertest_gles2. Each test runs once directly and once per runtime mode
through velour-run; the result word (pass, fail, skip, warn, crash, timeout,
notrun) is taken as piglit itself takes it, and any test whose word in a mode
differs from the direct one is reported. Differences listed in the
expectations file are reported but do not fail the run.

See --help. scripts/piglit-full.sh runs the full list; the ctest tests run the
curated list.
"""

import argparse
import ast
import concurrent.futures
import gzip
import json
import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import xml.etree.ElementTree as ET

SKIP_EXIT = 77  # what ctest is told to read as "skipped"
PROFILES = ("opengl", "shader", "glslparser")
GLES_RUNNERS = ("shader_runner_gles2", "shader_runner_gles3", "glslparsertest_gles2")
GLES_LIBRARIES = (b"libpiglitutil_gles1", b"libpiglitutil_gles2", b"libpiglitutil_gles3")
SEVERITY = ["notrun", "pass", "skip", "warn", "fail", "timeout", "crash"]
OUTPUT_CAP = 64 * 1024
INTERFACE_LOG = "data/local/tmp/orlo/interface_log.txt"


def default_piglit_dir():
    env = os.environ.get("PIGLIT_DIR")
    if env:
        return env
    candidates = ["/usr/lib/piglit"]
    try:
        arch = subprocess.run(["dpkg-architecture", "-qDEB_HOST_MULTIARCH"],
                              capture_output=True, text=True, check=False).stdout.strip()
        if arch:
            candidates.insert(0, "/usr/lib/%s/piglit" % arch)
    except OSError:
        pass
    candidates += ["/usr/lib/x86_64-linux-gnu/piglit", "/usr/lib/aarch64-linux-gnu/piglit"]
    for c in candidates:
        if os.path.isfile(os.path.join(c, "bin", "shader_runner_gles2")):
            return c
    return candidates[0]


class Test:
    __slots__ = ("name", "argv", "concurrent", "skip_reason")

    def __init__(self, name, argv, concurrent, skip_reason=None):
        self.name = name
        self.argv = argv  # argv[0] relative to bin/, files relative to the piglit folder
        self.concurrent = concurrent
        self.skip_reason = skip_reason


def links_gles(path, cache={}):
    if path not in cache:
        try:
            with open(path, "rb") as f:
                data = f.read()
            cache[path] = any(lib in data for lib in GLES_LIBRARIES)
        except OSError:
            cache[path] = False
    return cache[path]


def enumerate_tests(piglit, platform):
    """The GLES tests of the installed piglit, in the order of its lists."""
    tests = []
    for profile in PROFILES:
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
            required = ast.literal_eval(options.get("require_platforms", "[]") or "[]")
            excluded = ast.literal_eval(options.get("exclude_platforms", "[]") or "[]")
            if required and platform not in required:
                skip = "needs platform %s" % "/".join(required)
            elif platform in excluded:
                skip = "not for platform %s" % platform
            # Without piglit's top-level group, which says nothing here.
            name = node.get("name").split("@", 1)[-1]
            tests.append(Test(name, argv, concurrent, skip))
    return tests


def read_names(path):
    names = []
    with open(path, encoding="utf-8") as f:
        for line in f:
            line = line.strip()
            if line and not line.startswith("#"):
                names.append(line)
    return names


def read_expected(path):
    """'MODE TEST NAME | reason' lines: differences that do not fail the run."""
    expected = {}
    if not path or not os.path.exists(path):
        return expected
    with open(path, encoding="utf-8") as f:
        for number, line in enumerate(f, 1):
            line = line.strip()
            if not line or line.startswith("#"):
                continue
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


class Runner:
    def __init__(self, args):
        self.args = args
        self.piglit = args.piglit_dir
        self.bin = os.path.join(self.piglit, "bin")
        self.env = dict(os.environ)
        self.env["PIGLIT_PLATFORM"] = args.platform
        self.mode_env = dict(self.env)
        self.lock = threading.Lock()
        self.done = 0
        self.total = 0

    def command(self, test, mode):
        argv = [os.path.join(self.bin, test.argv[0])] + test.argv[1:]
        if mode == "direct":
            return argv
        return [self.args.velour_run, "--package", self.args.package, "--mode", mode, "--"] + argv

    def env_text(self, mode):
        env = self.env if mode == "direct" else self.mode_env
        words = ["PIGLIT_PLATFORM=" + self.args.platform]
        if env.get("LD_PRELOAD"):
            words.append("LD_PRELOAD=" + env["LD_PRELOAD"])
        return " ".join(shlex.quote(w) for w in words)

    def run_one(self, test, mode, log_dir):
        """The result word, the seconds taken, and in mode 4 the number of GL
        entry points the interface log names (None elsewhere)."""
        if test.skip_reason:
            return "skip", 0.0, None
        argv = self.command(test, mode)
        sysroot = None
        if mode == "4":
            # A sysroot kept for the run, to read the interface log from.
            sysroot = tempfile.mkdtemp(prefix="velour-piglit-")
            argv = argv[:1] + ["--sysroot", sysroot] + argv[1:]
        start = time.monotonic()
        # A session of its own, so that a timeout ends velour-run's child too.
        proc = subprocess.Popen(argv, cwd=self.piglit,
                                env=self.env if mode == "direct" else self.mode_env,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, start_new_session=True)
        try:
            out, _ = proc.communicate(timeout=self.args.timeout)
            output = out.decode("utf-8", "replace")
            result = interpret(proc.returncode, output)
        except subprocess.TimeoutExpired:
            os.killpg(proc.pid, signal.SIGKILL)
            out, _ = proc.communicate()
            output = out.decode("utf-8", "replace")
            result = "timeout"
        seconds = time.monotonic() - start
        gl_names = None
        if sysroot:
            gl_names = 0
            try:
                with open(os.path.join(sysroot, INTERFACE_LOG), encoding="utf-8",
                          errors="replace") as f:
                    gl_names = sum(1 for line in f if line.startswith("gl"))
            except OSError:
                pass
            shutil.rmtree(sysroot, ignore_errors=True)
        if result == "crash" and self.args.backtrace:
            output += "\n--- backtrace (gdb) ---\n" + self.backtrace(test, mode)
        if log_dir:
            with open(os.path.join(log_dir, safe_name(test.name) + ".log"), "w",
                      encoding="utf-8") as f:
                f.write("$ cd %s && %s %s\n" % (self.piglit, self.env_text(mode), shlex.join(argv)))
                f.write("exit %s, %s, %.1f s\n" % (proc.returncode, result, seconds))
                if gl_names is not None:
                    f.write("GL entry points in the interface log: %d\n" % gl_names)
                f.write("\n" + output[-OUTPUT_CAP:])
        return result, seconds, gl_names

    def backtrace(self, test, mode):
        """Runs the test once more under gdb and returns what gdb printed."""
        argv = [os.path.join(self.bin, test.argv[0])] + test.argv[1:]
        gdb = ["gdb", "-batch", "-nx", "-ex", "set pagination off"]
        if mode != "direct":
            # gdb starts the program under its path; the layer wants the package
            # name in argv[0] to find its settings.
            gdb += ["-ex", "set exec-wrapper /bin/bash -c 'exec -a %s \"$@\"' bash" %
                    self.args.package]
        gdb += ["-ex", "run", "-ex", "bt 30", "-ex", "info threads", "--args"] + argv
        if mode != "direct":
            gdb = [self.args.velour_run, "--mode", mode, "--"] + gdb
        proc = subprocess.Popen(gdb, cwd=self.piglit,
                                env=self.env if mode == "direct" else self.mode_env,
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, start_new_session=True)
        try:
            out, _ = proc.communicate(timeout=self.args.timeout * 3)
        except subprocess.TimeoutExpired:
            os.killpg(proc.pid, signal.SIGKILL)
            out, _ = proc.communicate()
            out += b"\n(gdb timed out)\n"
        return out.decode("utf-8", "replace")[-OUTPUT_CAP:]

    def run_mode(self, tests, mode, out_dir):
        """Concurrent tests on the job pool, then the others one at a time."""
        log_dir = None
        if out_dir:
            log_dir = os.path.join(out_dir, "logs", mode_dir(mode))
            os.makedirs(log_dir, exist_ok=True)
        results = {}
        gl_names = {}
        self.done = 0
        self.total = len(tests)
        started = time.monotonic()

        def task(test):
            result, seconds, names = self.run_one(test, mode, log_dir)
            with self.lock:
                results[test.name] = result
                if names is not None:
                    gl_names[test.name] = names
                self.done += 1
                if self.args.verbose:
                    print("  [%s %d/%d] %-7s %5.1fs %s" % (mode_label(mode), self.done, self.total,
                                                         result, seconds, test.name), flush=True)
                elif self.args.progress and sys.stderr.isatty():
                    sys.stderr.write("\r  %s: %d/%d" % (mode_label(mode), self.done, self.total))
                    sys.stderr.flush()

        with concurrent.futures.ThreadPoolExecutor(max_workers=self.args.jobs) as pool:
            list(pool.map(task, [t for t in tests if t.concurrent]))
        for test in tests:
            if not test.concurrent:
                task(test)
        if self.args.progress and sys.stderr.isatty() and not self.args.verbose:
            sys.stderr.write("\r\033[K")
        return results, gl_names, time.monotonic() - started


def safe_name(name):
    return re.sub(r"[^A-Za-z0-9_.@,=+-]", "_", name)[:200]


def mode_dir(mode):
    return "direct" if mode == "direct" else "mode" + mode


def mode_label(mode):
    return "direct" if mode == "direct" else "mode " + mode


def tally(results):
    counts = {}
    for r in results.values():
        counts[r] = counts.get(r, 0) + 1
    return ", ".join("%d %s" % (counts[k], k) for k in SEVERITY if k in counts)


def write_results(path, tests, modes, results):
    with open(path, "w", encoding="utf-8") as f:
        f.write("test\t" + "\t".join(mode_label(m) for m in modes) + "\n")
        for t in tests:
            f.write(t.name + "\t" + "\t".join(results[m].get(t.name, "-") for m in modes) + "\n")


def read_direct(path):
    results = {}
    with open(path, encoding="utf-8") as f:
        next(f, None)
        for line in f:
            fields = line.rstrip("\n").split("\t")
            if len(fields) >= 2:
                results[fields[0]] = fields[1]
    return results


HELP_EPILOG = """\
examples:
  %(prog)s --velour-run build/tools/velour-run/velour-run --list
  %(prog)s --velour-run VR --modes "3 4" --jobs 2 --out /tmp/piglit
  %(prog)s --velour-run VR --modes 0 --filter 'fbo-blit' -v
  %(prog)s --velour-run VR --modes 0 --filter '^glsl-es-3.00@execution@varying-struct-centroid_gles3$' --commands
"""


def parse_args(argv):
    p = argparse.ArgumentParser(
        description="Run piglit's OpenGL ES tests directly and through velour-run in each "
        "runtime mode, and report every test whose result differs from the direct run.",
        epilog=HELP_EPILOG, formatter_class=argparse.RawDescriptionHelpFormatter)
    p.add_argument("--velour-run", help="the velour-run launcher (needed unless --list)")
    p.add_argument("--modes", default="3 4 0 1 2",
                   help='runtime modes to compare with the direct run (default "3 4 0 1 2")')
    p.add_argument("--jobs", type=int, default=2, help="tests run at once (default 2)")
    p.add_argument("--filter", help="only tests whose name matches this regular expression")
    p.add_argument("--names", help="only the tests named in this file, one a line")
    p.add_argument("--expected", help="expected differences: 'MODE TEST NAME | reason' lines")
    p.add_argument("--out", help="folder for results.tsv and one log per test and mode")
    p.add_argument("--direct-results", help="take the direct results from this results.tsv "
                   "instead of running the tests directly")
    p.add_argument("--timeout", type=float, default=60, help="seconds per test (default 60)")
    p.add_argument("--loader-dir", help="the loader's stand-ins (default: the build's "
                   "loader folder, found from --velour-run)")
    p.add_argument("--package", default="com.velour.loadertest",
                   help="process name the tests run under (default com.velour.loadertest)")
    p.add_argument("--platform", default="surfaceless_egl", help="PIGLIT_PLATFORM")
    p.add_argument("--piglit-dir", default=default_piglit_dir(), help="the installed piglit")
    p.add_argument("--list", action="store_true", help="print the selected test names and stop")
    p.add_argument("--commands", action="store_true",
                   help="print the command lines of the selected tests and stop")
    p.add_argument("--skip-if-missing", action="store_true",
                   help="exit %d with a message when piglit is not installed" % SKIP_EXIT)
    p.add_argument("--backtrace", action="store_true",
                   help="run each crashing test again under gdb and add its backtrace to the log")
    p.add_argument("-v", "--verbose", action="store_true", help="print each test as it ends")
    args = p.parse_args(argv)
    args.modes = args.modes.split()
    for m in args.modes:
        if not m.isdigit():
            p.error("--modes takes numbers: %s" % m)
    args.progress = True
    if not args.loader_dir and args.velour_run:
        args.loader_dir = os.path.normpath(
            os.path.join(os.path.dirname(os.path.abspath(args.velour_run)), "..", "..", "loader"))
    return args


def main(argv):
    args = parse_args(argv)
    if not os.path.isfile(os.path.join(args.piglit_dir, "bin", "shader_runner_gles2")):
        message = ("piglit is not installed (no %s/bin/shader_runner_gles2): "
                   "apt-get install piglit, or scripts/setup.sh" % args.piglit_dir)
        if args.skip_if_missing:
            print("SKIP: " + message)
            return SKIP_EXIT
        print("piglit_compare: " + message, file=sys.stderr)
        return 2

    tests = enumerate_tests(args.piglit_dir, args.platform)
    if args.names:
        wanted = read_names(args.names)
        by_name = {t.name: t for t in tests}
        missing = [n for n in wanted if n not in by_name]
        if missing:
            print("piglit_compare: not among the installed GLES tests: " + "; ".join(missing),
                  file=sys.stderr)
            return 2
        tests = [by_name[n] for n in wanted]
    if args.filter:
        pattern = re.compile(args.filter)
        tests = [t for t in tests if pattern.search(t.name)]
    if not tests:
        print("piglit_compare: no test selected", file=sys.stderr)
        return 2

    if args.list:
        for t in tests:
            print(t.name)
        return 0
    if not args.velour_run and (args.modes or args.commands):
        print("piglit_compare: --velour-run is needed", file=sys.stderr)
        return 2
    if args.modes and args.loader_dir and \
            not os.path.exists(os.path.join(args.loader_dir, "libGLESv2.so.2")):
        print("piglit_compare: no stand-ins in %s (see --loader-dir)" % args.loader_dir,
              file=sys.stderr)
        return 2
    runner = Runner(args)
    if args.commands:
        for t in tests:
            print("# " + t.name + (" (skipped: %s)" % t.skip_reason if t.skip_reason else ""))
            for m in ["direct"] + args.modes:
                print("cd %s && %s %s" % (shlex.quote(args.piglit_dir), runner.env_text(m),
                                          shlex.join(runner.command(t, m))))
        return 0

    expected = read_expected(args.expected)
    if args.out:
        os.makedirs(args.out, exist_ok=True)
    results = {}
    print("piglit: %d GLES tests from %s, %d at once, %g s timeout" %
          (len(tests), args.piglit_dir, args.jobs, args.timeout), flush=True)
    if args.direct_results:
        try:
            stored = read_direct(args.direct_results)
        except OSError as e:
            print("piglit_compare: no direct results: %s" % e, file=sys.stderr)
            return 2
        lacking = [t.name for t in tests if t.name not in stored]
        if lacking:
            print("piglit_compare: %s lacks %d of the tests, e.g. %s" %
                  (args.direct_results, len(lacking), lacking[0]), file=sys.stderr)
            return 2
        results["direct"] = {t.name: stored[t.name] for t in tests}
        print("  direct  (from %s): %s" % (args.direct_results, tally(results["direct"])),
              flush=True)
    else:
        results["direct"], _, seconds = runner.run_mode(tests, "direct", args.out)
        print("  direct: %s  (%.0f s)" % (tally(results["direct"]), seconds), flush=True)

    differences = []
    bypassed = []
    for mode in args.modes:
        results[mode], gl_names, seconds = runner.run_mode(tests, mode, args.out)
        differ = [t.name for t in tests if results[mode][t.name] != results["direct"][t.name]]
        differences += [(mode, name) for name in differ]
        print("  mode %s: %s  (%.0f s); %d differ from direct" %
              (mode, tally(results[mode]), seconds, len(differ)), flush=True)
        if gl_names:
            # A test that passes has drawn or queried something: with no GL name
            # in the interface log its calls went around the layer.
            bypassed = [t.name for t in tests if results["direct"][t.name] == "pass" and
                        results[mode][t.name] == "pass" and gl_names.get(t.name) == 0]
            print("  mode %s: %d tests called GL through the layer, %d passing tests "
                  "called none" % (mode, sum(1 for n in gl_names.values() if n),
                                   len(bypassed)), flush=True)

    modes = ["direct"] + args.modes
    if args.out:
        write_results(os.path.join(args.out, "results.tsv"), tests, modes, results)

    unexpected = [d for d in differences if d not in expected]
    if differences:
        print("differences from direct (mode, test: direct -> mode):")
        for mode, name in differences:
            note = expected.get((mode, name))
            print("  %s %s: %s -> %s%s" % (mode, name, results["direct"][name],
                                           results[mode][name],
                                           "  [expected: %s]" % note if note else ""))
            if args.out:
                print("      log: %s" % os.path.join(args.out, "logs", mode_dir(mode),
                                                    safe_name(name) + ".log"))
    names = {t.name for t in tests}
    stale = [(m, n) for (m, n) in expected if m in args.modes and n in names and
             (m, n) not in differences]
    for name in bypassed:
        print("  GL around the layer in mode 4 (no GL name in its interface log): %s" % name)
    for mode, name in stale:
        print("note: expected a difference in mode %s for %s, but there is none" % (mode, name))
    ran = len(tests) * len(args.modes)
    if not args.modes:
        return 0
    bad = len(unexpected) + len(bypassed)
    print("%d passed, %d failed" % (ran - bad, bad))
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
