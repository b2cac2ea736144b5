#!/usr/bin/env bash
# Load test of wks-host's network service, with redis-server under the same client for scale.
#
#   bench/load.sh [BUILD]     BUILD: a build folder holding wks-host and wks-load (default
#                             build-bench, which ./wks bench builds); this script builds nothing
#
# Starts wks-host (counted framing, standard input at its end) and redis-server on free loopback
# ports, runs wks-load against both at 50 connections x 1 line in flight and 50 x 11, RUNS times
# with the servers and shapes interleaved so that the machine's drift touches both alike, and
# prints the medians of answers per second, p50 and p99, and the wks/redis ratios. Both servers
# are stopped when the script ends, however it ends.
#
# Environment: RUNS (default 5), DURATION and WARMUP (seconds, default 5 and 1), CONNECTIONS
# (default 50), IN_FLIGHT (the shapes' lines in flight, default "1 11"), THREADS (wks-load's
# event loops, default 1).
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD=$(cd "${1:-$ROOT/build-bench}" 2>/dev/null && pwd) || { echo "load.sh: no build folder ${1:-$ROOT/build-bench}" >&2; exit 2; }
RUNS=${RUNS:-5}
DURATION=${DURATION:-5}
WARMUP=${WARMUP:-1}
CONNECTIONS=${CONNECTIONS:-50}
IN_FLIGHT=${IN_FLIGHT:-1 11}
THREADS=${THREADS:-1}

for program in wks-host wks-load; do
    if [ ! -x "$BUILD/$program" ]; then
        echo "load.sh: $BUILD/$program is missing; build it with" >&2
        echo "  cmake -S $ROOT -B $BUILD -G Ninja -DCMAKE_BUILD_TYPE=Release -DWKS_BENCH=ON && cmake --build $BUILD" >&2
        exit 2
    fi
done
command -v redis-server >/dev/null || { echo "load.sh: redis-server is missing (Debian: apt-get install redis-server)" >&2; exit 2; }

WORK=$(mktemp -d)
WKS_PID=""
REDIS_PID=""
stop() {
    [ -n "$WKS_PID" ] && kill "$WKS_PID" 2>/dev/null && wait "$WKS_PID" 2>/dev/null
    [ -n "$REDIS_PID" ] && kill "$REDIS_PID" 2>/dev/null && wait "$REDIS_PID" 2>/dev/null
    rm -rf "$WORK"
}
trap stop EXIT
trap 'exit 130' INT TERM

# wks-host picks its own port and names it in its first log line. Its standard input is at its
# end from the start: it keeps serving the network all the same.
"$BUILD/wks-host" --listen 127.0.0.1:0 --framing counted --no-prompt </dev/null 2>"$WORK/wks-host.log" &
WKS_PID=$!
WKS_PORT=""
for _ in $(seq 100); do
    WKS_PORT=$(sed -n 's/.*listening on 127\.0\.0\.1:\([0-9]*\).*/\1/p' "$WORK/wks-host.log" | head -n 1)
    [ -n "$WKS_PORT" ] && break
    kill -0 "$WKS_PID" 2>/dev/null || break
    sleep 0.1
done
[ -n "$WKS_PORT" ] || { cat "$WORK/wks-host.log" >&2; echo "load.sh: wks-host did not start" >&2; exit 1; }

# redis-server needs a port named: the first of 6390.. that nothing holds and it can bind.
for REDIS_PORT in $(seq 6390 6409); do
    redis-server --bind 127.0.0.1 --port "$REDIS_PORT" --save '' --appendonly no --daemonize no \
        >"$WORK/redis.log" 2>&1 &
    REDIS_PID=$!
    for _ in $(seq 50); do
        grep -q "Ready to accept connections" "$WORK/redis.log" && break 2
        kill -0 "$REDIS_PID" 2>/dev/null || break
        sleep 0.1
    done
    kill "$REDIS_PID" 2>/dev/null || true
    wait "$REDIS_PID" 2>/dev/null || true
    REDIS_PID=""
done
[ -n "$REDIS_PID" ] || { cat "$WORK/redis.log" >&2; echo "load.sh: redis-server did not start" >&2; exit 1; }

echo "wks-host on 127.0.0.1:$WKS_PORT, redis-server on 127.0.0.1:$REDIS_PORT; $RUNS runs of ${DURATION} s after ${WARMUP} s each, $(nproc) cores"

# measure SERVER IN_FLIGHT: one run, its JSON line appended to results with the server's name.
measure() {
    local server=$1 inflight=$2 args
    if [ "$server" = wks ]; then
        args=(--connect "127.0.0.1:$WKS_PORT" --protocol wks --line 'Var1?' --expect 'Var1=100')
    else
        args=(--connect "127.0.0.1:$REDIS_PORT" --protocol redis --line PING --expect PONG)
    fi
    local status=0
    "$BUILD/wks-load" "${args[@]}" --connections "$CONNECTIONS" --in-flight "$inflight" --threads "$THREADS" \
        --duration "$DURATION" --warmup "$WARMUP" --json >"$WORK/run.json" 2>"$WORK/run.err" || status=$?
    # Ctrl-C stops the servers too, and the client then reports their connections lost: that run
    # was interrupted, not failed. (The shell itself passes over the SIGINT its client survived.)
    if [ $status -gt 128 ] || ! kill -0 "$WKS_PID" 2>/dev/null || ! kill -0 "$REDIS_PID" 2>/dev/null; then
        echo "load.sh: interrupted (a server or the client was stopped)" >&2
        exit 130
    fi
    if [ $status -ne 0 ]; then
        cat "$WORK/run.json" "$WORK/run.err" >&2
        echo "load.sh: the run against $server at $CONNECTIONS x $inflight failed" >&2
        exit 1
    fi
    printf '%s %s\n' "$server" "$(cat "$WORK/run.json")" >>"$WORK/results"
}

for run in $(seq "$RUNS"); do
    for inflight in $IN_FLIGHT; do
        for server in wks redis; do
            measure "$server" "$inflight"
        done
    done
    echo "run $run of $RUNS done" >&2
done

/usr/bin/python3 - "$WORK/results" <<'EOF'
import json, statistics, sys

runs = {}
for line in open(sys.argv[1]):
    server, figures = line.split(" ", 1)
    figures = json.loads(figures)
    runs.setdefault((figures["connections"], figures["in_flight"]), {}).setdefault(server, []).append(figures)

def median(rows, key):
    return statistics.median(row[key] for row in rows)

print(f"{'shape':<10} {'server':<9} {'replies/s':>12} {'p50 us':>9} {'p99 us':>9}")
for (connections, in_flight), servers in sorted(runs.items()):
    shape = f"{connections} x {in_flight}"
    figures = {}
    for server in ("wks", "redis"):
        rows = servers[server]
        figures[server] = [median(rows, "replies_per_s"), median(rows, "p50_us"), median(rows, "p99_us")]
        print(f"{shape:<10} {server:<9} {figures[server][0]:>12.0f} {figures[server][1]:>9.1f} {figures[server][2]:>9.1f}")
    ratio = [w / r if r else float("nan") for w, r in zip(figures["wks"], figures["redis"])]
    print(f"{shape:<10} {'wks/redis':<9} {ratio[0]:>12.2f} {ratio[1]:>9.2f} {ratio[2]:>9.2f}")
EOF
