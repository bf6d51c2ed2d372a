/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct vm_struct;

/* Null is ignored. Context: process, may sleep. */
void vfree(const void *addr);
/* Pages that currently back vmalloc areas; 0 if the kernel lacks this function. Context: any. */
unsigned long vmalloc_nr_pages(void);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

/* Virtually contiguous memory; helper_vzalloc zeroes it. Null on failure. May sleep. */
void *helper_vmalloc(unsigned long size);
void *helper_vzalloc(unsigned long size);

/* An area's creator (a code address unless someone has overwritten it), its size in bytes and its
 * number of pages. */
unsigned long helper_vm_struct_caller(const struct vm_struct *area);
void helper_vm_struct_set_caller(struct vm_struct *area, unsigned long caller);
unsigned long helper_vm_struct_size(const struct vm_struct *area);
unsigned int helper_vm_struct_nr_pages(const struct vm_struct *area);

KERNEL_C_END
