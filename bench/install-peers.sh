#!/usr/bin/env bash
# Installs the Debian packages that add the peer libraries to the benchmark
# suite and the interchange tests: json-c, Apache Avro's C library and its
# Python library, zlib (Avro's deflate codec), Abseil, GLib and RapidJSON.
# The suite and the tests build and run without them; each one found adds its
# rows or tests at the next configure.
#
#   sudo bench/install-peers.sh        (or as root)
set -euo pipefail

packages=(libjson-c-dev libavro-dev python3-avro zlib1g-dev libabsl-dev libglib2.0-dev rapidjson-dev)

if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null 2>&1; then
    exec sudo "$0" "$@"
  fi
  echo "install-peers.sh: run as root (apt-get installs ${packages[*]})" >&2
  exit 1
fi

export DEBIAN_FRONTEND=noninteractive
apt-get update
apt-get install -y --no-install-recommends "${packages[@]}" pkg-config
