# SPDX-License-Identifier: GPL-2.0-only
# limit: 60 s
# Runs the killer on real processes. A process's size is what the kernel's counters say, without
# what each processor has not added to them yet: up to 31 pages for each of two processors and three
# counters. /proc does add these, so it may differ by 186 pages. The processes differ by more.
#
# A victim that has not exited yet still has its size: a later pass of the same call takes and
# counts it again if it comes after a smaller process. Processes are found in the order in which
# they were started, so a smaller one that should be next is started later.
. /lab/scenarios/lib.sh

load_all

# spawn ADJ PROGRAM ARGUMENT...: starts a process and sets $pid.
spawn() {
	adjust=$1
	shift
	rm -f started
	"$@" >started &
	pid=$!
	undo "kill -KILL $pid && wait $pid; true"
	await 20 grep -q ready started
	echo "$adjust" >"/proc/$pid/oom_score_adj"
}

resident() { # PID: pages
	awk '{ print $2 }' "/proc/$1/statm"
}

near() { # WHAT GOT WANTED
	between "$1" "$2" $(($3 - 186)) $(($3 + 186))
}

swapped() { # PID: pages
	awk '$1 == "VmSwap:" { print $2 / 4 }' "/proc/$1/status"
}

# kill_pages OPTION... PAGES: sets $killed to the victims' pages and $victims to their pids in
# order.
kill_pages() {
	forget_log
	tarnctl kill --yes --json "$@" >result || equal "status of a kill without a victim" $? 1
	killed=$(sed -n 's/.*"killed_pages": \([0-9]*\).*/\1/p' result)
	victims=$(klog | sed -n 's/.*\[MEM_ADAPTER\] tarn_selected:[0-9]*: kill task is .* PID is \([0-9]*\)$/\1/p' |
		tr '\n' ' ')
	victims=${victims% }
}

dead() { # PID...
	for process in "$@"; do
		status=0
		wait "$process" || status=$?
		equal "status of $process" "$status" 137
	done
}

alive() { # WHAT PID...
	what=$1
	shift
	for process in "$@"; do
		kill -0 "$process" || fail "$what: $process is dead"
		grep -q '^State:.*[SD] ' "/proc/$process/status" || fail "$what: $process is dying"
	done
}

# Larger than all possible victims.
spawn 599 hold_memory anon 24
bystanders=$pid
spawn 0 hold_memory anon 26
bystanders="$bystanders $pid"
spawn -1000 hold_memory shared 16
bystanders="$bystanders $pid"
# This one sleeps so that only fatal signals wake it.
spawn 900 odd_process waiting 22
child=$(sed -n 's/^ready //p' started)
bystanders="$bystanders $pid"
waiting=$pid
echo 0 >"/proc/$child/oom_score_adj"
equal "score of the waiting one" "$(cat "/proc/$waiting/oom_score_adj")" 900

refused tarnctl kill 1
grep -q -e --yes refused || fail "kills without --yes: $(cat refused)"
kill_pages 1000000
equal "nobody to kill: pages" "$killed" 0
equal "nobody to kill: victims" "$victims" ""
for _ in 0 1; do
	status=0
	tarnctl kill --yes 0 >/dev/null || status=$?
	equal "status of a kill without a victim" "$status" 1
done

# Only the largest is killed, whatever its score; then as many as it takes.
spawn 800 hold_memory anon 4 shared 6
middle=$pid
spawn 600 hold_memory anon 14
large=$pid
spawn 1000 hold_memory anon 6
small=$pid
size=$(resident "$large")
kill_pages 1
equal "one page: victims" "$victims" "$large"
near "one page: pages" "$killed" "$size"
dead "$large"
size=$(resident "$middle")
sum=$((size + $(resident "$small")))
kill_pages $((size + 200))
equal "more than the largest: victims" "$victims" "$middle $small"
between "more than the largest: pages" "$killed" $((sum - 372)) $((sum + 372))
dead "$middle" "$small"

# A victim that is too small for the target is logged twenty times and counts once.
spawn 700 hold_memory anon 5
size=$(resident "$pid")
kill_pages 1000000
near "one for twenty passes: pages" "$killed" "$size"
equal "one for twenty passes: victims" "$victims" "$(for _ in 1 2 3 4 5 6 7 8 9 10; do
	echo "$pid $pid"
done | tr '\n' ' ' | sed 's/ $//')"
dead "$pid"

# Two victims that are too small for the target: only they die, the larger one first, in twenty
# passes.
spawn 700 hold_memory anon 5
first=$pid
spawn 700 hold_memory anon 4
second=$pid
kill_pages 1000000
equal "two for twenty passes" "$(echo "$victims" | cut -d ' ' -f 1,2)" "$first $second"
equal "two for twenty passes: lines" "$(echo "$victims" | wc -w)" 20
equal "two for twenty passes: who" "$(echo "$victims" | tr ' ' '\n' | sort -u | wc -l)" 2
dead "$first" "$second"

# A target of zero pages is reached after one pass.
spawn 700 hold_memory anon 4
kill_pages 0
equal "no target: victims" "$victims" "$pid"
dead "$pid"

# A process whose first thread has exited is found through its living thread.
spawn 700 odd_process leaderless 4
thread=$(sed -n 's/^ready //p' started)
[ "$thread" != "$pid" ] || fail "the first thread is still alive"
equal "thread of a process without its first" "$(services find "$pid")" "$thread"
equal "thread of a whole process" "$(services find $$)" $$
refused services find 2
refused services find 999999
kill_pages 1
equal "leaderless: victims" "$victims" "$thread"
dead "$pid"

# By swapped pages, resident pages do not matter.
echo 64M >/sys/block/zram0/disksize
mkswap /dev/zram0 >/dev/null
swapon /dev/zram0
undo "swapoff /dev/zram0; echo 1 >/sys/block/zram0/reset"
spawn 1000 hold_memory anon 20
resident=$pid
spawn 600 hold_memory swapped 4
some=$pid
spawn 700 hold_memory swapped 8
more=$pid
equal "swapped pages of the resident one" "$(swapped "$resident")" 0
size=$(swapped "$more")
at_least "swapped pages" "$size" 2000
kill_pages --by swapped 1
equal "swapped: victims" "$victims" "$more"
near "swapped: pages" "$killed" "$size"
dead "$more"
size=$(swapped "$some")
kill_pages --by swapped 1
equal "swapped: the next" "$victims" "$some"
near "swapped: the next one's pages" "$killed" "$size"
dead "$some"
kill_pages --by swapped 1
equal "swapped: nobody left" "$victims" ""
alive "not swapped" "$resident"
kill_pages 1
equal "resident: victims" "$victims" "$resident"

# shellcheck disable=SC2086 # a list of numbers
alive "not expendable, or waiting" $bystanders "$child"
