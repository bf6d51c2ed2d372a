/* SPDX-License-Identifier: GPL-2.0-only */
/* An attribute group together with its attribute list; the module embeds both as one object. */
#pragma once

#include <linux/sysfs.h>

#define KERNEL_GROUP_ATTRIBUTES 8

struct listed_group {
	struct attribute_group group;
	struct attribute *list[KERNEL_GROUP_ATTRIBUTES + 1];
};
