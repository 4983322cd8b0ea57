#!/usr/bin/env bash
# Installs what is missing, builds the demo and starts it in the current folder. Where no display opens,
# orvane-tour saves pictures of the window instead. Arguments are handed on to the program.
set -euo pipefail
project_dir="$(CDPATH='' cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)"
build_dir="$project_dir/build/release"
# shellcheck source=cmake/setup.sh disable=SC1091
source "$project_dir/cmake/setup.sh"

# A build folder on a display-less machine may name the offscreen platform: nobody would see that window.
display_opens() {
    case "${QT_QPA_PLATFORM:-}" in offscreen* | minimal*) return 1 ;; esac
    { (ulimit -c 0 && "$build_dir/cmake/displaycheck/orvane-displaycheck"); } >/dev/null 2>&1
}

# The pictures have Chinese names, which Qt cannot write in the "C" locale.
use_utf8_locale() {
    [[ "$(locale charmap 2>/dev/null)" == UTF-8 ]] || export LC_ALL=C.UTF-8
}

packages=(g++ make cmake qtbase5-dev)
if [[ -n "${WAYLAND_DISPLAY:-}" && -z "${DISPLAY:-}" ]]; then
    packages+=(qtwayland5)
fi
install_missing_packages "${packages[@]}"
configure "$project_dir" "$build_dir" -DQTAGENT_BUILD_DEMO=ON -DQTAGENT_BUILD_TESTS=OFF
cmake --build "$build_dir" --target orvane-demo orvane-tour orvane-displaycheck
use_utf8_locale

if display_opens; then
    exec "$build_dir/demo/orvane-demo" "$@"
fi
echo "No display can be opened: running orvane-tour, which saves a picture of every page."
QT_QPA_PLATFORM=offscreen exec "$build_dir/demo/orvane-tour" "$@"
