#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-only
# Usage: install_deps.sh build|check
# Installs the Debian packages that are missing: to build, or also to check style and locks.
set -euo pipefail

packages=(g++ cmake ninja-build xz-utils libboost-dev libcli11-dev nlohmann-json3-dev libfmt-dev
	liblzma-dev libgtest-dev libgmock-dev libbenchmark-dev librapidcheck-dev)
if [ "${1:-build}" = check ]; then
	packages+=(clang clang-tidy clang-format libclang-rt-14-dev)
fi

missing=()
for package in "${packages[@]}"; do
	status=$(dpkg-query -W -f '${Status}' "$package" 2>/dev/null || true)
	[ "$status" = "install ok installed" ] || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
	echo "These packages are missing; install them or run make as root: ${missing[*]}" >&2
	exit 1
fi
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
