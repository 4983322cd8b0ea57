#!/usr/bin/env bash
# Runs the client against MCP servers of other makers, which npm installs: run-npm-servers.sh [BUILD_DIR], by
# default build/dev. Needs node and npm, and the network for the first run.
set -euo pipefail

source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build_dir=$(realpath "${1:-$source_dir/build/dev}")

if ! command -v npm >/dev/null; then
    echo "npm is missing: the servers are not run"
    exit 0
fi
npm install --no-audit --no-fund --prefix "$build_dir/npm" \
    @modelcontextprotocol/server-everything@2026.8.31 @modelcontextprotocol/server-filesystem@2026.8.31
cmake --build "$build_dir" --target tst_npmservers
export QTAGENT_NPM_SERVERS="$build_dir/npm"
ctest --test-dir "$build_dir" -R tst_npmservers --output-on-failure --no-tests=error
