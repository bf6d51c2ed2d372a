/* SPDX-License-Identifier: GPL-2.0-only */
/* The platform's event client, a module of its own. */
#pragma once

#include <kernel/types.h>

KERNEL_C_BEGIN

struct cdev_tevent;

/* Allocates an event with this number; null on failure. Context for all functions here: process,
 * may sleep. */
struct cdev_tevent *cdev_tevent_alloc(int event);
int cdev_tevent_add_str(struct cdev_tevent *event, const char *key, const char *value);
int cdev_tevent_add_int(struct cdev_tevent *event, const char *key, s64 value);
/* Sends the event. The caller must still destroy it. */
int cdev_tevent_write(struct cdev_tevent *event);
void cdev_tevent_destroy(struct cdev_tevent *event);

KERNEL_C_END
