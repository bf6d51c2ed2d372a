// SPDX-License-Identifier: GPL-2.0-only
/*
 * Maps shared buffers for devices. Without the platform's SMMU these are the kernel's own DMA
 * mappings of the same table. The debugfs file tarn_smmu/calls shows the last calls, one per line;
 * writing to it clears them.
 */
#include <linux/debugfs.h>
#include <linux/device.h>
#include <linux/dma-buf.h>
#include <linux/dma-mapping.h>
#include <linux/export.h>
#include <linux/module.h>
#include <linux/scatterlist.h>
#include <linux/seq_file.h>
#include <linux/spinlock.h>
#include <linux/string.h>

#include <platform/tarn_smmu.h>

#define KEPT_CALLS 256u

/* Plain values, since the objects may be gone when the record is read. */
struct call {
	const char *verb;
	char device[32];
	const void *dmabuf;
	const void *table;
	enum dma_data_direction dir;
	unsigned long attrs;
};

/* calls_lock guards both. Call number n is in slot n modulo the ring size. */
static DEFINE_SPINLOCK(calls_lock);
static struct call calls[KEPT_CALLS];
static unsigned int recorded;

static struct dentry *directory;

static void record(const char *verb, struct device *dev, const struct dma_buf *dmabuf,
		   const struct sg_table *table, enum dma_data_direction dir, unsigned long attrs)
{
	struct call call = {
		.verb = verb,
		.dmabuf = dmabuf,
		.table = table,
		.dir = dir,
		.attrs = attrs,
	};
	unsigned long flags;

	strscpy(call.device, dev_name(dev), sizeof(call.device));
	spin_lock_irqsave(&calls_lock, flags);
	calls[recorded++ % KEPT_CALLS] = call;
	spin_unlock_irqrestore(&calls_lock, flags);
}

int tarn_iommu_map_dmabuf(struct device *dev, struct dma_buf *dmabuf, struct sg_table *table,
			  enum dma_data_direction dir, unsigned long attrs)
{
	record("map", dev, dmabuf, table, dir, attrs);
	return dma_map_sgtable(dev, table, dir, attrs);
}
EXPORT_SYMBOL(tarn_iommu_map_dmabuf);

void tarn_iommu_unmap_dmabuf(struct device *dev, struct dma_buf *dmabuf, struct sg_table *table,
			     enum dma_data_direction dir, unsigned long attrs)
{
	record("unmap", dev, dmabuf, table, dir, attrs);
	dma_unmap_sgtable(dev, table, dir, attrs);
}
EXPORT_SYMBOL(tarn_iommu_unmap_dmabuf);

static void forget_calls(void)
{
	spin_lock_irq(&calls_lock);
	memset(calls, 0, sizeof(calls));
	recorded = 0;
	spin_unlock_irq(&calls_lock);
}

static int calls_show(struct seq_file *m, void *unused)
{
	spin_lock_irq(&calls_lock);
	for (unsigned int i = 0; i < KEPT_CALLS; i++) {
		/* The next slot to write holds the oldest call, or none yet. */
		const struct call *call = &calls[(recorded + i) % KEPT_CALLS];

		if (call->verb)
			seq_printf(m, "%s dev=%s dmabuf=%p table=%p dir=%d attrs=0x%lx\n",
				   call->verb, call->device, call->dmabuf, call->table, call->dir,
				   call->attrs);
	}
	spin_unlock_irq(&calls_lock);
	return 0;
}

static int calls_open(struct inode *inode, struct file *file)
{
	return single_open(file, calls_show, NULL);
}

static ssize_t calls_write(struct file *file, const char __user *buf, size_t count, loff_t *pos)
{
	forget_calls();
	return count;
}

static const struct file_operations calls_fops = {
	.owner = THIS_MODULE,
	.open = calls_open,
	.read = seq_read,
	.write = calls_write,
	.llseek = seq_lseek,
	.release = single_release,
};

static int __init tarn_smmu_init(void)
{
	directory = debugfs_create_dir("tarn_smmu", NULL);
	debugfs_create_file("calls", 0600, directory, NULL, &calls_fops);
	return 0;
}

static void __exit tarn_smmu_exit(void)
{
	debugfs_remove(directory);
}

module_init(tarn_smmu_init);
module_exit(tarn_smmu_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Device mappings of shared buffers");
