# SPDX-License-Identifier: GPL-2.0-only
# limit: 30 s
# While vmalloc tracking is on, new areas carry the stack that allocated them, and the kernel's list
# shows it under each of them. Areas from before and after do not have one.
. /lab/scenarios/lib.sh

load_all

# Prints for each stamped area: its range, size and pages from the list itself, size and pages as
# the adapter prints them, the announced and the actual number of frames, and the frames.
stamped() {
	awk '
		function flush() { if (area != "") print area, told, frames, stack; area = "" }
		/^0x/ { flush(); line = $1 " " $2 " " pages($0) }
		function pages(text) {
			return match(text, /pages=[0-9]+/) ? substr(text, RSTART + 6, RLENGTH - 6) : 0
		}
		/^vmalloc_stack / {
			area = line
			tag = $2
			told = $3 " " $4 " " $5
			frames = 0
			stack = tag
		}
		/^    [^ ]/ && area != "" { frames++; stack = stack " " $1 }
		END { flush() }
	' /proc/vmallocinfo
}
stamped >none
[ ! -s none ] || fail "stamped without tracking: $(cat none)"

memcheck on vmalloc
equal "flag" "$(cat "$parameters"/vmalloc_track_flag)" 1
for _ in 1 2 3 4; do
	add_zram
	echo 16M >/sys/block/zram"$zram"/disksize
done
memcheck off vmalloc
stamped >areas
# RANGE SIZE PAGES SIZE PAGES FRAMES FRAMES TAG FRAME...
awk '$2 != $4 || $3 != $5 || $6 != $7 || $6 < 3 || $8 !~ /^0x12345678[0-9a-f]+$/' areas >wrong
[ ! -s wrong ] || fail "areas whose figures differ: $(cat wrong)"
equal "tables of swap devices" "$(grep -c 'vzalloc.* disksize_store+.* vfs_write+' areas)" 4
awk '{ for (i = 9; i <= NF; i++) if ($i !~ /^[a-zA-Z_].*\+0x[0-9a-f]+\/0x[0-9a-f]+$/) print }' areas >wrong
[ ! -s wrong ] || fail "frames without a symbol: $(cat wrong)"

# Stamped areas stay stamped; new ones are not stamped.
equal "after tracking" "$(stamped | wc -l)" "$(wc -l <areas)"
for _ in 1 2 3; do
	add_zram
	echo 16M >/sys/block/zram"$zram"/disksize
done
equal "new areas after tracking" "$(stamped | wc -l)" "$(wc -l <areas)"

# Read the list again and again while areas come and go.
echo 1 >"$parameters"/vmalloc_track_flag
undo "echo 1 >/sys/block/zram1/reset"
background sh -c "while :; do
	echo 1M >/sys/block/zram1/disksize
	echo 1 >/sys/block/zram1/reset
done"
for _ in 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15; do
	cat /proc/vmallocinfo >/dev/null
done
echo 0 >"$parameters"/vmalloc_track_flag

# Without the adapter the list shows no stacks.
unload tarn_client tarn_mem_adapter
equal "without the adapter" "$(stamped | wc -l)" 0
