# SPDX-License-Identifier: GPL-2.0-only
# limit: 30 s
# Invalid calls, with the errors they return and the lines they leave in the kernel log.
. /lab/scenarios/lib.sh

load_all
misuse >result || fail "$(cat result)"

expect_line tarn_process_leak_detect "copy_from_user failed"
expect_line memcheck_do_command "unsupported operation"
for what in prepare on off; do
	expect_line memcheck_do_kernel_command "trace $what failed, memtype=6"
done
expect_line memcheck_do_kernel_command "Unsupported cmd=3"
expect_line tarn_process_leak_read "copy from_user failed"
expect_line tarn_process_leak_read "wrong size 0"
expect_line tarn_process_leak_read "wrong size 5242881"
expect_line tarn_process_leak_read "wrong size 18446744073709551615"
expect_line tarn_process_leak_read "wrong type 1"
expect_line memcheck_kernel_stack_read "copy to user failed"
expect_line tarn_process_set_th "copy from user failed"
expect_line tarn_process_get_val "copy from user failed"
expect_line tarn_process_get_val "copy to user failed"

# Tracking still works.
set_target filp
memcheck prepare slab
memcheck on slab
leak after file 77 closed >/dev/null
memcheck off slab
memcheck read | grep -q '(77/.* after\]$' || fail "tracking no longer works"
