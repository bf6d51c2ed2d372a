// SPDX-License-Identifier: GPL-2.0-only
/*
 * For tests only: secure ranges and page flags, tried on a block of memory that this module owns.
 * When the block is freed it is mapped as before, except that split mappings stay split.
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

/* block_lock guards all of these. Pages from changed_first up to, but excluding, changed_end may be
 * remapped. */
static DEFINE_MUTEX(block_lock);
static struct page *block;
static unsigned long changed_first = TARN_TEST_BLOCK_PAGES;
static unsigned long changed_end;

static unsigned long page_address_of(unsigned long number)
{
	return (unsigned long)page_address(block) + number * PAGE_SIZE;
}

static phys_addr_t frame_of(unsigned long number)
{
	return page_to_phys(block) + number * PAGE_SIZE;
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
	if (block)
		return 0;
	block = allocate_in_gigabyte();
	if (!block)
		block = alloc_pages(GFP_KERNEL | __GFP_NOWARN, BLOCK_ORDER);
	if (!block)
		return -ENOMEM;
	for (unsigned long i = 0; i < TARN_TEST_BLOCK_PAGES; i++)
		*(u64 *)page_address_of(i) = i;
	return 0;
}

/*
 * An entry rewritten in place keeps its old translation until that is invalidated, which the
 * service leaves to its callers.
 */
static void remap(unsigned long first, unsigned long pages, unsigned long target, pgprot_t prot)
{
	const unsigned long address = page_address_of(first);

	tarn_change_secpage_range(frame_of(target), address, pages * PAGE_SIZE, prot);
	flush_tlb_kernel_range(address, address + pages * PAGE_SIZE);
}

static bool is_in_block(uint32_t first, uint32_t pages)
{
	return pages <= TARN_TEST_BLOCK_PAGES && first <= TARN_TEST_BLOCK_PAGES - pages;
}

static long describe_block(struct tarn_test_block __user *arg)
{
	const struct tarn_test_block description = {
		.address = page_address_of(0),
		.physical = frame_of(0),
	};

	return copy_to_user(arg, &description, sizeof(description)) ? -EFAULT : 0;
}

static long change_range(const struct tarn_test_range __user *arg)
{
	struct tarn_test_range range;
	pgprot_t prot = PAGE_KERNEL;

	if (copy_from_user(&range, arg, sizeof(range)))
		return -EFAULT;
	if (!is_in_block(range.first, range.pages) || !is_in_block(range.target, range.pages))
		return -EINVAL;
	switch (range.access) {
	case TARN_TEST_ORDINARY:
		break;
	case TARN_TEST_READ_ONLY:
		prot = PAGE_KERNEL_RO;
		break;
	case TARN_TEST_NONE:
		prot = __pgprot(pgprot_val(prot) & ~PTE_VALID);
		break;
	default:
		return -EINVAL;
	}
	changed_first = min(changed_first, (unsigned long)range.first);
	changed_end = max(changed_end, (unsigned long)range.first + range.pages);
	remap(range.first, range.pages, range.target, prot);
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
	if (word.reserved || !is_in_block(word.page, 1))
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
	case TARN_IOC_TEST_READ:
	case TARN_IOC_TEST_WRITE:
		return touch_word(arg, cmd == TARN_IOC_TEST_WRITE);
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
	if (changed_first < changed_end)
		remap(changed_first, changed_end - changed_first, changed_first, PAGE_KERNEL);
	/* If the block is not mapped as before, its next user would fault, so leak it. */
	if (!is_whole()) {
		pr_err("leaking the test block: it is not mapped as before\n");
		return;
	}
	for (unsigned long i = 0; i < TARN_TEST_BLOCK_PAGES; i++)
		clear_bit(SECURE_FLAG, &block[i].flags);
	__free_pages(block, BLOCK_ORDER);
}
