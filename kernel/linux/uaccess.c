// SPDX-License-Identifier: GPL-2.0-only
#include <linux/uaccess.h>

#include <kernel/uaccess.h>

unsigned long helper_copy_from_user(void *to, const void *user_from, unsigned long n)
{
	return copy_from_user(to, (const void __user *)user_from, n);
}

unsigned long helper_copy_to_user(void *user_to, const void *from, unsigned long n)
{
	return copy_to_user((void __user *)user_to, from, n);
}
