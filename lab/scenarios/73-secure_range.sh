# SPDX-License-Identifier: GPL-2.0-only
# lane: 4
# limit: 60 s
# Ranges of the linear map in a 4 MiB block that the client owns are changed, checked in the
# kernel's page table dump and by reads and writes that fault harmlessly, and restored. Pages beside
# them are read all the while. Pages that the kernel does not map are mapped and unmapped again.
. /lab/scenarios/lib.sh

load_all
read -r address physical <<END
$(services block)
END
echo "block at $address, $physical"
dump=/sys/kernel/debug/kernel_page_tables

# Its address as in the dump: without the tag that memory tagging keeps in the top byte.
page_at() { # PAGE
	printf '0x%016x' $(((address | 0xff << 56) + $1 * 4096))
}

# The line of the dump that covers the address of a page.
entry_of() { # PAGE
	awk -v at="$(page_at "$1")" '{
		split($1, range, "-")
		if (range[1] "x" <= at "x" && at "x" < range[2] "x") { print; exit }
	}' $dump
}

entry_is() { # WHAT PAGE WORD...: checks that its line has these words
	entry=$(entry_of "$2")
	what=$1
	shift 2
	for word in "$@"; do
		echo " $entry " | grep -q " $word " || fail "$what: $word is not in: $entry"
	done
}

faults() { # peek|poke PAGE [VALUE]
	refused services "$@"
	grep -q "Bad address" refused || fail "$*: $(cat refused)"
}

# A phone's kernel maps its memory by pages, to protect its code under each of its addresses.
block=BLK
[ "$LAB_KERNEL" != phone ] || block=PTE
echo "before: $(entry_of 0)"
entry_is "before" 0 RW NX $block
equal "page 511" "$(services peek 511)" 511
background services watch 0 99 102 300 450 509 514 700 900 >watched 2>&1
watcher=$!

# Two pages of a block become read-only: the block is split, and its other pages are unchanged.
services range 100 2 100 read-only
entry_is "read-only" 100 PTE ro NX
entry_is "read-only" 101 PTE ro
for page in 0 99 102 511; do
	entry_is "beside it" $page PTE RW NX
done
entry_is "another block" 512 $block RW
for page in 98 103 512; do
	services poke $page $((page + 1000))
	equal "written beside it" "$(services peek $page)" $((page + 1000))
done
for page in 100 101; do
	equal "read from it" "$(services peek $page)" $page
	faults poke $page 77
	equal "unchanged" "$(services peek $page)" $page
done
services range 100 2 100 ordinary
entry_is "restored" 100 PTE RW NX
services poke 100 1100
equal "written when restored" "$(services peek 100)" 1100
services poke 100 100

# A whole block is changed in place. (One in a contiguous run would be left alone.)
services range 512 512 512 read-only
entry_is "a whole block" 512 ro $block
[ $block != BLK ] || entry_is "a whole block" 512 2M PMD
faults poke 1023 1
services range 512 512 512 ordinary
entry_is "a whole block, restored" 512 RW $block
services poke 1023 1023
services poke 512 512

# Remove the mapping, across the border of two blocks.
services range 510 4 510 none
for page in 510 511 512 513; do
	faults peek $page
	faults poke $page 1
done
equal "before them" "$(services peek 509)" 509
equal "behind them" "$(services peek 514)" 514
entry_is "the second block" 514 PTE RW
services range 510 4 510 ordinary
for page in 510 511 513; do
	equal "page $page" "$(services peek $page)" $page
done

# Map to other frames: reads show their contents, and writes go to them.
services range 10 3 20 ordinary
for page in 10 11 12; do
	equal "another frame" "$(services peek $page)" $((page + 10))
done
services poke 11 4711
equal "through the other address" "$(services peek 21)" 4711
services range 10 3 10 ordinary
equal "the frame itself" "$(services peek 11)" 11

# Once more: the tables are still there, and nothing is split again.
services range 100 2 100 read-only
faults poke 100 1

[ "$(awk '{ print $3 }' /proc/$watcher/stat)" != Z ] || fail "pages beside them: $(cat watched)"

# Where nothing is mapped, entries are empty: page 1024 is the first of such an area.
faults peek 1024
services range 1026 3 1026 ordinary
for page in 1026 1027 1028; do
	services poke $page $page
	equal "page $page" "$(services peek $page)" $page
done
for page in 1025 1029; do
	faults peek $page
done
services range 1026 3 1026 none
faults peek 1026
kill $watcher
wait $watcher || true

# Unloading frees the block as ordinary memory.
unload tarn_client
entry_is "given back" 100 PTE RW NX
no_line tarn_change_secpage_range ".*"
