/* SPDX-License-Identifier: GPL-2.0-only */
#pragma once

#include <kernel/types.h>

#ifndef KERNEL_NATIVE_TYPES
/* The identity of a class of locks: one static object a place of initialisation. */
KERNEL_OPAQUE(lock_class_key, KERNEL_SIZEOF_LOCK_CLASS_KEY);
#endif
