#!/usr/bin/env bash
# Checks layout, code, spelling, scripts and manual, and names at the end what failed. Names what is missing
# here and how to get it; with --install as the argument, installs it first.
set -euo pipefail
project_dir="$(CDPATH='' cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)"
build_dir="$project_dir/build/release"
# shellcheck source=cmake/setup.sh disable=SC1091
source "$project_dir/cmake/setup.sh"

# What is called here, and Debian's package of each.
declare -A tools=([git]=git [clang-format]=clang-format [run-clang-tidy]=clang-tidy [cppcheck]=cppcheck
    [codespell]=codespell [shellcheck]=shellcheck [doxygen]=doxygen)
failed=()

main() {
    if [[ "${1:-}" == --install ]]; then
        install_missing_packages g++ make cmake "$(qt_package)" libcpp-httplib-dev pkg-config \
            libbenchmark-dev "${tools[@]}"
    fi
    require_tools
    cd "$project_dir"
    # The code that targets generate has to be there for clang-tidy. The tests' build folder has it.
    configure "$project_dir" "$build_dir" -DQTAGENT_BUILD_DEMO=ON -DQTAGENT_BUILD_EXAMPLES=ON \
        -DQTAGENT_BUILD_TESTS=ON -DQTAGENT_BUILD_BENCHMARKS=ON \
        -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DCMAKE_GLOBAL_AUTOGEN_TARGET=ON
    cmake --build "$build_dir" --target autogen

    check format
    check spelling
    check scripts
    check manual
    check cppcheck
    check clang_tidy
    report
}

require_tools() {
    local tool missing_packages=()
    for tool in "${!tools[@]}"; do
        has_command "$tool" || missing_packages+=("${tools[$tool]}")
    done
    ((${#missing_packages[@]})) || return 0
    echo "Missing: ${missing_packages[*]}" >&2
    echo "How to get it on Debian and Ubuntu: ./check.sh --install, or apt-get install ${missing_packages[*]}" >&2
    exit 1
}

check() {
    echo "== $1"
    "check_$1" || failed+=("$1")
}

check_format() {
    project_files '*.cpp' '*.h' | xargs -0 clang-format --dry-run --Werror
}

check_spelling() {
    project_files ':!fuzz/corpus' ':!*.png' ':!*.ico' | xargs -0 codespell
}

check_scripts() {
    project_files '*.sh' .ci/run | xargs -0 shellcheck
}

check_manual() {
    cmake --build "$build_dir" --target docs
}

check_cppcheck() {
    cppcheck --quiet --project="$build_dir/compile_commands.json" -j "$(job_count)" --library=qt \
        --enable=warning,performance,portability --inline-suppr --suppress="*:$build_dir/*" --error-exitcode=1
}

check_clang_tidy() {
    local log="$build_dir/clang-tidy.log"
    # It counts what it did not show on standard error.
    run-clang-tidy -quiet -p "$build_dir" -j "$(job_count)" \
        "^$project_dir/(qtagent|demo|examples|tests|benchmarks|fuzz)/" >"$log" 2>&1 && return
    grep -A 5 -E '(warning|error): ' "$log" || tail -n 20 "$log"
    return 1
}

# The project's files that match the given patterns, each ended by a NUL.
project_files() {
    git ls-files -z --cached --others --exclude-standard -- "$@"
}

report() {
    if ((${#failed[@]})); then
        echo "Failed: ${failed[*]}" >&2
        exit 1
    fi
    echo "All checks passed."
}

main "$@"
