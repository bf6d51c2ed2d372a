# SPDX-License-Identifier: GPL-2.0-only
# lane: 2
# limit: 60 s
# Reports to the event service: when they are sent, which items they have, and what those count.
. /lab/scenarios/lib.sh

load_all
controls=/sys/kernel/mm_event

reports() {
	grep -c 'event 1000' "$events" || true
}
has_reports() { # COUNT
	[ "$(reports)" -eq "$1" ]
}
# Waits for COUNT reports, then checks that no further one follows.
expect_reports() { # WHAT COUNT
	await 5 has_reports "$2"
	sleep 0.1
	equal "reports: $1" "$(reports)" "$2"
}
item() { # NAME of the last report
	tail -n 1 "$events" | tr ' ' '\n' | sed -n "s/^$1=//p" | tr '\n' ' ' | sed 's/ $//'
}

equal "permissions" "$(stat -c %a $controls/enabled $controls/level | tr '\n' ' ')" "644 644 "
equal "at load" "$(cat $controls/enabled $controls/level | tr '\n' ' ')" "0 0 "
for text in x "" " " 1x 0x10 99999999999 "1 2" --1; do
	for control in enabled level; do
		refused sh -c "echo '$text' >$controls/$control"
		grep -q -E 'Invalid argument|Numerical result|out of range' refused ||
			fail "$control rejects '$text' with: $(cat refused)"
	done
done
equal "after refusals" "$(cat $controls/enabled $controls/level | tr '\n' ' ')" "0 0 "
expect_reports "before anything is enabled" 0

echo 1 >$controls/enabled
expect_reports "on enabling" 1
echo 7 >$controls/enabled
expect_reports "on enabling again" 1
equal "enabled" "$(cat $controls/enabled)" 1
echo 2 >$controls/level
expect_reports "on a new level" 2
echo 2 >$controls/level
expect_reports "on the same level" 2
for level in -1 7 +1; do
	echo $level >$controls/level
	equal "level" "$(cat $controls/level)" "${level#+}"
done
expect_reports "on three more" 5
echo 0 >$controls/enabled
echo 2 >$controls/level
expect_reports "while disabled" 5

keys="appId eventName free_page file_page anon_page zram_page kswapd_cnt direct_reclaim_cnt \
slowpath_cost_jiffies record_event record_event record_event record_event record_event \
record_event record_event record_event "
equal "keys" "$(tail -n 1 "$events" | cut -d ' ' -f 3- | tr ' ' '\n' | cut -d = -f 1 | tr '\n' ' ')" "$keys"
equal "appId" "$(item appId)" 31000402203
equal "eventName" "$(item eventName)" memory_event
between "free_page" "$(item free_page)" 1 $(($(memory MemTotal) / 4))

# Events that other modules count, while the event service is unavailable for a time.
memcheck event 0 3
memcheck event 5 2
memcheck event 8
memcheck event 4294967295
echo 1 >/sys/module/ember/parameters/refuse
undo "echo 0 >/sys/module/ember/parameters/refuse"
echo 1 >$controls/enabled
await 5 log_has "lumen event is error"
equal "reports of an unavailable service" "$(reports)" 5
echo 0 >$controls/enabled
memcheck event 0
echo 0 >/sys/module/ember/parameters/refuse
echo 1 >$controls/enabled
expect_reports "with the service back" 6
equal "counted events" "$(item record_event)" "4 0 0 0 0 2 0 0"

# Events that the kernel counts: fill the page cache until kswapd wakes. No tolerance, since nothing
# else is running when the counters are read.
vm() {
	awk -v sum=0 "/^($1) / { sum += \$2 } END { print sum }" /proc/vmstat
}
echo 4G >/sys/block/zram1/disksize
undo "echo 1 >/sys/block/zram1/reset"
fill_memory 120000
echo 0 >$controls/enabled
echo 1 >$controls/enabled
expect_reports "before the pressure" 7
kswapd=$(vm pageoutrun)
stalls=$(vm 'allocstall_[a-z0-9]*')
dd if=/dev/zram1 of=/dev/null bs=1M count=$(($(memory MemFree) / 1024 + 40)) 2>/dev/null
sleep 0.5
kswapd=$(($(vm pageoutrun) - kswapd))
stalls=$(($(vm 'allocstall_[a-z0-9]*') - stalls))
echo 0 >$controls/enabled
echo 1 >$controls/enabled
expect_reports "after the pressure" 8
at_least "rounds of kswapd" "$kswapd" 1
equal "kswapd_cnt" "$(item kswapd_cnt)" "$kswapd"
equal "direct_reclaim_cnt" "$(item direct_reclaim_cnt)" "$stalls"

# The counters have restarted, and the module can be unloaded while it reports.
echo 0 >$controls/enabled
echo 1 >$controls/enabled
expect_reports "the last" 9
equal "counted events" "$(item record_event)" "0 0 0 0 0 0 0 0"
between "kswapd_cnt" "$(item kswapd_cnt)" 0 1
unload_all
