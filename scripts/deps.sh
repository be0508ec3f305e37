# Sourced by the other scripts: installs the Debian packages that building,
# running and testing need, and only when one of them is missing, so a second
# run costs one dpkg query.
MORVANE_PACKAGES=(
    cmake ninja-build g++ pkg-config
    qt6-base-dev qt6-base-dev-tools libgl-dev qt6-qpa-plugins libqt6svg6 qcoro-qt6-dev
    ffmpeg
    xvfb xauth dbus dbus-x11 openbox trayer xdotool wmctrl procps
    desktop-file-utils appstream dpkg-dev help2man
)

ensure_packages() {
    local wanted=("${MORVANE_PACKAGES[@]}" "$@") missing=() pkg
    for pkg in "${wanted[@]}"; do
        dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' \
            || missing+=("$pkg")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "Installing: ${missing[*]}"
    local sudo=""
    [ "$(id -u)" -eq 0 ] || sudo="sudo"
    export DEBIAN_FRONTEND=noninteractive
    $sudo apt-get update -qq
    $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# Configures (once) and builds one build tree, all of it or the targets named in
# BUILD_TARGETS. Usage: build_tree DIR [cmake options...]
build_tree() {
    local dir=$1; shift
    if [ ! -f "$dir/build.ninja" ]; then
        cmake -S "$MORVANE_ROOT" -B "$dir" -G Ninja "$@"
    fi
    # shellcheck disable=SC2086 # a list of target names
    cmake --build "$dir" -j "$(nproc)" ${BUILD_TARGETS:+--target $BUILD_TARGETS}
}

MORVANE_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
