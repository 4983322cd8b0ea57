#!/usr/bin/env bash
# Installs what is missing, builds everything and runs the tests; the exit status is theirs. With --qt6 as the
# first argument all of it is done with Qt 6, in a debug build, whose assertions are checked too; for its time it has no
# debug information, and some files of a library together in a unit. Further arguments are handed on to CTest, for
# example -R tst_chat.
set -euo pipefail
project_dir="$(CDPATH='' cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)"
build_dir="$project_dir/build/release"
build_options=(-DCMAKE_BUILD_TYPE=Release)
# shellcheck source=cmake/setup.sh disable=SC1091
source "$project_dir/cmake/setup.sh"

if [[ "${1:-}" == --qt6 ]]; then
    qt_major=6
    build_dir="$project_dir/build/debug-qt6"
    build_options=(-DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG= -DCMAKE_UNITY_BUILD=ON)
    shift
fi

translation_packages=(qttools5-dev qttools5-dev-tools)
if ((qt_major == 6)); then
    translation_packages=(qt6-tools-dev qt6-l10n-tools)
fi
install_missing_packages g++ make cmake "$(qt_package)" "$(qt_translations_package)" \
    "libqt${qt_major}sql${qt_major}-sqlite" libcpp-httplib-dev pkg-config desktop-file-utils appstream dpkg-dev \
    file doxygen "${translation_packages[@]}"
configure "$project_dir" "$build_dir" "${build_options[@]}" -DQTAGENT_BUILD_DEMO=ON \
    -DQTAGENT_BUILD_ASSISTANT=ON -DQTAGENT_BUILD_EXAMPLES=ON -DQTAGENT_BUILD_TESTS=ON
if [[ "$(ctest --test-dir "$build_dir" --show-only)" != *" tst_chatmodel"* ]]; then
    explain_requirements
    exit 1
fi
cmake --build "$build_dir"
exec ctest --test-dir "$build_dir" --output-on-failure --no-tests=error "$@"
