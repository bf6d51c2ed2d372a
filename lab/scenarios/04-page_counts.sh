# SPDX-License-Identifier: GPL-2.0-only
# limit: 40 s
# Compares page counts with /proc, while swap on zram, page cache, shared and locked memory are in
# use. page_counts sets the tolerance: the batches in which the kernel updates its counters.
. /lab/scenarios/lib.sh

load_all

field() { # NAME of the last comparison
	sed -n "s/^$1 \(-*[0-9]*\)\$/\1/p" counts
}

# The counters change while they are read, so one comparison in three must succeed.
compare() { # WHAT
	for _ in 1 2 3; do
		! page_counts >counts || return 0
	done
	cat counts
	fail "page counts: $1"
}

compare "without swap"
equal "zram without swap" "$(field zram)" 0
equal "watermark without swap" "$(field watermark)" 0
expect_line tarn_cpa_get_zram_watermark_page "cpa_zram_ratio: 75"
expect_line tarn_get_free_page "free_pages:[0-9]+, totalreserve_pages:[0-9]+"

# use_swap SIZE
use_swap() {
	echo "$1" >/sys/block/zram0/disksize
	mkswap /dev/zram0 >/dev/null
	swapon /dev/zram0
}

drop_swap() {
	swapoff /dev/zram0
	echo 1 >/sys/block/zram0/reset
}

# Swap larger than RAM, then smaller. The first page of a swap device is its header.
much=$(($(memory MemTotal) / 1024 + 64)) # MiB
use_swap "${much}M"
undo drop_swap
compare "with much swap"
equal "watermark" "$(field watermark)" $(((much * 256 - 1) * 20 / 100))
drop_swap
use_swap 128M
compare "with little swap"
equal "watermark" "$(field watermark)" $(((128 * 256 - 1) * 75 / 100))

background hold_memory anon 8 swapped 8 shared 4 >holder
await 20 grep -q ready holder
compare "with swap in use"
at_least "zram in use" "$(field zram)" 1500
at_least "anonymous pages" "$(field anon)" 2000

# A device's page cache exists only while the device is open.
file_before=$(field file)
echo 8M >/sys/block/zram1/disksize
undo "exec 5<&-; echo 1 >/sys/block/zram1/reset"
exec 5</dev/zram1
cat <&5 >/dev/null
compare "with page cache"
at_least "growth of file pages" $(($(field file) - file_before)) 2000

# Locked memory is subtracted from the file pages, here to below zero.
background hold_memory locked 24 >locker
await 20 grep -q ready locker
compare "with locked memory"
between "file pages" "$(field file)" -10000 -1

# tarnctl shows the same counts, as unsigned numbers.
tarnctl pages >shown
equal "tarnctl pages" "$(cut -d ' ' -f 1 shown | tr '\n' ' ')" \
	"total_reserve free file anon zram zram_watermark "
at_least "zram by tarnctl" "$(sed -n 's/^zram //p' shown)" 1500
grep -q '^file 184467440737095' shown || fail "file pages do not wrap: $(grep file shown)"
