#!/usr/bin/env bash
# Checks layout, code, spelling and scripts, and names at the end what failed. Names what is missing
# here and how to get it; with --install it installs that first. With --thorough clang-tidy also goes over
# tests, benchmarks and fuzz targets, which takes half an hour on two cores.
set -euo pipefail
project_dir="$(CDPATH='' cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd)"
build_dir="$project_dir/build/check"
# shellcheck source=cmake/setup.sh disable=SC1091
source "$project_dir/cmake/setup.sh"

# What is called here, and Debian's package of each.
declare -A tools=([git]=git [clang-format]=clang-format [run-clang-tidy]=clang-tidy [cppcheck]=cppcheck
    [codespell]=codespell [shellcheck]=shellcheck)
checks=(format spelling scripts cppcheck clang_tidy)
failed=()

main() {
    local argument
    for argument in "$@"; do
        case "$argument" in
            --install) install_missing_packages g++ make cmake "$(qt_package)" libcpp-httplib-dev \
                pkg-config libbenchmark-dev "${tools[@]}" ;;
            --thorough) checks+=(clang_tidy_of_tests) ;;
            *) echo "Usage: ${0##*/} [--install] [--thorough]" >&2 && exit 1 ;;
        esac
    done
    require_tools
    cd "$project_dir"
    for argument in "${checks[@]}"; do
        check "$argument"
    done
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
    ("check_$1") || failed+=("$1")
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

# It takes coroutines for functions that return nothing; where one does, the compilers tell.
check_cppcheck() {
    cppcheck --quiet -j "$(job_count)" -I . --library=qt --enable=warning,performance,portability \
        --inline-suppr --suppress=missingReturn --error-exitcode=1 qtagent assistant demo docs examples tests benchmarks fuzz
}

# Qt's headers cost most of the time, so each target is one translation unit.
check_clang_tidy() {
    prepare_clang_tidy product -DQTAGENT_BUILD_TESTS=OFF \
        -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=0 &&
        run_clang_tidy product '/unity_0_cxx\.cxx$' -checks=-bugprone-suspicious-include
}

check_clang_tidy_of_tests() {
    prepare_clang_tidy tests -DQTAGENT_BUILD_TESTS=ON -DQTAGENT_BUILD_BENCHMARKS=ON &&
        run_clang_tidy tests '/(tests|tests/support|benchmarks|fuzz)/[^/]+\.cpp$'
}

# prepare_clang_tidy FOLDER [CMAKE_ARGUMENT...]: the code that targets generate has to be there.
prepare_clang_tidy() {
    configure "$project_dir" "$build_dir/$1" -DQTAGENT_BUILD_DEMO=ON -DQTAGENT_BUILD_ASSISTANT=ON -DQTAGENT_BUILD_EXAMPLES=ON \
        -DCMAKE_EXPORT_COMPILE_COMMANDS=ON -DCMAKE_GLOBAL_AUTOGEN_TARGET=ON "${@:2}" &&
        cmake --build "$build_dir/$1" --target autogen
}

# run_clang_tidy FOLDER FILES [ARGUMENT...]: any finding in the project's own files is a failure, and so is
# finding no file.
run_clang_tidy() {
    local log="$build_dir/$1/clang-tidy.log"
    run-clang-tidy -quiet -p "$build_dir/$1" -j "$(job_count)" \
        -header-filter='/(qtagent|assistant|demo|docs|examples|tests|benchmarks|fuzz)/' \
        "${@:3}" "$2" >"$log" 2>&1 || { tail -n 20 "$log" && return 1; }
    [[ -s "$log" ]] && ! grep -A 5 -E '(warning|error): ' "$log"
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
