#!/bin/bash
# check_same_bytes.sh PROGRAM: the sources that PROGRAM was built of, copied elsewhere and without their repository, built
# without a compiler cache, give the same bytes. The copy is told the commit's date as a packager would tell it.
set -eu
cd "$(dirname "$0")/.."
program=$1
copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
git ls-files -z --cached --others --exclude-standard -- CMakeLists.txt CMakePresets.json cmake src | xargs -0 cp --parents -t "$copy"
mkdir "$copy/build"
ln -s "$PWD/build/arm-sysroot" "$copy/build/arm-sysroot"

epoch=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)}
cd "$copy"
env -u CMAKE_CXX_COMPILER_LAUNCHER SOURCE_DATE_EPOCH="$epoch" sh -c '
    cmake --preset arm -DBUILD_TESTING=OFF -DBUILD_BOARD_PROGRAMS=OFF &&
    CCACHE_DISABLE=1 cmake --build --preset arm -j2 --target recovery-loader' >"$copy/log" 2>&1 || {
    tail -n 40 "$copy/log" >&2
    exit 1
}
cd - >/dev/null
cmp "$program" "$copy/build/arm/recovery-loader"
for format in '%b %e %Y' %T; do
    text=$(LC_ALL=C date -u -d "@$epoch" "+$format")
    grep -aqF "$text" "$program" || {
        echo "the banner does not show $text" >&2
        exit 1
    }
done
