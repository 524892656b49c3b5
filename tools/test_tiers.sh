# Sourced by ./test: one function per tier. Each leaves JUnit files in $results, named for the tier.

# note_result TIER NAME [PROBLEM]: records the outcome of a check that is no test program of its own.
note_result() {
    local problem=${3:-} body=''
    [ -z "$problem" ] || body="<failure message=\"$(printf '%s' "$problem" | sed 's/&/\&amp;/g; s/</\&lt;/g; s/"/\&quot;/g')\"/>"
    printf '<testsuites><testsuite name="%s"><testcase classname="%s" name="%s">%s</testcase></testsuite></testsuites>\n' \
        "$1" "$1" "$2" "$body" >"$(mktemp "$results/$1-XXXXXX.xml")"
}

note_failure() {
    note_result "$1" end "$2"
}

# check TIER NAME COMMAND...: a check that passes when the command succeeds; its output is shown when it does not.
check() {
    local tier=$1 name=$2 log
    shift 2
    log=$results/$tier-${name//[^a-z0-9]/_}.log
    if "$@" >"$log" 2>&1; then
        note_result "$tier" "$name"
    else
        tail -n 40 "$log"
        note_result "$tier" "$name" "failed: $*"
    fi
}

# build_preset PRESET [TARGET...]: all targets, or these. Tiers that run side by side may want the same build: one makes
# it, the other waits and finds it made.
build_preset() {
    (
        flock 9
        case $1 in
            arm) tools/arm_sysroot.sh "$PWD/build/arm-sysroot" ;;
            armhf | arm64) tools/arm_sysroot.sh "$PWD/build/$1-sysroot" "$1" ;;
        esac &&
            cmake --preset "$1" >"$results/cmake-$1.log" 2>&1 &&
            cmake --build --preset "$1" -j2 ${2:+--target "${@:2}"} >"$results/build-$1.log" 2>&1 || {
            tail -n 40 "$results/cmake-$1.log" "$results/build-$1.log" 2>/dev/null
            exit 1
        }
    ) 9>"$results/build-$1.lock"
}

# The sanitizers' runtime is brought down before main, now and then, by kernels that spread addresses wider than it
# knows. Where this may not be turned off, the tests run with what the kernel does.
plain_addresses=''
! setarch "$(uname -m)" -R true 2>/dev/null || plain_addresses="setarch $(uname -m) -R"

# run_shard PRESET SHARD SHARDS: a program that was brought down leaves no results; its last test is named instead.
run_shard() {
    local name=unit-$1-$2 status=0
    GTEST_SHARD_INDEX=$2 GTEST_TOTAL_SHARDS=$3 timeout 600 $plain_addresses "build/$1/unit_tests" \
        "--gtest_output=xml:$results/$name.xml" >"$results/$name.log" 2>&1 || status=$?
    [ $status -eq 0 ] || tail -n 60 "$results/$name.log"
    [ -e "$results/$name.xml" ] ||
        note_failure unit "$name: exit status $status in or after $(grep -a '^\[ RUN' "$results/$name.log" | tail -n 1)"
    return $status
}

# Time-outs of the program are real and most tests wait for them, so more tests than cores run side by side.
run_unit_tests() {
    local preset=$1 shard shards=8 status=0 pids=''
    for shard in $(seq 0 $((shards - 1))); do
        run_shard "$preset" "$shard" $shards &
        pids="$pids $!"
    done
    for pid in $pids; do
        wait "$pid" || status=1
    done
    return $status
}

# need_TIER: installs what the tier is built with and runs with.
need_unit() { setup_need build test; }
need_console() { setup_need build test bench; }
need_board() { setup_need build test arm board bench coverage; }
need_arm() { setup_need build test arm cross; }
need_package() { setup_need build test arm package; }
need_docs() { setup_need build test arm board; }
need_fuzz() { setup_need build fuzz; }
need_lint() { setup_need build test lint mutation; }

tier_unit() {
    build_preset release || return 1
    # Its tests mostly wait: the next build need not.
    run_unit_tests release &
    local released=$!
    build_preset asan unit_tests || {
        wait $released
        return 1
    }
    check unit command_reference_is_current sh -c 'build/release/command_reference src | diff docs/commands.md -'
    local status=0
    wait $released || status=1
    run_unit_tests asan || status=1
    return $status
}

# The program is the one with sanitizers: the device's own runs the same tests in the tier arm.
tier_console() {
    build_preset release && build_preset asan recovery-loader || return 1
    timeout 1800 $plain_addresses /usr/bin/python3 -m pytest -q -n 6 -p no:cacheprovider "--junitxml=$results/console.xml" \
        -m "not board" --program=build/asan/recovery-loader tests/console tests/both
}

tier_board() {
    build_preset release && build_preset arm || return 1
    check board set_up /usr/bin/python3 board/artefacts.py
    # More boards than cores: most of their time is waiting, too.
    timeout 3600 /usr/bin/python3 -m pytest -q -n 4 -p no:cacheprovider "--junitxml=$results/board.xml" -m "not root and not long" \
        tests/board tests/both
}

tier_arm() {
    build_preset arm || return 1
    check arm links_libc_only tools/check_device_binary.sh build/arm/recovery-loader
    check arm starts_under_qemu tools/check_arm_start.sh build/arm/recovery-loader
    check arm same_bytes_elsewhere tools/check_same_bytes.sh build/arm/recovery-loader
    # Boards of the future: the same sources with other compilers.
    local other
    for other in armhf arm64; do
        if build_preset $other; then
            check arm "starts_under_qemu_$other" tools/check_arm_start.sh build/$other/recovery-loader $other
        else
            note_failure arm "the preset $other does not build"
        fi
    done
    build_preset release && tools/arm_device_root.sh || return 1
    # Among all tiers one case of each test is enough: the other cases tell the program's words apart, which the console
    # tier has judged, not the processors.
    local cases=''
    [ "$tiers" = arm ] || cases=--one-case
    timeout 2700 /usr/bin/python3 -m pytest -q -n 4 -p no:cacheprovider "--junitxml=$results/arm.xml" \
        $cases -m "not not_emulated" --build=build/arm-root tests/console
}

# Other tiers build in the same places: the locks are theirs.
tier_package() {
    check package packages_are_made flock "$results/build-release.lock" flock "$results/build-arm.lock" packaging/build
    timeout 900 /usr/bin/python3 -m pytest -q -p no:cacheprovider "--junitxml=$results/package.xml" tests/package
}

# One board for all documents, and at the same time the one that the tutorial starts. Documents show kesto with its own limits:
# the tier is not one of those that wait for others.
tier_docs() {
    build_preset release && build_preset arm || return 1
    # As ./run does it before it starts the board.
    check docs set_up /usr/bin/python3 board/artefacts.py
    # Among all tiers without the demonstration and the lab's example: the board's tier takes their steps, too.
    local chosen=''
    [ "$tiers" = docs ] || chosen='not long'
    timeout 2700 /usr/bin/python3 -m pytest -q -n 2 --dist loadgroup -p no:cacheprovider "--junitxml=$results/docs.xml" \
        -m "$chosen" tests/docs
}

tier_fuzz() {
    build_preset fuzz || return 1
    local target
    for target in build/fuzz/fuzz_*; do
        [ -x "$target" ] && check fuzz "$(basename "$target")" $plain_addresses tests/fuzz/run_one.sh "$target" "${FUZZ_SECONDS:-3}"
    done
}

# The list of compilations comes from a configuration of its own, which nobody builds meanwhile.
tier_lint() {
    { cmake --preset release -B build/lint && cmake --build build/lint --target build_date; } >"$results/cmake-lint.log" 2>&1 || {
        cat "$results/cmake-lint.log"
        return 1
    }
    check lint floors tools/check_floors.py
    # Mutation and coverage: what they find and report. A run of either takes hours.
    check lint mutation_and_coverage /usr/bin/python3 -m pytest -q -p no:cacheprovider tests/mutation tests/campaign
    check lint formatting sh -c "git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run -Werror"
    # One file a run: with several the analyzer takes what it saw in one for the state of the next. Of kesto the file that
    # includes its sources, which no file may that a person writes; the analyzer leaves out what is included.
    local tidy='xargs -P2 -n1 clang-tidy -p build/lint --quiet --extra-arg=-Wno-unknown-warning-option'
    check lint clang_tidy sh -c "git ls-files 'src/*.cpp' 'host/*.cpp' ':!host/kesto' | $tidy"
    check lint clang_tidy_kesto sh -c "ls host/kesto/main.cpp build/lint/host/CMakeFiles/kesto*.dir/Unity/*.cxx |
        $tidy --checks=-bugprone-suspicious-include"
}
