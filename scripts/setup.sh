# Sourced by run.sh, test.sh and bench.sh: installs missing packages and builds.

# Installs the named Debian packages that are missing.
install_packages() {
    local package missing=() root=()
    for package in "$@"; do
        dpkg-query -W -f='${Status}\n' "$package" 2>/dev/null | grep -q '^install ok installed$' ||
            missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            echo "These packages are missing, and installing them needs root or sudo:" \
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

# Enables packages of another architecture.
add_architecture() { # ARCHITECTURE
    dpkg --print-foreign-architectures | grep -qx "$1" && return 0
    if [ "$(id -u)" -eq 0 ]; then dpkg --add-architecture "$1"; else
        sudo dpkg --add-architecture "$1"; fi
}

# Configures and builds a preset in its directory. Prints the build's output only if it fails.
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
    # Leave the directory to the tree's owner, who could not build in one that belongs to root.
    if [ "$(id -u)" -eq 0 ]; then chown -R --reference=. "$directory" || true; fi
}

# For run.sh and test.sh, which share a build directory.
BUILD_PACKAGES=(g++ cmake python3 ninja-build libcli11-dev libasio-dev libgtest-dev
    nlohmann-json3-dev libavahi-compat-libdnssd-dev libavahi-client-dev)
# The platform's own base headers and libraries, and a platform tree's compiler.
ANDROID_PACKAGES=(clang android-libutils-dev android-liblog-dev android-libcutils-dev
    android-platform-frameworks-native-headers android-libnativehelper-dev)
# For the cross build.
AARCH64_PACKAGES=(g++-aarch64-linux-gnu qemu-user libstdc++6:arm64 libgtest-dev:arm64
    libavahi-compat-libdnssd-dev:arm64 libavahi-client-dev:arm64)
