// SPDX-License-Identifier: GPL-2.0-only
// Reports who pins pages of CMA pageblocks.
#pragma once

#include <kernel/kprobes.h>
#include <kernel/mm.h>

KERNEL_C_BEGIN

// Handlers of the probes on the kernel's pinning functions. They return 0, so that the function
// runs. Context: kprobe; take no lock, never sleep.
kprobe_entry_handler folio_add_pin_handler_pre;
kprobe_entry_handler try_grab_page_handler_pre;
kprobe_entry_handler try_grab_folio_handler_pre;

KERNEL_C_END
