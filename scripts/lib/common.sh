# Shared by the scripts in scripts/: package check and build configuration.

TAPWRIGHT_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
TAPWRIGHT_PACKAGES=(
    cmake g++ make
    qtbase5-dev qttools5-dev qttools5-dev-tools qttranslations5-l10n
    libasio-dev libgtest-dev libxtst-dev libxi-dev x11-xkb-utils
    fonts-wqy-microhei
    xvfb xauth xdotool x11-utils socat gawk iproute2
    dpkg-dev mount # cpack's dependency list; the read-only mount of the package test
)
# What scripts/package needs beyond the list above.
TAPWRIGHT_PACKAGE_TOOLS=(lintian)

# Installs whatever Debian package of the list is missing; quiet when all are there.
tapwright_install_packages() {
    local missing=()
    local pkg
    for pkg in "${TAPWRIGHT_PACKAGES[@]}" "$@"; do
        if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
            missing+=("$pkg")
        fi
    done
    [ ${#missing[@]} -eq 0 ] && return 0

    local sudo=()
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            echo "Tapwright needs these packages: ${missing[*]} (run as root or install sudo)" >&2
            return 1
        fi
        sudo=(sudo)
    fi
    echo "Installing: ${missing[*]}"
    "${sudo[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# tapwright_build <build dir> [cmake options...]
tapwright_build() {
    local dir=$1
    shift
    cmake -S "$TAPWRIGHT_ROOT" -B "$TAPWRIGHT_ROOT/$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
    cmake --build "$TAPWRIGHT_ROOT/$dir" -j"$(nproc)"
}
