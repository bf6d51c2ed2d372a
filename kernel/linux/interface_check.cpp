// SPDX-License-Identifier: GPL-2.0-only
// Checks the constants and layouts that the interface headers spell out against the kernel's own.
#include <kernel/atomic.h>
#include <kernel/cma.h>
#include <kernel/dma.h>
#include <kernel/err.h>
#include <kernel/gfp.h>
#include <kernel/mm.h>
#include <kernel/netlink.h>
#include <kernel/notifier.h>
#include <kernel/process.h>
#include <kernel/rbtree.h>
#include <kernel/sched.h>
#include <kernel/slab.h>

static_assert(KERNEL_PAGE_SHIFT == NATIVE_PAGE_SHIFT, "the module is for pages of 4 KiB");

static_assert(__GFP_MOVABLE == NATIVE_GFP_MOVABLE);
static_assert(GFP_KERNEL == NATIVE_GFP_KERNEL);
static_assert(__GFP_ZERO == NATIVE_GFP_ZERO);
static_assert(__GFP_NOWARN == NATIVE_GFP_NOWARN);
static_assert(__GFP_KSWAPD_RECLAIM == NATIVE_GFP_KSWAPD_RECLAIM);

static_assert(TASK_COMM_LEN == NATIVE_TASK_COMM_LEN);
static_assert(TASK_INTERRUPTIBLE == NATIVE_TASK_INTERRUPTIBLE);
static_assert(TASK_NORMAL == NATIVE_TASK_NORMAL);

static_assert(TASK_UNINTERRUPTIBLE == NATIVE_TASK_UNINTERRUPTIBLE);
static_assert(PF_MEMALLOC == NATIVE_PF_MEMALLOC);
static_assert(PF_KTHREAD == NATIVE_PF_KTHREAD);
static_assert(DMA_NONE == NATIVE_DMA_NONE);

static_assert(MSG_DONTWAIT == NATIVE_MSG_DONTWAIT);
static_assert(NLMSG_HDRLEN == NATIVE_NLMSG_HDRLEN);
static_assert(sizeof(nlmsghdr) == NATIVE_SIZEOF_NLMSGHDR);

static_assert(CMA_MAX_NAME == NATIVE_CMA_MAX_NAME);

static_assert(MAX_ERRNO == NATIVE_MAX_ERRNO);

static_assert(sizeof(slabinfo) == NATIVE_SIZEOF_SLABINFO);
static_assert(offsetof(slabinfo, num_objs) == NATIVE_SLABINFO_NUM_OBJS);

static_assert(sizeof(notifier_block) == NATIVE_SIZEOF_NOTIFIER_BLOCK);
static_assert(offsetof(notifier_block, notifier_call) == 0);
static_assert(offsetof(notifier_block, priority) == NATIVE_NOTIFIER_PRIORITY);

static_assert(sizeof(rb_node) == NATIVE_SIZEOF_RB_NODE);
static_assert(offsetof(rb_node, rb_left) == NATIVE_RB_LEFT);
static_assert(offsetof(rb_node, __rb_parent_color) == NATIVE_RB_PARENT_COLOR);
static_assert(sizeof(rb_root) == sizeof(void *));
static_assert(offsetof(rb_augment_callbacks, copy) == NATIVE_RB_COPY);
static_assert(offsetof(rb_augment_callbacks, rotate) == NATIVE_RB_ROTATE);

static_assert(sizeof(list_head) == NATIVE_SIZEOF_LIST_HEAD);
static_assert(offsetof(list_head, prev) == NATIVE_LIST_PREV);
static_assert(sizeof(atomic_long_t) == NATIVE_SIZEOF_ATOMIC_LONG);
