/* SPDX-License-Identifier: GPL-2.0-only */
/* Processes: their list, memory and signals. */
#pragma once

#include <kernel/sched.h>

#ifndef KERNEL_NATIVE_TYPES
KERNEL_C_BEGIN

#define PF_MEMALLOC 0x800u
#define PF_KTHREAD 0x200000u
#define TASK_UNINTERRUPTIBLE 2u
#define SIGKILL 9

struct mm_struct;

/* The first task; the list of processes starts and ends here. */
extern struct task_struct init_task;

/* Sends a signal; with priv 0, as if from user space. Returns 0 or a negative error. Context:
 * any. */
int send_sig(int sig, struct task_struct *task, int priv);

KERNEL_C_END
#endif

/* Counters of a process's memory use. */
enum mm_counter { MM_COUNTER_FILE, MM_COUNTER_ANON, MM_COUNTER_SWAP, MM_COUNTER_SHMEM };

KERNEL_C_BEGIN

/* Walk the lists in an RCU read section, which also keeps the tasks found there alive.
 * helper_next_process goes round to init_task; the functions for threads return null at the end. */
struct task_struct *helper_next_process(struct task_struct *task);
struct task_struct *helper_first_thread(struct task_struct *process);
struct task_struct *helper_next_thread(struct task_struct *thread);

/* The task's alloc_lock, a spinlock. It keeps the task's mm alive. */
void helper_task_lock(struct task_struct *task) ACQUIRE(task);
void helper_task_unlock(struct task_struct *task) RELEASE(task);
/* Null for a kernel thread and for a task that has given up its memory. Call under the task
 * lock. */
const struct mm_struct *helper_task_mm(const struct task_struct *task) REQUIRES(task);

unsigned int helper_task_flags(const struct task_struct *task);
unsigned int helper_task_state(const struct task_struct *task);
/* Whether the kernel's OOM killer has given the task access to memory reserves. */
bool helper_task_is_memdie(const struct task_struct *task);
/* The process's score adjustment, -1000 to 1000. */
int helper_task_oom_score_adj(const struct task_struct *task);
/* In pages; never negative. */
unsigned long helper_mm_counter(const struct mm_struct *mm, enum mm_counter counter);

/* Flags of the current task, which only the task itself changes. */
void helper_current_set_flags(unsigned int flags);
void helper_current_clear_flags(unsigned int flags);
/* Whether the current task should give up its CPU. */
bool helper_need_resched(void);

KERNEL_C_END
