# Sourced by the front doors: installs what is missing, and builds.

# Installs those of the named Debian packages that are not there.
install_packages() {
    local package missing=() root=()
    for package in "$@"; do
        dpkg-query -W -f='${Status}\n' "$package" 2>/dev/null | grep -q '^install ok installed$' ||
            missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            echo "These packages are missing, and there is neither root nor sudo to install them:" \
                "${missing[*]}" >&2
            return 1
        fi
        root=(sudo)
    fi
    echo "Installing ${missing[*]}" >&2
    "${root[@]}" apt-get update -qq >&2 &&
        DEBIAN_FRONTEND=noninteractive "${root[@]}" apt-get install -y -qq --no-install-recommends \
            "${missing[@]}" >&2
}

# Lets packages of another architecture be installed.
add_architecture() { # ARCHITECTURE
    dpkg --print-foreign-architectures | grep -qx "$1" && return 0
    if [ "$(id -u)" -eq 0 ]; then dpkg --add-architecture "$1"; else
        sudo dpkg --add-architecture "$1"; fi
}

# Configures and builds a preset into its directory; what that prints is shown when it fails.
build_preset() { # PRESET DIRECTORY [TARGET...]
    local preset=$1 directory=$2 log
    shift 2
    mkdir -p "$directory"
    log=$directory/build.log
    echo "Building in $directory" >&2
    if ! { cmake --preset "$preset" && cmake --build "$directory" ${1:+--target "$@"}; } \
        >"$log" 2>&1; then
        cat "$log" >&2
        return 1
    fi
    # What root builds, the tree's owner can build on.
    if [ "$(id -u)" -eq 0 ]; then chown -R --reference=. "$directory" || true; fi
}

# For both front doors, which share a build directory.
BUILD_PACKAGES=(g++ cmake ninja-build libcli11-dev libasio-dev libgtest-dev
    libavahi-compat-libdnssd-dev libavahi-client-dev)
# For the cross build.
AARCH64_PACKAGES=(g++-aarch64-linux-gnu qemu-user clang libstdc++6:arm64 libgtest-dev:arm64
    libavahi-compat-libdnssd-dev:arm64 libavahi-client-dev:arm64)
