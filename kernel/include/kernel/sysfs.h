/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

struct kobject;

KERNEL_OPAQUE(kobj_attribute, KERNEL_SIZEOF_KOBJ_ATTRIBUTE);
KERNEL_OPAQUE(attribute_group, KERNEL_SIZEOF_ATTRIBUTE_GROUP);

/* The kobject of /sys/kernel. */
extern struct kobject *kernel_kobj;

/* Returns null on failure. Context: process, may sleep. */
struct kobject *kobject_create_and_add(const char *name, struct kobject *parent);
/* Removes the directory and its files after waiting for running handlers. Null is ignored. May
 * sleep. */
void kobject_del(struct kobject *kobj);
/* Drops a reference; the last one removes the directory and its files after waiting for running
 * handlers. Null is ignored. May sleep. */
void kobject_put(struct kobject *kobj);
int sysfs_create_group(struct kobject *kobj, const struct attribute_group *grp);
/* Formats into the page passed to a show handler. Returns the length. */
int sysfs_emit(char *buf, const char *fmt, ...) KERNEL_PRINTF(2, 3);

KERNEL_C_END
#endif

KERNEL_C_BEGIN

void helper_kobj_attribute_init(struct kobj_attribute *attr, const char *name, umode_t mode,
				long (*show)(struct kobject *kobj, struct kobj_attribute *attr,
					     char *buf),
				long (*store)(struct kobject *kobj, struct kobj_attribute *attr,
					      const char *buf, size_t count));
/* Makes an unnamed group of up to KERNEL_GROUP_ATTRIBUTES attributes. */
void helper_attribute_group_init(struct attribute_group *grp, struct kobj_attribute *const *attrs,
				 size_t count);

KERNEL_C_END
