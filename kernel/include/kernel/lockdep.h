/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
/* Identifies a class of locks: one static object for each place that initialises a lock. */
KERNEL_OPAQUE(lock_class_key, KERNEL_SIZEOF_LOCK_CLASS_KEY);
#endif
