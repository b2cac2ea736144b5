#!/usr/bin/env bash
# Instructions per command line of one in-process benchmark, counted by callgrind: the figure to
# compare two builds by, since it is the same on every run whatever else the machine is doing.
#
#   bench/instructions.sh FILTER [BUILD]    e.g. bench/instructions.sh 'BM_PathQuery/10000$'
#
# FILTER picks one benchmark of wks-bench (a --benchmark_filter regular expression); BUILD is the
# folder holding wks-bench (default build-bench, which ./wks bench builds; this script builds
# nothing). Only the exchange is counted (everything below CProtocolSession::Exchange: the module,
# the host's objects and libc), and lines are the calls of ParseCommand, so setting up the
# workspace and the benchmark's own bookkeeping count for nothing. MIN_TIME (seconds of the
# benchmark's own clock, default 0.3) sets how many lines are sent: more lines, less weight for
# what happens once (a map laid out, a locale read). The top functions by their own instructions
# per line follow, with their calls per line (TOP, default 25).
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/.." && pwd)
FILTER=${1:?usage: bench/instructions.sh FILTER [BUILD]}
BUILD=$(cd "${2:-$ROOT/build-bench}" 2>/dev/null && pwd) || { echo "instructions.sh: no build folder ${2:-$ROOT/build-bench}" >&2; exit 2; }
[ -x "$BUILD/wks-bench" ] || { echo "instructions.sh: $BUILD/wks-bench is missing: run ./wks bench first" >&2; exit 2; }
command -v valgrind >/dev/null || { echo "instructions.sh: valgrind is missing (Debian: apt-get install valgrind)" >&2; exit 2; }

WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
(cd "$BUILD" && valgrind --tool=callgrind --callgrind-out-file="$WORK/out" '--toggle-collect=int CProtocolSession::Exchange<*' \
    ./wks-bench --benchmark_filter="$FILTER" --benchmark_repetitions=1 --benchmark_min_time="${MIN_TIME:-0.3}" \
    >"$WORK/bench.log" 2>&1) || { cat "$WORK/bench.log" >&2; exit 1; }
callgrind_annotate --tree=caller "$WORK/out" >"$WORK/tree" 2>/dev/null

# The tree lists, for every function, the calls it received ("< caller (Nx)") and then its own
# cost ("* function"). Blocks are separated by blank lines.
awk -v top="${TOP:-25}" -v filter="$FILTER" '
    function number(text) { gsub(/,/, "", text); return text + 0 }
    /PROGRAM TOTALS/ { total = number($1) }
    /^$/ { calls = 0; next }
    / < / { if (match($0, /\(([0-9,]+)x\)/)) calls += number(substr($0, RSTART + 1, RLENGTH - 3)); next }
    / \* / {
        name = $0; sub(/^.*\* +(\?\?\?:)?/, "", name); sub(/ \[[^]]*\]$/, "", name)
        own[name] = number($1); received[name] = calls
        if (name ~ /^CWKSProtocol::ParseCommand\(/) lines = calls
    }
    END {
        if (lines == 0) { print "instructions.sh: no line reached ParseCommand: does the filter name a benchmark?" > "/dev/stderr"; exit 1 }
        printf "%s: %d lines, %.0f instructions a line\n\n%8s %8s  %s\n", filter, lines, total / lines, "own/line", "calls", "function"
        n = 0
        for (f in own) order[++n] = f
        for (i = 2; i <= n; ++i) for (j = i; j > 1 && own[order[j]] > own[order[j - 1]]; --j) { t = order[j]; order[j] = order[j - 1]; order[j - 1] = t }
        for (i = 1; i <= n && i <= top; ++i) printf "%8.0f %8.1f  %s\n", own[order[i]] / lines, received[order[i]] / lines, substr(order[i], 1, 100)
    }' "$WORK/tree"
