#!/usr/bin/env bash
# Fetches DuckDB's C library and header for the Arrow tests and example,
# through the npm registry (npm pack; nothing is installed or run):
#   libduckdb.so  from @duckdb/node-bindings-linux-x64@$LIB_VERSION
#   duckdb.h      from duckdb@$HEADER_VERSION (its bundled source tree)
# into ${QEL_DUCKDB_DIR:-$HOME/.cache/qel-duckdb}.  The two versions must
# match (the same DuckDB release); the tests check the pair works.
# Usage: scripts/fetch-duckdb.sh   (then configure again)
set -euo pipefail
LIB_VERSION="${QEL_DUCKDB_LIB_VERSION:-1.4.4-r.4}"
HEADER_VERSION="${QEL_DUCKDB_HEADER_VERSION:-1.4.4}"
dir="${QEL_DUCKDB_DIR:-$HOME/.cache/qel-duckdb}"
if [ -f "$dir/libduckdb.so" ] && [ -f "$dir/duckdb.h" ] && [ "$(cat "$dir/VERSION" 2>/dev/null)" = "$LIB_VERSION" ]; then
  echo "DuckDB $LIB_VERSION already in $dir"
  exit 0
fi
command -v npm >/dev/null || { echo "npm is needed to fetch DuckDB" >&2; exit 1; }
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
(cd "$work" && npm pack --silent "@duckdb/node-bindings-linux-x64@$LIB_VERSION" "duckdb@$HEADER_VERSION" >/dev/null)
mkdir -p "$dir"
tar -xzf "$work"/duckdb-node-bindings-linux-x64-*.tgz -C "$work" package/libduckdb.so
cp "$work/package/libduckdb.so" "$dir/libduckdb.so"
tar -xzf "$work"/duckdb-"$HEADER_VERSION".tgz -C "$work" package/src/duckdb/src/include/duckdb.h
cp "$work/package/src/duckdb/src/include/duckdb.h" "$dir/duckdb.h"
echo "$LIB_VERSION" > "$dir/VERSION"
echo "DuckDB $LIB_VERSION (header $HEADER_VERSION) in $dir"
