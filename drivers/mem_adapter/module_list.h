// SPDX-License-Identifier: GPL-2.0-only
// The module's parameters and exports, listed once; each kernel makes its module entry from this.
#pragma once

#define TARN_MODULE_NAME "tarn_mem_adapter"
#define TARN_MODULE_LICENSE "GPL v2"
#define TARN_MODULE_SOFTDEP "pre: ember"
#define TARN_MODULE_IMPORT_NS MINIDUMP

// X(description): the module's, and those that its units add
#define TARN_MODULE_DESCRIPTIONS(X)                                                                \
	X("Tarn MEM ADAPTER Driver")                                                               \
	X("Tarn MEM_ADAPTER Driver")                                                               \
	X("Tarn OS_ADAPTER Driver")

// X(parameter, variable, type, permissions). The variable of kind_counts is a function that fills
// in two numbers, of allocations and frees; such a parameter cannot be set. The variable of a
// ..._field is a field of the hot words.
#define TARN_MODULE_PARAMS(X)                                                                      \
	X(netlink_init, netlink_init, uint, 0444)                                                  \
	X(slab_k, slab_k, uint, 0644)                                                              \
	X(vmalloc_k, vmalloc_k, uint, 0644)                                                        \
	X(slab_leak_k, hot.slab_leak_k, uint_field, 0644)                                          \
	X(vmalloc_leak_k, vmalloc_leak_k, uint, 0644)                                              \
	X(memtrack_init_state, memtrack_init_state, uint, 0444)                                    \
	X(slub_track_flag, hot.slub_track_flag, int_field, 0644)                                   \
	X(slub_recorded, slub_count_recorded, kind_counts, 0444)                                   \
	X(slub_dropped, slub_count_dropped, kind_counts, 0444)                                     \
	X(slub_lost, slub_count_lost, kind_counts, 0444)                                           \
	X(slub_skipped, slub_count_skipped, kind_counts, 0444)                                     \
	X(specified_target, specified_target, charp, 0644)                                         \
	X(vmalloc_track_flag, vmalloc_track_flag, int, 0644)                                       \
	X(cma_show_backtrace, cma_show_backtrace, int, 0644)                                       \
	X(cma_unrecorded, cma_unrecorded, uint, 0444)                                              \
	X(cma_warn_limit_permillage, cma_warn_limit_permillage, int, 0644)                         \
	X(cma_target, cma_target, charp_rcu, 0644)                                                 \
	X(abort_madvise, abort_madvise_opt, uint, 0644)                                            \
	X(abort_compact, abort_compact_opt, uint, 0644)

// X(function) for any module, G(function) for GPL modules
#define TARN_MODULE_EXPORTS(X, G)                                                                  \
	X(tarn_zone_watermark_ok)                                                                  \
	X(tarn_gfp_zone)                                                                           \
	X(tarn_reclaim)                                                                            \
	X(tarn_drop_slabcache)                                                                     \
	X(tarn_drop_pagecache)                                                                     \
	X(tarn_compact)                                                                            \
	X(tarn_direct_kill)                                                                        \
	X(find_task_mm)                                                                            \
	X(tarn_change_secpage_range)                                                               \
	X(tarn_change_page_flag)                                                                   \
	X(tarn_heap_dma_map)                                                                       \
	X(tarn_heap_dma_unmap)                                                                     \
	X(tarn_get_totalreserve_pages)                                                             \
	X(tarn_get_free_page)                                                                      \
	X(tarn_get_file_page)                                                                      \
	X(tarn_get_anon_page)                                                                      \
	X(tarn_get_zram_page)                                                                      \
	X(tarn_cpa_get_zram_watermark_page)                                                        \
	X(tarn_memory_netlink_init)                                                                \
	X(tarn_memory_netlink_exit)                                                                \
	X(lmkd_notify)                                                                             \
	X(tarn_should_dump_unreclaim_slab)                                                         \
	X(tarn_should_detect_slab_leak)                                                            \
	X(tarn_should_dump_vmalloc)                                                                \
	X(tarn_should_detect_vmalloc_leak)                                                         \
	X(tarn_process_set_th)                                                                     \
	X(tarn_process_get_val)                                                                    \
	X(tarn_meminfo_parameter_init)                                                             \
	X(tarn_meminfo_parameter_exit)                                                             \
	X(tarn_process_leak_detect)                                                                \
	X(tarn_memtrack_init)                                                                      \
	X(tarn_memtrack_exit)                                                                      \
	X(tarn_process_leak_read)                                                                  \
	G(tarn_memory_event_report)
