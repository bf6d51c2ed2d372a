/* SPDX-License-Identifier: GPL-2.0-only */
/* Sizes of the hosted kernel's structures (asserted where each is defined), and its constants. */
#pragma once

#define KERNEL_SIZEOF_RAW_SPINLOCK 32
#define KERNEL_SIZEOF_MUTEX 64
#define KERNEL_SIZEOF_LOCK_CLASS_KEY 8
#define KERNEL_SIZEOF_WAIT_QUEUE_HEAD 64
#define KERNEL_SIZEOF_WAIT_QUEUE_ENTRY 64
#define KERNEL_SIZEOF_RATELIMIT_STATE 64
#define KERNEL_SIZEOF_NETLINK_KERNEL_CFG 16
#define KERNEL_SIZEOF_KOBJ_ATTRIBUTE 40
#define KERNEL_SIZEOF_ATTRIBUTE_GROUP 80
#define KERNEL_SIZEOF_TIMER_LIST 64
#define KERNEL_SIZEOF_WORK_STRUCT 32
#define KERNEL_SIZEOF_IRQ_WORK 32
#define KERNEL_SIZEOF_FILE_OPERATIONS 8
#define KERNEL_SIZEOF_KPROBE 48
#define KERNEL_SIZEOF_ALLOC_CONTEXT 48

/* Where the interface reads fields in place. */
#define KERNEL_KMEM_CACHE_FLAGS 0
#define KERNEL_WAIT_QUEUE_ENTRIES 32

#define KERNEL_GROUP_ATTRIBUTES 8

#define KERNEL_SLAB_RECLAIM_ACCOUNT 0x20000u
#define KERNEL_SLAB_SPARE_FLAG 0x1u
#define KERNEL_SLAB_NO_MERGE 0x1000000u

#define KERNEL_MAX_PAGE_ORDER 10
#define KERNEL_MIGRATE_CMA 3
#define KERNEL_FOLL_PIN 0x80000u
#define KERNEL_GFP_NOWAIT 0x800u
#define KERNEL_GFP_ATOMIC 0x820u
#define KERNEL_GFP_HIGHUSER_MOVABLE 0x2100ccau

/* More CPUs than fit in one word. */
#define KERNEL_NR_CPUS 96

#define KERNEL_I_NEW 0x8
#define KERNEL_I_WILL_FREE 0x10
#define KERNEL_I_FREEING 0x20

/* Zones of the node, and the indices of the statistics, numbered as in the 6.6 generation. */
#define KERNEL_MAX_NR_ZONES 5
#define KERNEL_NR_FREE_PAGES 0
#define KERNEL_NR_INACTIVE_ANON 0
#define KERNEL_NR_ACTIVE_ANON 1
#define KERNEL_NR_UNEVICTABLE 4
#define KERNEL_NR_SLAB_UNRECLAIMABLE_B 6
#define KERNEL_NR_FILE_PAGES 19
#define KERNEL_NR_SHMEM 23
#define KERNEL_NR_SWAPCACHE 41

/* The page flag bit that the platform uses for secure pages. */
