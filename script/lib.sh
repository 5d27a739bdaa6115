# Shared by the commands in this folder: sourced, not run.

set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

BUILD_PACKAGES="cmake g++ ninja-build googletest libarchive-dev libbenchmark-dev libcli11-dev libfmt-dev
  libjs-chart.js libmd-dev libraw-dev libsqlite3-dev nlohmann-json3-dev pkgconf
  python3-jsonschema xz-utils"
ARM64_PACKAGES="g++-aarch64-linux-gnu qemu-user-static"

say() { printf '== %s\n' "$*"; }

die() {
  printf '%s: %s\n' "$(basename "$0")" "$*" >&2
  exit 1
}

# Installs those of the named Debian packages that are missing.
need_packages() {
  local missing=() package
  for package in "$@"; do
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)" = installed ] ||
      missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  say "installing ${missing[*]}"
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || die "these packages are missing and need root to install: ${missing[*]}"
    as_root=(sudo)
  fi
  "${as_root[@]}" apt-get update -qq
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# build PRESET [TARGET...]
build() {
  local preset=$1
  shift
  say "building $preset"
  [ -f "build/$preset/build.ninja" ] || cmake --preset "$preset" >/dev/null
  if [ $# -gt 0 ]; then
    cmake --build --preset "$preset" --target "$@"
  else
    cmake --build --preset "$preset"
  fi
}

build_and_test() {
  build "$1"
  say "testing $1"
  ctest --preset "$1"
}
