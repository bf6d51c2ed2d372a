# SPDX-License-Identifier: GPL-2.0-only
# limit: 30 s
# Objects freed after a grace period are freed in a softirq, where there is no task: the name is
# empty and the pid is 0. All of them must be recorded when the grace period is over.
. /lab/scenarios/lib.sh

load_all
set_target vm_area_struct
memcheck prepare slab
memcheck on slab
leak areas vma 2000 close 500 >/dev/null
# Wait for the last grace period and the callbacks after it.
sleep 1
memcheck off slab
memcheck read >text

records() { # KIND REGEX OF THE TASK
	awk -v kind="$1" '/^@@@@@/ { on = index($0, kind) } on && /^\[/' text |
		grep -E "\(p:$2\]\$" || true
}
counts() {
	sed 's/.*c:(\([0-9]*\)\/.*/\1/' | awk '{ n += $1 } END { print n + 0 }'
}
allocated=$(records SLUB_ALLOC '[0-9]+-[0-9]+\) areas' | counts)
at_least "areas taken" "$allocated" 2000
freed=$(records SLUB_FREE '0-0\) ' | counts)
# Frees of other tasks, such as those of this shell's children, are included.
at_least "areas freed in interrupts" "$freed" 2000
equal "interrupts that allocate" "$(records SLUB_ALLOC '0-0\) ' | counts)" 0
grep -q '  .*rcu' text || fail "no grace period in the stacks: $(cat text)"
