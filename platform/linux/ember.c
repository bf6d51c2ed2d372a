// SPDX-License-Identifier: GPL-2.0-only
/*
 * The platform's event client. Instead of a service it has a debugfs file: ember/events shows the
 * last events, one per line; writing to it clears them.
 */
#include <linux/debugfs.h>
#include <linux/err.h>
#include <linux/export.h>
#include <linux/module.h>
#include <linux/mutex.h>
#include <linux/seq_file.h>
#include <linux/slab.h>
#include <linux/types.h>

#include <platform/ember.h>

#define KEPT_EVENTS 64u
#define EVENT_TEXT_SIZE 1024

/* An event is the text of its line so far. */
struct cdev_tevent {
	size_t length;
	char text[EVENT_TEXT_SIZE];
};

static bool refuse;
module_param(refuse, bool, 0644);
MODULE_PARM_DESC(refuse, "refuse to allocate events");

/* kept_lock guards both. Event number n is in slot n modulo the ring size. */
static DEFINE_MUTEX(kept_lock);
static struct cdev_tevent *kept[KEPT_EVENTS];
static unsigned int delivered;

static struct dentry *directory;

static int __printf(2, 3) append(struct cdev_tevent *event, const char *format, ...)
{
	const size_t room = sizeof(event->text) - event->length;
	va_list args;
	int length;

	va_start(args, format);
	length = vsnprintf(event->text + event->length, room, format, args);
	va_end(args);
	if (length >= room) {
		event->text[event->length] = '\0';
		return -ENOSPC;
	}
	event->length += length;
	return 0;
}

struct cdev_tevent *cdev_tevent_alloc(int number)
{
	struct cdev_tevent *event;

	if (READ_ONCE(refuse))
		return NULL;
	event = kzalloc(sizeof(*event), GFP_KERNEL);
	if (event)
		append(event, "event %d:", number);
	return event;
}
EXPORT_SYMBOL(cdev_tevent_alloc);

int cdev_tevent_add_str(struct cdev_tevent *event, const char *key, const char *value)
{
	return append(event, " %s=%s", key, value);
}
EXPORT_SYMBOL(cdev_tevent_add_str);

int cdev_tevent_add_int(struct cdev_tevent *event, const char *key, s64 value)
{
	return append(event, " %s=%lld", key, value);
}
EXPORT_SYMBOL(cdev_tevent_add_int);

int cdev_tevent_write(struct cdev_tevent *event)
{
	struct cdev_tevent *copy = kmemdup(event, sizeof(*event), GFP_KERNEL);
	struct cdev_tevent **slot;

	if (!copy)
		return -ENOMEM;
	mutex_lock(&kept_lock);
	slot = &kept[delivered++ % KEPT_EVENTS];
	kfree(*slot);
	*slot = copy;
	mutex_unlock(&kept_lock);
	return 0;
}
EXPORT_SYMBOL(cdev_tevent_write);

void cdev_tevent_destroy(struct cdev_tevent *event)
{
	kfree(event);
}
EXPORT_SYMBOL(cdev_tevent_destroy);

static void forget_events(void)
{
	mutex_lock(&kept_lock);
	for (unsigned int i = 0; i < KEPT_EVENTS; i++) {
		kfree(kept[i]);
		kept[i] = NULL;
	}
	delivered = 0;
	mutex_unlock(&kept_lock);
}

static int events_show(struct seq_file *m, void *unused)
{
	mutex_lock(&kept_lock);
	for (unsigned int i = 0; i < KEPT_EVENTS; i++) {
		/* The next slot to write holds the oldest event, or none yet. */
		const struct cdev_tevent *event = kept[(delivered + i) % KEPT_EVENTS];

		if (event)
			seq_printf(m, "%s\n", event->text);
	}
	mutex_unlock(&kept_lock);
	return 0;
}

static int events_open(struct inode *inode, struct file *file)
{
	return single_open(file, events_show, NULL);
}

static ssize_t events_write(struct file *file, const char __user *buf, size_t count, loff_t *pos)
{
	forget_events();
	return count;
}

static const struct file_operations events_fops = {
	.owner = THIS_MODULE,
	.open = events_open,
	.read = seq_read,
	.write = events_write,
	.llseek = seq_lseek,
	.release = single_release,
};

static int __init ember_init(void)
{
	directory = debugfs_create_dir("ember", NULL);
	debugfs_create_file("events", 0600, directory, NULL, &events_fops);
	return 0;
}

static void __exit ember_exit(void)
{
	debugfs_remove(directory);
	forget_events();
}

module_init(ember_init);
module_exit(ember_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("Event client");
