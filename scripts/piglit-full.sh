#!/usr/bin/env bash
# Runs every OpenGL ES test of the installed piglit directly and through the
# layer in each runtime mode, and names every test whose result differs.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${VELOUR_BUILD_DIR:-$top/build}

usage() {
    cat <<EOF
usage: scripts/piglit-full.sh [--modes "3 4 0 1 2"] [--jobs N] [--filter REGEX] [--out DIR]
                              [other options of tests/piglit/piglit_compare.py]

Runs piglit's OpenGL ES tests (about 1,100: the GLES 1/2/3 programs,
shader_runner_gles2/3 and glslparsertest_gles2, as piglit's installed test
lists name them) once directly and once per runtime mode through
  velour-run --package com.velour.loadertest --mode N --
on Mesa's surfaceless EGL platform, each with a 60 s timeout, and compares the
result word (pass, fail, skip, warn, crash, timeout) test by test. velour-run
preloads the loader's GLES stand-ins (piglit opens libGLESv2.so.2 by soname
after the loader has opened the system's) and answers piglit's
glXGetProcAddressARB look-ups of extension functions, which would otherwise go
straight to the driver. In mode 4 each test's interface log must name GL entry
points, or its GL calls went around the layer.

It prints a summary per mode and every test whose result differs from the
direct one, with both results and the path of its log; a log's first line is
the command that runs its test again, by hand or under gdb. The exit status is
1 when a difference is not listed in tests/piglit/expected-differences.txt
('MODE TEST NAME | reason' lines), 0 otherwise.

  --modes "LIST"   runtime modes to compare (default "3 4 0 1 2"):
                   0 deferred, 1 immediate, 2 deferred inline, 3 hooks only,
                   4 hooks with interface log
  --jobs N         tests at once (default 2)
  --filter REGEX   only tests whose name matches (Python regular expression)
  --out DIR        results.tsv and one log per test and mode
                   (default /tmp/velour-piglit-<date>)
  --timeout S      seconds per test (default 60)
  --list           print the selected test names and stop
  -v               print each test as it ends

The build is \$VELOUR_BUILD_DIR, else build/ (made with scripts/build.sh).

examples:
  scripts/piglit-full.sh                                  # everything, all modes
  scripts/piglit-full.sh --modes "3 4"                    # the hooks-only modes
  scripts/piglit-full.sh --modes 0 --filter 'glsl-es-3.00@execution' -v
  # one test in one mode, its log printed:
  scripts/piglit-full.sh --modes 0 --filter '^!opengl es 3.0@gl_vertexid used with gldrawarrays$' \\
      --out /tmp/one && cat /tmp/one/logs/mode0/*.log
EOF
}

args=()
out=""
listing=""
while [ $# -gt 0 ]; do
    case $1 in
    -h | --help)
        usage
        exit 0
        ;;
    --out)
        out=${2:?--out wants a folder}
        shift 2
        ;;
    --list)
        listing=1
        args+=("$1")
        shift
        ;;
    *)
        args+=("$1")
        shift
        ;;
    esac
done
[ -n "$out" ] || out=/tmp/velour-piglit-$(date +%Y%m%d-%H%M%S)

run=$build/tools/velour-run/velour-run
if [ ! -x "$run" ]; then
    echo "piglit-full: no $run: build first (scripts/build.sh)" >&2
    exit 2
fi
[ -n "$listing" ] || echo "piglit-full: results and logs in $out"
exec python3 "$top/tests/piglit/piglit_compare.py" --velour-run "$run" \
    --expected "$top/tests/piglit/expected-differences.txt" --out "$out" "${args[@]}"
