// SPDX-License-Identifier: GPL-2.0-only
// vmalloc areas of the rest of the kernel, the size of the address space, and the kernel's listing.
#pragma once

#include <string>

#include <kernel/vmalloc.h>

namespace hosted
{

// Allocates an area of size bytes as the rest of the kernel would, or returns null. Process
// context.
vm_struct *vmalloc_area(unsigned long size);
void release_area(vm_struct *area);
// The area that begins at an address, or null.
vm_struct *find_vm_area(const void *address);
void *area_address(const vm_struct *area);

// Sets the address space in pages, guard pages included; existing areas stay.
void set_vmalloc_space(unsigned long pages);
// Sets how many pages vmalloc_nr_pages counts in addition to those of the areas.
void set_vmalloc_base(unsigned long pages);

// The listing of all areas by address, as /proc/vmallocinfo prints it. Process context.
std::string vmallocinfo();

// Frees the areas that vmalloc_area made and restores the address space. Stops the program if any
// of the module's areas are left.
void reset_vmalloc();

} // namespace hosted
