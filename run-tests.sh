#!/usr/bin/env bash
# Installs what is missing, builds everything and runs the tests; the exit status is theirs. Arguments are
# handed on to CTest, for example -R tst_chat.
set -euo pipefail
project_dir="$(CDPATH='' cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)"
build_dir="$project_dir/build/release"
# shellcheck source=cmake/setup.sh disable=SC1091
source "$project_dir/cmake/setup.sh"

install_missing_packages g++ make cmake qtbase5-dev libcpp-httplib-dev pkg-config
configure "$project_dir" "$build_dir" -DQTAGENT_BUILD_DEMO=ON -DQTAGENT_BUILD_TESTS=ON
if [[ "$(ctest --test-dir "$build_dir" --show-only)" == *"Total Tests: 0"* ]]; then
    explain_requirements
    exit 1
fi
cmake --build "$build_dir"
exec ctest --test-dir "$build_dir" --output-on-failure --no-tests=error "$@"
