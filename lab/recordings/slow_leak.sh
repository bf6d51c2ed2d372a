# SPDX-License-Identifier: GPL-2.0-only
# shellcheck shell=sh
# About ten seconds of a daemon that leaks slowly among busy programs
# (lab/programs/busy_device.cpp). The leak is still held when the recording ends; backup has freed
# everything it held by then.
tracing=/sys/kernel/tracing

echo 16384 >$tracing/buffer_size_kb
echo 1 >$tracing/options/stacktrace
echo 1 >$tracing/options/sym-offset
for event in kmem_cache_alloc kmem_cache_free kmalloc kfree; do
	echo 1 >$tracing/events/kmem/$event/enable
done
echo 0 >$tracing/tracing_on
echo >$tracing/trace

busy_device 14 >/dev/null &
sleep 1
echo 1 >$tracing/tracing_on
sleep 11
echo 0 >$tracing/tracing_on
wait
