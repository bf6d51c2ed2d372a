# SPDX-License-Identifier: GPL-2.0-only
# lane: 3
# limit: 60 s
# Compares the tracker with the kernel's own counts of the same events: histograms of the
# tracepoints, keyed by stack and task. Where tasks are distinguished there is no tolerance: the
# programs pause often enough for the drain threads to keep up, so no event is dropped, and both
# count from before the programs start until after they end.
. /lab/scenarios/lib.sh

load_all
kmem=$tracing/events/kmem

histogram() { # EVENT FILTER
	trigger="hist:keys=common_stacktrace,common_pid.execname:size=4096 if $2"
	echo "$trigger" >"$kmem/$1/trigger"
	undo "echo '!$trigger' >$kmem/$1/trigger"
}

track() { # CACHE
	set_target "$1"
	memcheck prepare slab
	memcheck on slab
}

# A shell that execs a program opens files under the program's pid, so tasks are compared by name.
histogram kmem_cache_alloc 'call_site.function == alloc_empty_file && comm ~ "wkr-*"'
histogram kmem_cache_free 'name == "filp" && comm ~ "wkr-*"'
# More events than a ring holds, spread over enough time.
files=$((LAB_DEBUG ? 5000 : 9000))
track filp
{
	leak wkr-pipes pipe 500 close 250 &
	leak wkr-files file $files closed 500 &
	leak wkr-events eventfd 800 close 400 &
	wait
} >/dev/null
memcheck off slab
cat "$kmem"/kmem_cache_alloc/hist >alloc
cat "$kmem"/kmem_cache_free/hist >free
memcheck read >text

hist_compare text SLUB_ALLOC alloc alloc_empty_file wkr- >result || fail "$(cat result)"
equal "compared" "$(cat result)" "agreed on $((files + 1800)) events in 4 callers"
# At most three tasks, since a readout shows no more per stack.
hist_compare text SLUB_FREE free __fput wkr- >result || fail "$(cat result)"
equal "compared" "$(cat result)" "agreed on $((files + 1800)) events in 3 callers"

# Frees in interrupts have no task, so the commands that switch both on and off are counted too: a
# few dozen areas each.
eval "$undo_list"
undo_list=
histogram kmem_cache_free 'name == "vm_area_struct"'
track vm_area_struct
leak areas vma 3000 close 500 >/dev/null
# They are freed after a grace period.
all_freed() {
	[ "$(sed -n 's/^ *Hits: //p' "$kmem"/kmem_cache_free/hist)" -ge 3000 ]
}
await 5 all_freed
memcheck off slab
cat "$kmem"/kmem_cache_free/hist >free
memcheck read >text
hist_compare text SLUB_FREE free vm_area_free_rcu_cb - 300 >result || fail "$(cat result)"
# A readout leaves out a task with fewer than 50 frees, of which eight processors make some.
at_least "compared" "$(sed 's/agreed on \([0-9]*\) .*/\1/' result)" 2700
