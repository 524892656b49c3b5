#!/bin/sh
# run_one.sh PROGRAM SECONDS: runs a program on its seeds, then fuzzes with it from there; fails on a crash, a leak or a hang.
set -eu
program=$(realpath "$1")
seconds=$2
name=$(basename "$program")
name=${name#fuzz_}
here=$(realpath "$(dirname "$0")")
seeds=$here/seeds/$name
dictionary=$here/dictionaries/$name.dict
[ -d "$seeds" ] || seeds=
[ -e "$dictionary" ] || dictionary=
corpus=$(mktemp -d)
trap 'rm -rf "$corpus"' EXIT
cd "$corpus"
mkdir new
ASAN_OPTIONS=detect_leaks=1 "$program" -max_total_time="$seconds" -max_len=4096 -timeout=20 -verbosity=0 \
    -print_final_stats=1 ${dictionary:+"-dict=$dictionary"} new ${seeds:+"$seeds"} 2>&1 || {
    for crash in crash-* leak-* timeout-* oom-*; do
        [ -e "$crash" ] && { echo "$crash:"; od -An -tx1 "$crash" | head -20; }
    done
    exit 1
}
