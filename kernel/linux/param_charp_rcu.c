// SPDX-License-Identifier: GPL-2.0-only
#include <asm/barrier.h>
#include <linux/errno.h>
#include <linux/kernel.h>
#include <linux/rcupdate.h>
#include <linux/slab.h>
#include <linux/string.h>

#include "param_charp_rcu.h"

/* The limit of every string parameter. */
#define MAX_LENGTH 1024

/* Called with the parameter lock held. */
static int set(const char *value, const struct kernel_param *kp)
{
	struct param_charp_rcu *param = kp->arg;
	char *old = param->allocated;
	char *text;

	if (strlen(value) > MAX_LENGTH)
		return -ENOSPC;
	text = kstrdup(value, GFP_KERNEL);
	if (!text)
		return -ENOMEM;
	/* Publish the text before the pointer to it. */
	smp_store_release(param->variable, text);
	param->allocated = text;
	synchronize_rcu();
	kfree(old);
	return 0;
}

static int get(char *buffer, const struct kernel_param *kp)
{
	const struct param_charp_rcu *param = kp->arg;

	return scnprintf(buffer, PAGE_SIZE, "%s\n", *param->variable);
}

static void release(void *arg)
{
	const struct param_charp_rcu *param = arg;

	kfree(param->allocated);
}

const struct kernel_param_ops param_ops_charp_rcu = {.set = set, .get = get, .free = release};
