#!/usr/bin/env bash
# Installs, quietly and only when missing, every Debian package that the build, the tests
# and the demo need. Never touches ~/.wine.
set -euo pipefail

packages=(
  cmake ninja-build g++ clang libclang-rt-14-dev
  googletest libgtest-dev libbenchmark-dev libfmt-dev libstb-dev libicu-dev
  g++-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64
  wine64 wixl msitools
)

missing=()
for p in "${packages[@]}"; do
  status=$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null || true)
  [ "$status" = "install ok installed" ] || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq >/dev/null
$sudo apt-get install -y -qq "${missing[@]}" >/dev/null
