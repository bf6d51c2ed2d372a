#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-only
# Usage: install_deps.sh build|check|device|lab [KERNEL]|other-kernels|ko [CROSS_COMPILE [LLVM]]
# Installs missing Debian packages. build: to build and test; check: also to check style and locks;
# device: to build programs for an arm64 device; lab: also a kernel for the lab and QEMU;
# other-kernels: to compile the module for several kernels; ko: to build the module with a compiler
# prefix.
set -euo pipefail

build=(g++ cmake ninja-build xz-utils libcli11-dev nlohmann-json3-dev libfmt-dev
	libarchive-dev robin-map-dev libgtest-dev libgmock-dev libbenchmark-dev librapidcheck-dev
	libboost-dev bzip2 gzip lz4 zstd python3 python3-jsonschema)
check=(clang clang-tidy clang-format libclang-rt-14-dev)
arm64=(gcc-aarch64-linux-gnu g++-aarch64-linux-gnu libc6-dev-arm64-cross)
device=("${arm64[@]}" g++ cmake ninja-build libcli11-dev nlohmann-json3-dev libfmt-dev)
kernel=(gcc linux-source-6.12 flex bison bc libssl-dev libelf-dev cpio kmod xz-utils rsync)
lab=("${device[@]}" "${kernel[@]}" python3 qemu-system-arm)
llvm19=(clang-19 lld-19 llvm-19)

# Tools that no package here provides, such as those of a compiler prefix.
require() {
	local tool

	for tool in "$@"; do
		command -v "$tool" >/dev/null && continue
		echo "install_deps: $tool is not there: is the prefix right?" >&2
		exit 1
	done
}

case ${1:-build} in
build) packages=("${build[@]}") ;;
check) packages=("${build[@]}" "${check[@]}") ;;
device) packages=("${device[@]}") ;;
lab)
	packages=("${lab[@]}")
	[ "${2:-}" != phone ] || packages+=("${llvm19[@]}")
	;;
other-kernels) packages=("${arm64[@]}" "${kernel[@]}" linux-source-6.1 "${llvm19[@]}") ;;
ko)
	packages=(g++ gcc)
	case ${3:-} in
	'' | 0)
		if [ "${2:-}" = aarch64-linux-gnu- ]; then
			packages+=("${arm64[@]}")
		else
			require "${2:-}gcc"
		fi
		;;
	1) which clang ld.lld llvm-ar >/dev/null || packages+=(clang lld llvm) ;;
	-*) which "clang$3" "ld.lld$3" "llvm-ar$3" >/dev/null ||
		packages+=("clang$3" "lld$3" "llvm$3") ;;
	*) require "$3clang" "$3ld.lld" "$3llvm-ar" ;;
	esac
	;;
*)
	echo "install_deps: unknown set of packages: $1" >&2
	exit 2
	;;
esac

missing=()
for package in "${packages[@]}"; do
	status=$(dpkg-query -W -f '${Status}' "$package" 2>/dev/null || true)
	[ "$status" = "install ok installed" ] || missing+=("$package")
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
	echo "Missing packages (install them, or run make as root): ${missing[*]}" >&2
	exit 1
fi
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
