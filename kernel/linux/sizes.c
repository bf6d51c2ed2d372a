// SPDX-License-Identifier: GPL-2.0-only
/* Never linked. It is compiled to assembly, from which the build extracts the sizes and constants
 * of this kernel for <kernel_build/sizes.h>. */
#include <linux/cma.h>
#include <linux/cpumask.h>
#include <linux/dma-direction.h>
#include <linux/err.h>
#include <linux/fs.h>
#include <linux/irq_work.h>
#include <linux/kbuild.h>
#include <linux/kobject.h>
#include <linux/kprobes.h>
#include <linux/mm.h>
#include <linux/mutex.h>
#include <linux/netlink.h>
#include <linux/notifier.h>
#include <linux/printk.h>
#include <linux/ratelimit.h>
#include <linux/rbtree_augmented.h>
#include <linux/sched.h>
#include <linux/slab.h>
#include <linux/socket.h>
#include <linux/spinlock.h>
#include <linux/timer.h>
#include <linux/version.h>
#include <linux/vmstat.h>
#include <linux/wait.h>
#include <linux/workqueue.h>
#include <mm/internal.h>
#include <mm/slab.h>

#include "sysfs.h"

/* The first flag bit of a cache that the allocator leaves unused. */
#if LINUX_VERSION_CODE >= KERNEL_VERSION(6, 9, 0)
#define SPARE_SLAB_FLAG (1U << _SLAB_FLAGS_LAST_BIT)
static_assert(_SLAB_FLAGS_LAST_BIT < 32, "caches have no unused flag");
#else
#define SPARE_SLAB_FLAG 1U
#endif

/* Before 6.5 no flag keeps a cache from being merged and does nothing else. This one also hides its
 * objects from the leak detector, which the tracker's nodes do not need. */
#ifdef SLAB_NO_MERGE
#define NO_MERGE_FLAG SLAB_NO_MERGE
#else
#define NO_MERGE_FLAG SLAB_NOLEAKTRACE
#endif

/* The interface aligns everything that it embeds by value to 8 bytes. */
#define SIZE(symbol, type)                                                                         \
	do {                                                                                       \
		static_assert(__alignof__(type) <= 8);                                             \
		DEFINE(symbol, sizeof(type));                                                      \
	} while (0)

/* A field that the interface reads in place. */
#define OFFSET_OF(symbol, type, field, field_type)                                                 \
	do {                                                                                       \
		static_assert(sizeof_field(type, field) == sizeof(field_type));                    \
		DEFINE(symbol, offsetof(type, field));                                             \
	} while (0)

void kernel_sizes(void);

void kernel_sizes(void)
{
	SIZE(KERNEL_SIZEOF_RAW_SPINLOCK, raw_spinlock_t);
	SIZE(KERNEL_SIZEOF_MUTEX, struct mutex);
	SIZE(KERNEL_SIZEOF_LOCK_CLASS_KEY, struct lock_class_key);
	SIZE(KERNEL_SIZEOF_WAIT_QUEUE_HEAD, struct wait_queue_head);
	SIZE(KERNEL_SIZEOF_WAIT_QUEUE_ENTRY, struct wait_queue_entry);
	SIZE(KERNEL_SIZEOF_RATELIMIT_STATE, struct ratelimit_state);
	SIZE(KERNEL_SIZEOF_NETLINK_KERNEL_CFG, struct netlink_kernel_cfg);
	SIZE(KERNEL_SIZEOF_KOBJ_ATTRIBUTE, struct kobj_attribute);
	SIZE(KERNEL_SIZEOF_ATTRIBUTE_GROUP, struct listed_group);
	SIZE(KERNEL_SIZEOF_TIMER_LIST, struct timer_list);
	SIZE(KERNEL_SIZEOF_WORK_STRUCT, struct work_struct);
	SIZE(KERNEL_SIZEOF_IRQ_WORK, struct irq_work);
	SIZE(KERNEL_SIZEOF_FILE_OPERATIONS, struct file_operations);
	SIZE(KERNEL_SIZEOF_KPROBE, struct kprobe);
	SIZE(KERNEL_SIZEOF_ALLOC_CONTEXT, struct alloc_context);

	OFFSET_OF(KERNEL_KMEM_CACHE_FLAGS, struct kmem_cache, flags, unsigned int);
	OFFSET_OF(KERNEL_WAIT_QUEUE_ENTRIES, struct wait_queue_head, head, struct list_head);
	DEFINE(KERNEL_GROUP_ATTRIBUTES, KERNEL_GROUP_ATTRIBUTES);
	DEFINE(KERNEL_SLAB_RECLAIM_ACCOUNT, SLAB_RECLAIM_ACCOUNT);
	DEFINE(KERNEL_SLAB_SPARE_FLAG, SPARE_SLAB_FLAG);
	DEFINE(KERNEL_SLAB_NO_MERGE, NO_MERGE_FLAG);

	DEFINE(KERNEL_GFP_NOWAIT, GFP_NOWAIT);
	DEFINE(KERNEL_GFP_ATOMIC, GFP_ATOMIC);
	DEFINE(KERNEL_GFP_HIGHUSER_MOVABLE, GFP_HIGHUSER_MOVABLE);
	DEFINE(KERNEL_NR_CPUS, NR_CPUS);
	DEFINE(KERNEL_I_FREEING, I_FREEING);
	DEFINE(KERNEL_I_WILL_FREE, I_WILL_FREE);
	DEFINE(KERNEL_I_NEW, I_NEW);
	DEFINE(KERNEL_FOLL_PIN, FOLL_PIN);
	DEFINE(KERNEL_MAX_NR_ZONES, MAX_NR_ZONES);
	/* The constants for this differ between kernels in name and by one in value. */
	DEFINE(KERNEL_MAX_PAGE_ORDER, ARRAY_SIZE(((struct zone *)NULL)->free_area) - 1);
	DEFINE(KERNEL_MIGRATE_CMA, MIGRATE_CMA);
	DEFINE(KERNEL_NR_FREE_PAGES, NR_FREE_PAGES);
	DEFINE(KERNEL_NR_INACTIVE_ANON, NR_INACTIVE_ANON);
	DEFINE(KERNEL_NR_ACTIVE_ANON, NR_ACTIVE_ANON);
	DEFINE(KERNEL_NR_UNEVICTABLE, NR_UNEVICTABLE);
	DEFINE(KERNEL_NR_SLAB_UNRECLAIMABLE_B, NR_SLAB_UNRECLAIMABLE_B);
	DEFINE(KERNEL_NR_FILE_PAGES, NR_FILE_PAGES);
	DEFINE(KERNEL_NR_SHMEM, NR_SHMEM);
	DEFINE(KERNEL_NR_SWAPCACHE, NR_SWAPCACHE);

	/* Values that the interface headers spell out, for interface_check.cpp to compare. */
	DEFINE(NATIVE_PAGE_SHIFT, PAGE_SHIFT);
	DEFINE(NATIVE_GFP_MOVABLE, __GFP_MOVABLE);
	DEFINE(NATIVE_GFP_KERNEL, GFP_KERNEL);
	DEFINE(NATIVE_GFP_ZERO, __GFP_ZERO);
	DEFINE(NATIVE_GFP_KSWAPD_RECLAIM, __GFP_KSWAPD_RECLAIM);
	DEFINE(NATIVE_GFP_NOWARN, __GFP_NOWARN);
	DEFINE(NATIVE_TASK_COMM_LEN, TASK_COMM_LEN);
	DEFINE(NATIVE_TASK_INTERRUPTIBLE, TASK_INTERRUPTIBLE);
	DEFINE(NATIVE_TASK_NORMAL, TASK_NORMAL);
	DEFINE(NATIVE_TASK_UNINTERRUPTIBLE, TASK_UNINTERRUPTIBLE);
	DEFINE(NATIVE_PF_MEMALLOC, PF_MEMALLOC);
	DEFINE(NATIVE_PF_KTHREAD, PF_KTHREAD);
	DEFINE(NATIVE_DMA_NONE, DMA_NONE);
	DEFINE(NATIVE_MSG_DONTWAIT, MSG_DONTWAIT);
	DEFINE(NATIVE_NLMSG_HDRLEN, NLMSG_HDRLEN);
	DEFINE(NATIVE_MAX_ERRNO, MAX_ERRNO);
	DEFINE(NATIVE_CMA_MAX_NAME, CMA_MAX_NAME);
	DEFINE(NATIVE_SIZEOF_SLABINFO, sizeof(struct slabinfo));
	DEFINE(NATIVE_SLABINFO_NUM_OBJS, offsetof(struct slabinfo, num_objs));
	DEFINE(NATIVE_SIZEOF_NOTIFIER_BLOCK, sizeof(struct notifier_block));
	DEFINE(NATIVE_NOTIFIER_PRIORITY, offsetof(struct notifier_block, priority));
	DEFINE(NATIVE_SIZEOF_RB_NODE, sizeof(struct rb_node));
	DEFINE(NATIVE_RB_LEFT, offsetof(struct rb_node, rb_left));
	DEFINE(NATIVE_RB_PARENT_COLOR, offsetof(struct rb_node, __rb_parent_color));
	DEFINE(NATIVE_RB_COPY, offsetof(struct rb_augment_callbacks, copy));
	DEFINE(NATIVE_RB_ROTATE, offsetof(struct rb_augment_callbacks, rotate));
	DEFINE(NATIVE_SIZEOF_NLMSGHDR, sizeof(struct nlmsghdr));
	DEFINE(NATIVE_SIZEOF_LIST_HEAD, sizeof(struct list_head));
	DEFINE(NATIVE_LIST_PREV, offsetof(struct list_head, prev));
	DEFINE(NATIVE_SIZEOF_ATOMIC_LONG, sizeof(atomic_long_t));
}
