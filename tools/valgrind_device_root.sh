#!/bin/sh
# valgrind_device_root.sh: puts together build/valgrind-root, a build directory for the console tests whose programs run under
# Debian's valgrind: pytest --build=build/valgrind-root tests/console. Wants the preset release to be built. What valgrind says of
# the device's program fails the test; of kesto it lies in build/valgrind-root/kesto-reports, and makes its exit status 99.
set -eu
cd "$(dirname "$0")/.."
root=$PWD/build/valgrind-root
rm -rf "$root"
mkdir -p "$root/tests" "$root/valgrind" "$root/kesto-reports"
chmod 1777 "$root/kesto-reports"  # a test takes its privileges away
cp build/release/tests/enter_root build/release/tests/recorder build/release/tests/libkernel_stand_in.so "$root/tests"
cp build/release/tests/start_under_valgrind "$root/recovery-loader"
cp build/release/recovery-loader build/release/kesto "$root/valgrind"
cp /usr/libexec/valgrind/memcheck-amd64-linux /usr/libexec/valgrind/vgpreload_*amd64-linux.so /usr/libexec/valgrind/*.supp \
    "$root/valgrind"
# Without an error its report is an empty file.
cat >"$root/kesto" <<END
#!/bin/sh
exec valgrind --tool=memcheck --quiet --vgdb=no --leak-check=full --show-leak-kinds=definite \\
    --errors-for-leak-kinds=definite --error-exitcode=99 --log-file="$root/kesto-reports/%p" "$root/valgrind/kesto" "\$@"
END
chmod +x "$root/kesto"
