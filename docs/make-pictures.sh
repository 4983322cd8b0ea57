#!/usr/bin/env bash
# Installs what is missing, builds orvane-pictures and makes all pictures of the manual with it: of each
# widget, of the window of an example and of each page of the demo. They replace those in docs/images, or go
# to the folder given, once all of them are made. No display and no network is needed, and nothing that the
# caller has configured shows in a picture. The demo's agent writes its report to /tmp, as its picture says.
set -euo pipefail
project_dir="$(CDPATH='' cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="$project_dir/build/pictures" # of its own: the options of another build may be anything
# shellcheck source=cmake/setup.sh disable=SC1091
source "$project_dir/cmake/setup.sh"

if (($# > 1)) || [[ "${1:-}" == -* ]]; then
    echo "Usage: ${0##*/} [DIR]" >&2
    exit 1
fi
picture_dir="${1:-$project_dir/docs/images}"
mkdir -p -- "$picture_dir"

install_missing_packages g++ make cmake qtbase5-dev imagemagick
configure "$project_dir" "$build_dir" -DQTAGENT_BUILD_DEMO=ON -DQTAGENT_BUILD_TESTS=OFF
cmake --build "$build_dir" --target orvane-pictures

work_dir="$(mktemp -d)"
trap 'rm -rf -- "$work_dir"' EXIT
mkdir "$work_dir/pictures"
(cd "$work_dir" && env -i LC_ALL=C.UTF-8 HOME="$work_dir" XDG_RUNTIME_DIR="$work_dir" \
    "$build_dir/demo/orvane-pictures" pictures)
mogrify +dither -colors 256 -define png:compression-level=9 -strip "$work_dir/pictures"/*.png # a third of the size
cp -- "$work_dir/pictures"/*.png "$picture_dir/"
echo "The pictures are in $picture_dir."
