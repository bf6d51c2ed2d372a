// SPDX-License-Identifier: GPL-2.0-only
#include <linux/vmalloc.h>

#include <kernel/vmalloc.h>

#include "symbols.h"

unsigned long vmalloc_nr_pages(void)
{
	return kernel_symbols.vmalloc_nr_pages ? kernel_symbols.vmalloc_nr_pages() : 0;
}

void *helper_vmalloc(unsigned long size)
{
	return vmalloc(size);
}

void *helper_vzalloc(unsigned long size)
{
	return vzalloc(size);
}

unsigned long helper_vm_struct_caller(const struct vm_struct *area)
{
	return (unsigned long)area->caller;
}

void helper_vm_struct_set_caller(struct vm_struct *area, unsigned long caller)
{
	area->caller = (const void *)caller;
}

unsigned long helper_vm_struct_size(const struct vm_struct *area)
{
	return area->size;
}

unsigned int helper_vm_struct_nr_pages(const struct vm_struct *area)
{
	return area->nr_pages;
}
