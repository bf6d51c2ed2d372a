// SPDX-License-Identifier: GPL-2.0-only
#include <linux/mm.h>
#include <linux/sched.h>
#include <linux/swap.h>
#include <mm/internal.h>

/* Needs the headers above. */
#include <linux/compaction.h>

#include <kernel/reclaim.h>

void helper_alloc_context_init(struct alloc_context *context, struct zonelist *zonelist,
			       int migratetype, int highest_zone)
{
	*context = (struct alloc_context){
		.zonelist = zonelist,
		.migratetype = migratetype,
		.highest_zoneidx = highest_zone,
	};
}

/* Called through the kernel's own types, since a kernel with control-flow integrity checks them at
 * each indirect call. */

unsigned long helper_try_to_free_pages(void *symbol, struct zonelist *zonelist, int order,
				       gfp_t gfp)
{
	return ((typeof(&try_to_free_pages))symbol)(zonelist, order, gfp, NULL);
}

void helper_drop_slab(void *symbol)
{
	((typeof(&drop_slab))symbol)();
}

void helper_try_to_compact_pages(void *symbol, gfp_t gfp, unsigned int order,
				 unsigned int alloc_flags, const struct alloc_context *context,
				 int priority, struct page **captured)
{
	/* A kernel without compaction lacks the symbol too, so this is never reached there. */
#ifdef CONFIG_COMPACTION
	((typeof(&try_to_compact_pages))symbol)(gfp, order, alloc_flags, context, priority,
						captured);
#endif
}
