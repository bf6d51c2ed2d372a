// SPDX-License-Identifier: GPL-2.0-only
// vmalloc areas of the rest of the kernel, the size of the address space, and the listing.
#pragma once

#include <string>

#include <kernel/vmalloc.h>

namespace hosted
{

// An area of size bytes as the rest of the kernel makes one, or null. Process context.
vm_struct *vmalloc_area(unsigned long size);
void release_area(vm_struct *area);
// The area that begins at an address, or null.
vm_struct *find_vm_area(const void *address);
void *area_address(const vm_struct *area);

// Pages of address space, guard pages included; areas that are there already stay.
void set_vmalloc_space(unsigned long pages);
// Pages that vmalloc_nr_pages counts on top of those of the areas.
void set_vmalloc_base(unsigned long pages);

// The listing of all areas by address, as /proc/vmallocinfo prints it. Process context.
std::string vmallocinfo();

// Releases the areas that vmalloc_area made and restores the address space. Stops the program if
// the module's are left.
void reset_vmalloc();

} // namespace hosted
