// SPDX-License-Identifier: GPL-2.0-only
/*
 * For tests only: maps a buffer of a DMA heap for a device that this module creates. The buffer is
 * also mapped through its heap, which yields the expected addresses.
 */
#include <linux/device.h>
#include <linux/dma-buf.h>
#include <linux/dma-mapping.h>
#include <linux/err.h>
#include <linux/errno.h>
#include <linux/mmzone.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/pgtable.h>
#include <linux/platform_device.h>
#include <linux/scatterlist.h>
#include <linux/sched.h>
#include <linux/types.h>
#include <linux/uaccess.h>

#include <mem_adapter.h>
#include <uapi/tarn_device.h>

#include "tarn_client.h"

/* test_device_lock guards the device and the pointer to it. */
static DEFINE_MUTEX(test_device_lock);
static struct platform_device *device;

static int make_device(void)
{
	struct platform_device *made;
	int err;

	if (device)
		return 0;
	made = platform_device_register_simple("tarn_test_heap", PLATFORM_DEVID_NONE, NULL, 0);
	if (IS_ERR(made))
		return PTR_ERR(made);
	err = dma_set_mask_and_coherent(&made->dev, DMA_BIT_MASK(64));
	if (err) {
		platform_device_unregister(made);
		return err;
	}
	device = made;
	return 0;
}

/* The heap's own table is already mapped, and mapping would overwrite it. */
static int copy_table(struct sg_table *copy, const struct sg_table *table)
{
	struct scatterlist *from, *to;
	int i, err = sg_alloc_table(copy, table->orig_nents, GFP_KERNEL);

	if (err)
		return err;
	to = copy->sgl;
	for_each_sgtable_sg(table, from, i) {
		sg_set_page(to, sg_page(from), from->length, from->offset);
		to = sg_next(to);
	}
	return 0;
}

static void compare(const struct sg_table *table, const struct sg_table *wanted,
		    struct tarn_test_dma *test)
{
	struct scatterlist *entry, *other = wanted->sgl;
	int i;

	test->same = table->nents == wanted->nents;
	for_each_sgtable_dma_sg(table, entry, i) {
		test->bytes += sg_dma_len(entry);
		if (test->same && (sg_dma_address(entry) != sg_dma_address(other) ||
				   sg_dma_len(entry) != sg_dma_len(other)))
			test->same = 0;
		if (test->same)
			other = sg_next(other);
	}
}

static void map_table(struct dma_buf *dmabuf, struct sg_table *table, const struct sg_table *wanted,
		      struct tarn_test_dma *test)
{
	/* Nothing in this kernel dereferences the pointer, since there is no IOMMU. */
	struct dev_iommu *const pointer = test->iommu ? (void *)&device->dev : NULL;

	device->dev.iommu = pointer;
	test->result =
		tarn_heap_dma_map(&device->dev, dmabuf, table, DMA_BIDIRECTIONAL, test->attrs);
	if (!test->result) {
		compare(table, wanted, test);
		tarn_heap_dma_unmap(&device->dev, dmabuf, table, DMA_BIDIRECTIONAL, test->attrs);
	}
	device->dev.iommu = NULL;
}

static int map_attached(struct dma_buf *dmabuf, struct dma_buf_attachment *attachment,
			struct tarn_test_dma *test)
{
	struct sg_table *wanted;
	struct sg_table table;
	int err;

	wanted = dma_buf_map_attachment_unlocked(attachment, DMA_BIDIRECTIONAL);
	if (IS_ERR(wanted))
		return PTR_ERR(wanted);
	test->entries = wanted->orig_nents;
	err = copy_table(&table, wanted);
	if (!err) {
		map_table(dmabuf, &table, wanted, test);
		sg_free_table(&table);
	}
	dma_buf_unmap_attachment_unlocked(attachment, wanted, DMA_BIDIRECTIONAL);
	return err;
}

static int map_buffer(struct tarn_test_dma *test)
{
	struct dma_buf *dmabuf = dma_buf_get(test->dmabuf);
	struct dma_buf_attachment *attachment;
	int err;

	if (IS_ERR(dmabuf))
		return PTR_ERR(dmabuf);
	attachment = dma_buf_attach(dmabuf, &device->dev);
	err = PTR_ERR_OR_ZERO(attachment);
	if (!err) {
		err = map_attached(dmabuf, attachment, test);
		dma_buf_detach(dmabuf, attachment);
	}
	dma_buf_put(dmabuf);
	return err;
}

long test_dma_ioctl(unsigned int cmd, void __user *arg)
{
	struct tarn_test_dma test;
	int err;

	if (cmd != TARN_IOC_TEST_DMA)
		return -ENOTTY;
	if (copy_from_user(&test, arg, sizeof(test)))
		return -EFAULT;
	if (test.reserved || test.iommu > 1 || (test.attrs & ~DMA_ATTR_SKIP_CPU_SYNC))
		return -EINVAL;
	test.bytes = 0;
	test.same = 0;
	mutex_lock(&test_device_lock);
	err = make_device();
	if (!err)
		err = map_buffer(&test);
	mutex_unlock(&test_device_lock);
	if (err)
		return err;
	return copy_to_user(arg, &test, sizeof(test)) ? -EFAULT : 0;
}

void test_dma_exit(void)
{
	platform_device_unregister(device);
}

MODULE_IMPORT_NS(DMA_BUF);
