// SPDX-License-Identifier: GPL-2.0-only
#include <linux/kobject.h>
#include <linux/sysfs.h>

#include <kernel/sysfs.h>

#include "sysfs.h"

void helper_kobj_attribute_init(struct kobj_attribute *attr, const char *name, umode_t mode,
				long (*show)(struct kobject *kobj, struct kobj_attribute *attr,
					     char *buf),
				long (*store)(struct kobject *kobj, struct kobj_attribute *attr,
					      const char *buf, size_t count))
{
	sysfs_attr_init(&attr->attr);
	attr->attr.name = name;
	attr->attr.mode = mode;
	attr->show = show;
	attr->store = store;
}

void helper_attribute_group_init(struct attribute_group *grp, struct kobj_attribute *const *attrs,
				 size_t count)
{
	struct listed_group *listed = container_of(grp, struct listed_group, group);

	for (size_t i = 0; i < count && i < KERNEL_GROUP_ATTRIBUTES; i++)
		listed->list[i] = &attrs[i]->attr;
	grp->attrs = listed->list;
}
