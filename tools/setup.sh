# Sourced by ./run and ./test: brings the Debian packages that a purpose needs onto this machine.
#
#   . tools/setup.sh
#   setup_need build board        # installs what is missing, and only that; a second call is a silent check
#
# Purposes: build, test, board, arm, cross, package, bench, fuzz, lint, mutation, coverage. Packages are installed by name,
# without recommendations; root is asked for through sudo only when something is missing.

setup_packages() {
    case $1 in
        build) echo cmake g++ ninja-build zlib1g-dev libgtest-dev libgmock-dev libcli11-dev nlohmann-json3-dev libtomlplusplus-dev \
            libfmt-dev libserialport-dev ;;
        test) echo python3 python3-pytest python3-pytest-xdist busybox-static ser2net python3-labgrid ;;
        board)
            # Kernel and user space of the board are not installed here: it fetches and unpacks those packages itself. The
            # last two are firmware that the tests' images are made of.
            echo qemu-system-arm u-boot-qemu u-boot-tools device-tree-compiler linux-kbuild-6.1 make python3 mtd-utils \
                libubootenv-tool kmod seabios ipxe-qemu
            ;;
        arm) echo g++-arm-linux-gnueabi qemu-user-static python3 ;;
        cross) echo g++-arm-linux-gnueabihf g++-aarch64-linux-gnu qemu-user-static ;;
        package) echo pandoc man-db mandoc lintian mmdebstrap uidmap bash-completion dpkg-dev ;;
        # The server that kesto's is compared with is fetched, not installed; this is a library of it.
        bench) echo busybox-static curl libwrap0 ;;
        fuzz) echo clang libclang-rt-14-dev llvm ;;
        lint) echo clang-format clang-tidy ;;
        mutation) echo python3 python3-pytest python3-clang mold ;;
        coverage) echo clang libclang-rt-14-dev llvm ;;
        *) echo "setup: no such purpose: $1" >&2; return 1 ;;
    esac
}

# setup_missing PACKAGE...: those that are not installed, one per line.
setup_missing() {
    local package
    for package in "$@"; do
        dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null | grep -qx installed || echo "$package"
    done
}

# setup_as_root COMMAND...: runs it directly for root, else through sudo.
setup_as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        echo "setup: this needs root, and there is no sudo here; run as root: $*" >&2
        return 1
    fi
}

# setup_need PURPOSE...: installs the missing packages of these purposes. Fails when one could not be installed.
setup_need() {
    local purpose packages='' list missing
    for purpose in "$@"; do
        list=$(setup_packages "$purpose") || return 1
        packages="$packages $list"
    done
    # shellcheck disable=SC2086  # the lists are words
    missing=$(setup_missing $packages | sort -u | tr '\n' ' ')
    [ -n "$missing" ] || return 0
    echo "setup: installing Debian packages: $missing"
    setup_as_root apt-get -qq update &&
        setup_as_root env DEBIAN_FRONTEND=noninteractive \
            apt-get -qq -y --no-install-recommends install $missing >/dev/null || {
        echo "setup: could not install: $missing" >&2
        return 1
    }
}
