// SPDX-License-Identifier: GPL-2.0-only
/*
 * For tests only: secure ranges and page flags, tried on a block of memory that this module owns.
 * When the block is freed it is mapped as before, except that split mappings stay split. Secure
 * ranges are also tried where nothing is mapped: in an area that the device tree keeps from the
 * kernel.
 */
#include <asm/tlbflush.h>
#include <linux/bitops.h>
#include <linux/dma-mapping.h>
#include <linux/errno.h>
#include <linux/gfp.h>
#include <linux/io.h>
#include <linux/list.h>
#include <linux/mm.h>
#include <linux/mmzone.h>
#include <linux/mutex.h>
#include <linux/of.h>
#include <linux/of_reserved_mem.h>
#include <linux/pgtable.h>
#include <linux/printk.h>
#include <linux/scatterlist.h>
#include <linux/sched.h>
#include <linux/sizes.h>
#include <linux/types.h>
#include <linux/uaccess.h>

#include <mem_adapter.h>
#include <uapi/tarn_device.h>

#include "tarn_client.h"

#define SECURE_FLAG 27
#define BLOCK_ORDER 10

/* block_lock guards all changes of these. Pages from changed_first up to, but excluding,
 * changed_end may be remapped. Once there is a block, its words are read and written without the
 * lock, so that this can happen while its mapping changes. */
static DEFINE_MUTEX(block_lock);
static struct page *block;
static unsigned long changed_first = TARN_TEST_BLOCK_PAGES;
static unsigned long changed_end;
/* The area that the kernel does not map; 0: none. */
static phys_addr_t unmapped;
static bool unmapped_changed;

static phys_addr_t frame_of(unsigned long number)
{
	if (number >= TARN_TEST_BLOCK_PAGES)
		return unmapped + (number - TARN_TEST_BLOCK_PAGES) * PAGE_SIZE;
	return page_to_phys(block) + number * PAGE_SIZE;
}

static unsigned long page_address_of(unsigned long number)
{
	if (number >= TARN_TEST_BLOCK_PAGES)
		return (unsigned long)phys_to_virt(frame_of(number));
	return (unsigned long)page_address(block) + number * PAGE_SIZE;
}

static phys_addr_t find_unmapped(void)
{
	struct device_node *node = of_find_node_by_path("/reserved-memory/secure");
	const struct reserved_mem *area = node ? of_reserved_mem_lookup(node) : NULL;

	of_node_put(node);
	if (!area || area->size < TARN_TEST_UNMAPPED_PAGES * PAGE_SIZE)
		return 0;
	return area->base;
}

/*
 * A gigabyte mapped as one block can be split and its parts changed in place. The kernel maps
 * smaller pieces in contiguous runs, where that is impossible. The first gigabyte that is entirely
 * DRAM starts at 2 GiB; to get there, everything below is allocated temporarily.
 */
static struct page *allocate_in_gigabyte(void)
{
	const unsigned long tries = SZ_1G >> (BLOCK_ORDER + PAGE_SHIFT);
	struct page *found = NULL, *page, *next;
	LIST_HEAD(passed);

	if (totalram_pages() < (SZ_1G >> PAGE_SHIFT) * 2)
		return NULL;
	for (unsigned long i = 0; i <= tries && !found; i++) {
		page = alloc_pages(GFP_KERNEL | GFP_DMA32 | __GFP_NORETRY | __GFP_NOWARN,
				   BLOCK_ORDER);
		if (!page)
			break;
		if (page_to_phys(page) >= SZ_2G)
			found = page;
		else
			list_add(&page->lru, &passed);
	}
	list_for_each_entry_safe(page, next, &passed, lru)
		__free_pages(page, BLOCK_ORDER);
	return found;
}

static int allocate_block(void)
{
	struct page *pages;

	if (block)
		return 0;
	pages = allocate_in_gigabyte();
	if (!pages)
		pages = alloc_pages(GFP_KERNEL | __GFP_NOWARN, BLOCK_ORDER);
	if (!pages)
		return -ENOMEM;
	for (unsigned long i = 0; i < TARN_TEST_BLOCK_PAGES; i++)
		*(u64 *)(page_address(pages) + i * PAGE_SIZE) = i;
	unmapped = find_unmapped();
	smp_store_release(&block, pages);
	return 0;
}

static void remap(unsigned long first, unsigned long pages, unsigned long target, pgprot_t prot)
{
	tarn_change_secpage_range(frame_of(target), page_address_of(first), pages * PAGE_SIZE,
				  prot);
}

/*
 * An entry rewritten in place keeps its old translation until that is invalidated, which the
 * service leaves to its callers.
 */
static void invalidate(unsigned long first, unsigned long pages)
{
	const unsigned long address = page_address_of(first);

	flush_tlb_kernel_range(address, address + pages * PAGE_SIZE);
}

static bool is_within(uint32_t first, uint32_t pages, uint32_t from, uint32_t size)
{
	return first >= from && pages <= size && first - from <= size - pages;
}

static bool is_unmapped(uint32_t first, uint32_t pages)
{
	return unmapped && is_within(first, pages, TARN_TEST_BLOCK_PAGES, TARN_TEST_UNMAPPED_PAGES);
}

static bool is_ours(uint32_t first, uint32_t pages)
{
	return is_within(first, pages, 0, TARN_TEST_BLOCK_PAGES) || is_unmapped(first, pages);
}

static long describe_block(struct tarn_test_block __user *arg)
{
	const struct tarn_test_block description = {
		.address = page_address_of(0),
		.physical = frame_of(0),
	};

	return copy_to_user(arg, &description, sizeof(description)) ? -EFAULT : 0;
}

static pgprot_t no_access(void)
{
	return __pgprot(pgprot_val(PAGE_KERNEL) & ~PTE_VALID);
}

static long change_range(const struct tarn_test_range __user *arg)
{
	struct tarn_test_range range;
	pgprot_t prot = PAGE_KERNEL;

	if (copy_from_user(&range, arg, sizeof(range)))
		return -EFAULT;
	if (!is_ours(range.first, range.pages) || !is_ours(range.target, range.pages))
		return -EINVAL;
	switch (range.access) {
	case TARN_TEST_ORDINARY:
		break;
	case TARN_TEST_READ_ONLY:
		prot = PAGE_KERNEL_RO;
		break;
	case TARN_TEST_NONE:
		prot = no_access();
		break;
	default:
		return -EINVAL;
	}
	if (is_unmapped(range.first, range.pages)) {
		unmapped_changed = true;
	} else {
		changed_first = min(changed_first, (unsigned long)range.first);
		changed_end = max(changed_end, (unsigned long)range.first + range.pages);
	}
	remap(range.first, range.pages, range.target, prot);
	invalidate(range.first, range.pages);
	return 0;
}

static int read_word(const u64 *from, u64 *to)
{
	pagefault_disable();
	__get_kernel_nofault(to, from, u64, fault);
	pagefault_enable();
	return 0;
fault:
	pagefault_enable();
	return -EFAULT;
}

static int write_word(u64 *to, const u64 *from)
{
	pagefault_disable();
	__put_kernel_nofault(to, from, u64, fault);
	pagefault_enable();
	return 0;
fault:
	pagefault_enable();
	return -EFAULT;
}

static long touch_word(struct tarn_test_word __user *arg, bool write)
{
	struct tarn_test_word word;
	u64 value;
	int err;

	if (copy_from_user(&word, arg, sizeof(word)))
		return -EFAULT;
	if (word.reserved || !is_ours(word.page, 1))
		return -EINVAL;
	value = word.value;
	if (write)
		return write_word((u64 *)page_address_of(word.page), &value);
	err = read_word((u64 *)page_address_of(word.page), &value);
	if (err)
		return err;
	return put_user(value, &arg->value);
}

static uint32_t count_flagged(void)
{
	uint32_t flagged = 0;

	for (unsigned long i = 0; i < TARN_TEST_BLOCK_PAGES; i++)
		flagged += test_bit(SECURE_FLAG, &block[i].flags);
	return flagged;
}

static int change_flags(const struct tarn_test_flags *request)
{
	const unsigned long stride = DIV_ROUND_UP(request->entry_bytes, PAGE_SIZE) + 1;
	struct page *page = block;
	struct scatterlist *entry;
	struct sg_table table;
	int i, err;

	/* This flag bit is the platform's; another kernel may use it for something else. */
	if (__NR_PAGEFLAGS > SECURE_FLAG)
		return -EOPNOTSUPP;
	if (request->set > 1 || !request->entry_bytes ||
	    request->entries * stride > TARN_TEST_BLOCK_PAGES)
		return -EINVAL;
	if (!request->entries) {
		tarn_change_page_flag(NULL, request->set);
		return 0;
	}
	err = sg_alloc_table(&table, request->entries, GFP_KERNEL);
	if (err)
		return err;
	for_each_sgtable_sg(&table, entry, i) {
		sg_set_page(entry, page, request->entry_bytes, 0);
		page += stride;
	}
	tarn_change_page_flag(&table, request->set);
	sg_free_table(&table);
	return 0;
}

static long page_flags(struct tarn_test_flags __user *arg)
{
	struct tarn_test_flags request;
	int err;

	if (copy_from_user(&request, arg, sizeof(request)))
		return -EFAULT;
	err = change_flags(&request);
	if (err)
		return err;
	return put_user(count_flagged(), &arg->flagged);
}

static long block_ioctl(unsigned int cmd, void __user *arg)
{
	switch (cmd) {
	case TARN_IOC_TEST_BLOCK:
		return describe_block(arg);
	case TARN_IOC_TEST_RANGE:
		return change_range(arg);
	case TARN_IOC_TEST_PAGE_FLAGS:
		return page_flags(arg);
	default:
		return -ENOTTY;
	}
}

long test_block_ioctl(unsigned int cmd, void __user *arg)
{
	long ret;

	if (_IOC_TYPE(cmd) != 'T' || _IOC_NR(cmd) < _IOC_NR(TARN_IOC_TEST_BLOCK))
		return -ENOTTY;
	if (cmd == TARN_IOC_TEST_READ || cmd == TARN_IOC_TEST_WRITE) {
		/* An open device keeps the module, and the module keeps its block. */
		if (!smp_load_acquire(&block))
			return -ENXIO;
		return touch_word(arg, cmd == TARN_IOC_TEST_WRITE);
	}
	mutex_lock(&block_lock);
	ret = allocate_block();
	if (!ret)
		ret = block_ioctl(cmd, arg);
	mutex_unlock(&block_lock);
	return ret;
}

static bool is_whole(void)
{
	for (unsigned long i = changed_first; i < changed_end; i++) {
		u64 value;

		if (read_word((u64 *)page_address_of(i), &value) ||
		    write_word((u64 *)page_address_of(i), &value))
			return false;
	}
	return true;
}

void test_block_exit(void)
{
	if (!block)
		return;
	if (unmapped_changed) {
		remap(TARN_TEST_BLOCK_PAGES, TARN_TEST_UNMAPPED_PAGES, TARN_TEST_BLOCK_PAGES,
		      no_access());
		invalidate(TARN_TEST_BLOCK_PAGES, TARN_TEST_UNMAPPED_PAGES);
	}
	if (changed_first < changed_end) {
		const unsigned long pages = changed_end - changed_first;

		remap(changed_first, pages, changed_first, PAGE_KERNEL);
		invalidate(changed_first, pages);
	}
	/* If the block is not mapped as before, its next user would fault, so leak it. */
	if (!is_whole()) {
		pr_err("leaking the test block: it is not mapped as before\n");
		return;
	}
	for (unsigned long i = 0; i < TARN_TEST_BLOCK_PAGES; i++)
		clear_bit(SECURE_FLAG, &block[i].flags);
	__free_pages(block, BLOCK_ORDER);
}
