#!/usr/bin/env bash
# Installs what is missing, builds the demo and starts it in the current folder. Where no display opens,
# orvane-tour saves pictures of the window instead. With --assistant as the first argument it is
# orvane-assistant that is built and started. Further arguments are handed on to the program.
set -euo pipefail
project_dir="$(CDPATH='' cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)"
build_dir="$project_dir/build/release"
# shellcheck source=cmake/setup.sh disable=SC1091
source "$project_dir/cmake/setup.sh"

# The offscreen platform always opens, and nobody would see the window. The program is one that ends by itself.
display_opens() {
    case "${QT_QPA_PLATFORM:-}" in offscreen* | minimal*) return 1 ;; esac
    # Qt ends every program, also one that only shows its help, where it cannot open a display.
    { (ulimit -c 0 && "$1" --help); } >/dev/null 2>&1
}

packages=(g++ make cmake qtbase5-dev qttranslations5-l10n libqt5sql5-sqlite)
if [[ -n "${WAYLAND_DISPLAY:-}" && -z "${DISPLAY:-}" ]]; then
    packages+=(qtwayland5)
fi
if [[ "${1:-}" == --assistant ]]; then
    packages+=(qttools5-dev qttools5-dev-tools)
fi
install_missing_packages "${packages[@]}"
if [[ "${1:-}" == --assistant ]]; then
    configure "$project_dir" "$build_dir" -DQTAGENT_BUILD_ASSISTANT=ON -DQTAGENT_BUILD_TESTS=OFF
    cmake --build "$build_dir" --target orvane-assistant
    assistant="$build_dir/assistant/orvane-assistant"
    if (($# > 1)) || display_opens "$assistant"; then
        exec "$assistant" "${@:2}"
    fi
    pictures="$(mktemp -d)"
    echo "No display can be opened: saving pictures of every state to $pictures."
    QT_QPA_PLATFORM=offscreen exec "$assistant" --tour "$pictures"
fi
configure "$project_dir" "$build_dir" -DQTAGENT_BUILD_DEMO=ON -DQTAGENT_BUILD_TESTS=OFF
cmake --build "$build_dir" --target orvane-demo orvane-tour

if display_opens "$build_dir/demo/orvane-tour"; then
    exec "$build_dir/demo/orvane-demo" "$@"
fi
echo "No display can be opened: running orvane-tour, which saves a picture of every page."
QT_QPA_PLATFORM=offscreen exec "$build_dir/demo/orvane-tour" "$@"
