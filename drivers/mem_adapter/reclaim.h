// SPDX-License-Identifier: GPL-2.0-only
// The callback for each file system of a page cache drop.
#pragma once

#include <kernel/compiler.h>

struct super_block;

KERNEL_C_BEGIN

// Drops the clean, unmapped page cache of one file system. Context: process, may sleep.
void drop_pagecache_sb(struct super_block *sb, void *arg);

KERNEL_C_END
