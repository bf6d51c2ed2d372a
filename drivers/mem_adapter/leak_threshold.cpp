// SPDX-License-Identifier: GPL-2.0-only
// Leak thresholds: when slab and vmalloc memory counts as suspicious. No locks: see
// leak_threshold.h.
#include "leak_threshold.h"

#include <kernel/atomic.h>
#include <kernel/err.h>
#include <kernel/swap.h>
#include <kernel/uaccess.h>
#include <kernel/vmalloc.h>
#include <uapi/tarn_memcheck.h>

#include "log.h"
#include "mem_adapter.h"

namespace
{

unsigned long vmalloc_kib()
{
	return pages_to_kib(vmalloc_nr_pages());
}

// The thresholds in the order of their selector bits, each with its field in the user's record.
struct threshold_field {
	unsigned int selector;
	unsigned int &threshold;
	u32 memcheck_threshold::*field;
};

constexpr threshold_field threshold_fields[] = {
	{TH_SLAB_K, slab_k, &memcheck_threshold::slab_k},
	{TH_VMALLOC_K, vmalloc_k, &memcheck_threshold::vmalloc_k},
	{TH_SLAB_LEAK_K, hot.slab_leak_k, &memcheck_threshold::slab_leak_k},
	{TH_VMALLOC_LEAK_K, vmalloc_leak_k, &memcheck_threshold::vmalloc_leak_k},
};

} // namespace

constinit unsigned int slab_k = default_threshold_k;
constinit unsigned int vmalloc_k = default_threshold_k;
constinit unsigned int vmalloc_leak_k = default_threshold_k;

bool tarn_should_dump_unreclaim_slab(void)
{
	return READ_ONCE(slab_k) < unreclaimable_slab_kib();
}

bool tarn_should_detect_slab_leak(void)
{
	return slab_leak_suspected();
}

bool tarn_should_dump_vmalloc(void)
{
	return READ_ONCE(vmalloc_k) <= vmalloc_kib();
}

bool tarn_should_detect_vmalloc_leak(void)
{
	return READ_ONCE(vmalloc_leak_k) <= vmalloc_kib();
}

void tarn_set_threshold(unsigned int type, unsigned int value)
{
	for (const threshold_field &f : threshold_fields) {
		if (f.selector == type)
			WRITE_ONCE(f.threshold, value);
	}
}

int tarn_process_set_th(void *user_arg)
{
	memcheck_threshold record = {};

	if (helper_copy_from_user(&record, user_arg, sizeof(record))) {
		MEM_ERR("copy from user failed\n");
		return -EFAULT;
	}
	for (const threshold_field &f : threshold_fields) {
		if (record.mask & f.selector)
			WRITE_ONCE(f.threshold, record.*f.field);
	}
	return 0;
}

int tarn_process_get_val(void *user_arg)
{
	memcheck_threshold record = {};

	if (helper_copy_from_user(&record, user_arg, sizeof(record))) {
		MEM_ERR("copy from user failed\n");
		return -EFAULT;
	}
	for (const threshold_field &f : threshold_fields) {
		if (record.mask & f.selector)
			record.*f.field = READ_ONCE(f.threshold);
	}
	if (helper_copy_to_user(user_arg, &record, sizeof(record))) {
		MEM_ERR("copy to user failed\n");
		return -EFAULT;
	}
	return 0;
}

int tarn_meminfo_parameter_init(void)
{
	// Kernel memory of one kind is suspicious above this fraction of RAM.
	constexpr unsigned int ram_share = 12;
	const auto ram_k = static_cast<unsigned int>(
		pages_to_kib(static_cast<unsigned long>(atomic_long_read(&_totalram_pages))));

	for (const threshold_field &f : threshold_fields)
		WRITE_ONCE(f.threshold, ram_k / ram_share);
	return 0;
}

void tarn_meminfo_parameter_exit(void) {}
