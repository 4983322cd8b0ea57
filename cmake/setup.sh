# shellcheck shell=bash
# What run-demo.sh, run-tests.sh and check.sh share: packages, the configure step and the number of jobs.

# The major version of Qt to build with, and Debian's packages of its development files and translations.
qt_major=5
qt_package() {
    if ((qt_major == 6)); then echo qt6-base-dev; else echo qtbase5-dev; fi
}
qt_translations_package() {
    if ((qt_major == 6)); then echo qt6-translations-l10n; else echo qttranslations5-l10n; fi
}

# Installs those of the given packages that a Debian or Ubuntu system lacks, and a Chinese font where there
# is none. Does nothing on other systems: there configure() names what is missing.
install_missing_packages() {
    if [[ ! -e /etc/debian_version ]] || ! has_command apt-get || ! has_command dpkg-query; then
        return
    fi
    local package missing=()
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    has_chinese_font || is_installed fonts-wqy-microhei || missing+=(fonts-wqy-microhei)
    if ((${#missing[@]})); then
        install_packages "${missing[@]}"
    fi
}

is_installed() {
    dpkg-query --show --showformat='${db:Status-Status}\n' "$1" 2>/dev/null | grep -qx installed
}

has_chinese_font() {
    [[ -n "$(fc-list :lang=zh 2>/dev/null)" ]]
}

install_packages() {
    echo "Missing packages, to be installed now: $*"
    if ((EUID)) && ! command -v sudo >/dev/null; then
        echo "There is no sudo here. As root, run: apt-get install --no-install-recommends $*" >&2
        exit 1
    fi
    apt-get install --simulate "$@" >/dev/null 2>&1 || refresh_package_lists
    apt_get install --yes --no-install-recommends "$@" && return
    # Old lists name packages that the archive has replaced since.
    refresh_package_lists
    apt_get install --yes --no-install-recommends "$@" && return
    echo "These packages could not be installed: $*" >&2
    echo "See the messages above. On Ubuntu, the component \"universe\" has to be enabled." >&2
    exit 1
}

# A broken third-party source makes the refresh fail although the distribution's own lists are new, so
# whether it was enough is left to the installation.
refresh_package_lists() {
    echo "Refreshing the package lists."
    apt_get update || true
}

# Asks nothing: a configuration file that the user has changed stays as it is.
apt_get() {
    local variable command=(env DEBIAN_FRONTEND=noninteractive)
    for variable in http_proxy https_proxy no_proxy; do
        [[ -z "${!variable:-}" ]] || command+=("$variable=${!variable}") # sudo drops them
    done
    command+=(apt-get -o DPkg::Lock::Timeout=600 -o Dpkg::Use-Pty=0
        -o Dpkg::Options::=--force-confdef -o Dpkg::Options::=--force-confold "$@")
    if ((EUID)); then
        command=(sudo "${command[@]}")
    fi
    "${command[@]}" </dev/null
}

# Configures a build, a Release build where no argument says otherwise:
# configure SOURCE_DIR BUILD_DIR [CMAKE_ARGUMENT...]
configure() {
    local source_dir="$1" build_dir="$2"
    forget_moved_build "$source_dir" "$build_dir"
    if ! has_command cmake || ! cmake -S "$source_dir" -B "$build_dir" -DCMAKE_BUILD_TYPE=Release \
        -DCMAKE_CXX_FLAGS="${CXXFLAGS:-}" -DQTAGENT_QT_MAJOR="$qt_major" "${@:3}"; then
        explain_requirements
        exit 1
    fi
    export CMAKE_BUILD_PARALLEL_LEVEL="${CMAKE_BUILD_PARALLEL_LEVEL:-$(job_count)}"
    export CTEST_PARALLEL_LEVEL="${CTEST_PARALLEL_LEVEL:-$CMAKE_BUILD_PARALLEL_LEVEL}"
}

# CMake refuses a build folder that was copied or moved along with the sources.
forget_moved_build() {
    local source_dir="$1" build_dir="$2" cache="$2/CMakeCache.txt"
    if [[ -e "$cache" ]] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$source_dir" "$cache"; then
        rm -rf -- "$build_dir"
    fi
}

# One job a processor, but no more than one for each GiB of memory.
job_count() {
    local jobs key value
    jobs="$(nproc 2>/dev/null || getconf _NPROCESSORS_ONLN)"
    while read -r key value _; do
        if [[ "$key" == MemAvailable: ]] && ((value / 1048576 < jobs)); then
            jobs=$((value / 1048576))
        fi
    done 2>/dev/null </proc/meminfo || true
    echo $((jobs > 0 ? jobs : 1))
}

# Names what the project needs and this system does not seem to have, and how to get it.
explain_requirements() {
    {
        echo
        echo "The project cannot be built here. Missing, as far as can be seen:"
        list_missing_requirements
        cat <<'HOW'
How to get it:
  Debian 12, Ubuntu 22.04 and later:
              apt-get install g++ make cmake qtbase5-dev libqt5sql5-sqlite libcpp-httplib-dev pkg-config
  Fedora:     dnf install gcc-c++ make cmake qt5-qtbase-devel cpp-httplib-devel pkgconf-pkg-config
  openSUSE:   zypper install gcc-c++ make cmake libqt5-qtbase-devel libQt5Sql5-sqlite cpp-httplib-devel pkg-config
  Arch Linux: pacman -S base-devel cmake qt5-base cpp-httplib
  macOS:      xcode-select --install; brew install cmake qt@5 cpp-httplib pkg-config
              export CMAKE_PREFIX_PATH="$(brew --prefix qt@5)"
For Qt 6 instead of Qt 5: qt6-base-dev and libqt6sql6-sqlite on Debian, qt6-qtbase-devel on Fedora,
qt6-base-devel and qt6-sql-sqlite on openSUSE, qt6-base on Arch Linux, qt on macOS.
HOW
    } >&2
}

list_missing_requirements() {
    local found=1
    has_command "${CXX:-c++}" || has_command g++ || has_command clang++ || missing "a C++17 compiler"
    has_command make || has_command ninja || missing "make or Ninja"
    has_cmake || missing "CMake 3.22 or later"
    has_file "cmake/Qt${qt_major}Widgets" || missing "the development files of Qt $qt_major (Core, Network, Widgets)"
    has_file "cmake/Qt${qt_major}Test" || missing "the development files of Qt $qt_major Test, for the tests"
    has_command pkg-config || missing "pkg-config, for the tests"
    has_file httplib.h || missing "cpp-httplib, for the tests"
    has_chinese_font || missing "a font with Chinese characters, for the demo's texts"
    ((found)) || return 0
    echo "  nothing: see the messages above"
}

missing() {
    found=0
    echo "  $1"
}

has_command() {
    command -v "$1" >/dev/null
}

has_cmake() {
    local version
    version="$(cmake --version 2>/dev/null)" || return
    [[ "$version" =~ version\ ([0-9]+)\.([0-9]+) ]] || return
    ((BASH_REMATCH[1] > 3 || (BASH_REMATCH[1] == 3 && BASH_REMATCH[2] >= 22)))
}

# Whether there is a library folder or an include folder with that file.
has_file() {
    local prefix prefixes
    IFS=: read -r -a prefixes <<<"${CMAKE_PREFIX_PATH:-}"
    for prefix in /usr /usr/local /opt/homebrew /opt/homebrew/opt/qt@5 /usr/local/opt/qt@5 \
        ${prefixes[@]+"${prefixes[@]}"}; do
        compgen -G "$prefix/lib*/$1" || compgen -G "$prefix/lib/*/$1" || compgen -G "$prefix/include/$1" || continue
        return 0
    done >/dev/null
    return 1
}
