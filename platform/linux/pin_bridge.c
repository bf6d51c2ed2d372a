// SPDX-License-Identifier: GPL-2.0-only
/*
 * Ways to pin a page that a stock kernel does not offer directly. Newer kernels have no
 * try_grab_page, so a function of that name stands in for it, for probes to find. folio_add_pin
 * exists but has hardly any callers. Writing "page ADDRESS" or "add ADDRESS" to the debugfs file
 * pin_bridge/pin pins the page at the writer's address, passes it through try_grab_page or
 * folio_add_pin, and unpins it.
 */
#define pr_fmt(fmt) KBUILD_MODNAME ": " fmt

#include <linux/debugfs.h>
#include <linux/kprobes.h>
#include <linux/mm.h>
#include <linux/module.h>
#include <linux/string.h>
#include <linux/uaccess.h>
#include <linux/version.h>
/* For the flags of the kernel's own page-grabbing functions. */
#include <mm/internal.h>

static struct dentry *directory;
static void (*add_pin)(struct folio *folio);

#if LINUX_VERSION_CODE >= KERNEL_VERSION(6, 12, 0)
int try_grab_page(struct page *page, unsigned int flags);

/* The caller has already pinned the page; a probe only needs the call. The arguments are read, as a
 * compiler may not pass those that nobody reads. */
noinline int try_grab_page(struct page *page, unsigned int flags)
{
	asm volatile("" : : "r"(page), "r"(flags));
	return 0;
}
static int (*const grab_page)(struct page *page, unsigned int flags) = try_grab_page;
#else
/* This kernel has, or may have, its own: no stand-in is needed. */
static int (*const grab_page)(struct page *page, unsigned int flags);
#endif

static int pin(bool add, unsigned long address)
{
	struct page *page;
	int pinned = pin_user_pages_fast(address & PAGE_MASK, 1, 0, &page);

	if (pinned != 1)
		return pinned < 0 ? pinned : -EFAULT;
	if (add) {
		add_pin(page_folio(page));
		unpin_user_page(page);
	} else {
		grab_page(page, FOLL_PIN);
	}
	unpin_user_page(page);
	return 0;
}

static ssize_t pin_write(struct file *file, const char __user *user, size_t size, loff_t *pos)
{
	char text[32];
	char how[8];
	unsigned long address;
	bool add;
	int err;

	if (size >= sizeof(text))
		return -EINVAL;
	if (copy_from_user(text, user, size))
		return -EFAULT;
	text[size] = 0;
	if (sscanf(text, "%7s %lx", how, &address) != 2)
		return -EINVAL;
	add = !strcmp(how, "add");
	if (add ? !add_pin : !grab_page || strcmp(how, "page"))
		return -EINVAL;
	err = pin(add, address);
	return err ? err : size;
}

static const struct file_operations pin_fops = {.owner = THIS_MODULE, .write = pin_write};

static int __init pin_bridge_init(void)
{
	struct kprobe probe = {.symbol_name = "folio_add_pin"};

	if (!register_kprobe(&probe)) {
		add_pin = (void *)probe.addr;
		unregister_kprobe(&probe);
	}
	directory = debugfs_create_dir("pin_bridge", NULL);
	debugfs_create_file("pin", 0200, directory, NULL, &pin_fops);
	return 0;
}

static void __exit pin_bridge_exit(void)
{
	debugfs_remove(directory);
}

module_init(pin_bridge_init);
module_exit(pin_bridge_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Page pins for a stock kernel");
