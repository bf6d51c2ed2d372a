// SPDX-License-Identifier: GPL-2.0-only
// Compiles as it is. With WRONG set to the number of a mistake it must not.
#include "vendor_hook.h"

#include <kernel/kprobes.h>

namespace
{

#if WRONG == 1
// an argument short
void on_slab_free(void *, unsigned long) {}
#elif WRONG == 2
// the arguments of an allocation
void on_slab_free(void *, void *, unsigned long, struct kmem_cache *) {}
#else
void on_slab_free(void *, unsigned long, struct kmem_cache *) {}
#endif

#if WRONG == 3
// no return value
void on_entry(struct kprobe *, struct pt_regs *) {}
#else
int on_entry(struct kprobe *, struct pt_regs *)
{
	return 0;
}
#endif

void on_release(void *, const char *, unsigned long, const struct page *, unsigned long) {}

} // namespace

int attach_all(struct kprobe *kp);

int attach_all(struct kprobe *kp)
{
	vendor_hook<android_vh_slab_free_probe> free_hook;
	vendor_hook<cma_release_probe> release_hook;

	helper_kprobe_init(kp, "folio_add_pin", on_entry);
#if WRONG == 4
	// the right probe on another hook
	free_hook.attach(android_vh_slab_alloc_node(), on_slab_free);
#else
	free_hook.attach(android_vh_slab_free(), on_slab_free);
#endif
	return release_hook.attach(helper_find_cma_release(), on_release);
}
