#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-2.0-only
# Usage: check_module.sh SOURCE_DIR C_COMPILER OBJECT...
# Fails if the module refers to a symbol that the kernel interface does not declare, includes a
# header from outside it or has static constructors, or if the interface is not valid C.
set -euo pipefail

source_dir=$1
compiler=$2
shift 2
include=(-I"$source_dir/kernel/include" -I"$source_dir/kernel/hosted/include"
	-I"$source_dir/platform/include" -I"$source_dir/include")
failed=0

complain() {
	echo "check_module: $*" >&2
	failed=1
}

# Freestanding standard headers that the module may use besides the kernel's.
freestanding='array|bit|cstddef|cstdint|span|type_traits|utility'

while IFS=: read -r file line text; do
	complain "${file#"$source_dir"/}:$line: ${text## } is outside the kernel interface"
done < <(grep -nE '^[[:space:]]*#[[:space:]]*include' "$source_dir"/drivers/mem_adapter/*.{h,cpp} |
	grep -vE "include (<kernel/[a-z_]+\.h>|<platform/[a-z_]+\.h>|<uapi/tarn_(memcheck|lmkd)\.h>|\"[a-z_]+\.h\"|<($freestanding)>)\$" || true)

all_headers=$(cd "$source_dir/kernel/include" && printf '#include <%s>\n' kernel/*.h
	cd "$source_dir/platform/include" && printf '#include <%s>\n' platform/*.h)
interface=$("$compiler" -std=gnu11 -Wall -Wextra -Werror -ffreestanding -E -P "${include[@]}" -x c - \
	<<<"$all_headers")
"$compiler" -std=gnu11 -Wall -Wextra -Werror -ffreestanding -fsyntax-only "${include[@]}" -x c - \
	<<<"$all_headers" || complain "the kernel interface is not valid C"

# Names in the interface that look like functions or objects.
declared=$(grep -oE '\b[A-Za-z_][A-Za-z0-9_]*[[:space:]]*(\(|;|\[\])' <<<"$interface" |
	grep -oE '^[A-Za-z_][A-Za-z0-9_]*' | sort -u)
defined=$(nm --defined-only "$@" | awk 'NF == 3 { print $3 }' | sort -u)
# The sanitizers' runtime is not part of the module.
undefined=$(nm -u "$@" | awk 'NF == 2 { print $2 }' | sort -u |
	grep -vE '^(__(asan|ubsan|tsan|sanitizer|lsan)_|_GLOBAL_OFFSET_TABLE_$)' || true)
for symbol in $(comm -23 <(echo "$undefined") <(sort -u <(echo "$declared") <(echo "$defined"))); do
	complain "the module refers to $symbol, which the kernel interface does not declare"
done

# Under a sanitizer the constructors are the sanitizer's own: it registers the module's globals.
if ! grep -qE '__(asan|tsan)_' < <(nm -u "$@") &&
	objdump -h "$@" | grep -qE '\.(init_array|ctors)'; then
	complain "the module has static constructors"
fi
exit "$failed"
