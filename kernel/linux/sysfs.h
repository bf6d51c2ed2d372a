/* SPDX-License-Identifier: GPL-2.0-only */
/* An attribute group with its list of attributes, which the module embeds as one. */
#pragma once

#include <linux/sysfs.h>

#define KERNEL_GROUP_ATTRIBUTES 8

struct listed_group {
	struct attribute_group group;
	struct attribute *list[KERNEL_GROUP_ATTRIBUTES + 1];
};
