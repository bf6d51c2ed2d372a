# SPDX-License-Identifier: GPL-2.0-only
# limit: 40 s
# Reads the same hunt into buffers of odd sizes and into memory that is not mapped.
. /lab/scenarios/lib.sh

load_all
set_target filp
readout_sizes >result || fail "$(cat result)"
equal "readouts cut short, by the log" \
	"$(log_count "$(adapter_line memcheck_get_slub_stack \
		'memcheck_stack_to_str fail ret_num:[0-9]+ num:8192 used:[0-9]+ total:[0-9]+')")" \
	"$(sed -n 's/^logged //p' result)"
equal "payloads that did not reach user space" \
	"$(log_count "$(adapter_line memcheck_kernel_stack_read 'payload copy to user failed')")" 3

# Reading empties the records: a second readout is empty and logs that.
forget_log
memcheck read >text
[ ! -s text ] || fail "read twice: $(cat text)"
for kind in SLUB_ALLOC SLUB_FREE; do
	expect_line memcheck_get_slub_stack "empty $kind stack record"
done
