#!/bin/sh
# run_one.sh PROGRAM SECONDS: fuzzes with one program from an empty corpus; fails on a crash, a leak or a hang.
set -eu
program=$(realpath "$1")
seconds=$2
corpus=$(mktemp -d)
trap 'rm -rf "$corpus"' EXIT
cd "$corpus"
mkdir new
ASAN_OPTIONS=detect_leaks=1 "$program" -max_total_time="$seconds" -max_len=4096 -timeout=20 -verbosity=0 \
    -print_final_stats=1 new 2>&1 || {
    for crash in crash-* leak-* timeout-*; do
        [ -e "$crash" ] && { echo "$crash:"; od -An -tx1 "$crash" | head -20; }
    done
    exit 1
}
