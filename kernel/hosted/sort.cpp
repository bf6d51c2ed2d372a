// SPDX-License-Identifier: GPL-2.0-only
#include <kernel/sort.h>

#include <algorithm>

// Heap sort, as in the kernel: it needs no memory, has no bad case and works for elements of any
// size.
void sort(void *base, size_t num, size_t size, int (*cmp)(const void *a, const void *b),
	  void (*swap_func)(void *a, void *b, int size))
{
	auto *first = static_cast<unsigned char *>(base);
	const auto element = [&](size_t i) {
		return first + i * size;
	};
	const auto swap = [&](size_t a, size_t b) {
		if (swap_func)
			swap_func(element(a), element(b), static_cast<int>(size));
		else
			std::swap_ranges(element(a), element(a) + size, element(b));
	};
	const auto sift_down = [&](size_t i, size_t end) {
		for (size_t child; (child = 2 * i + 1) < end; i = child) {
			if (child + 1 < end && cmp(element(child), element(child + 1)) < 0)
				child++;
			if (cmp(element(i), element(child)) >= 0)
				return;
			swap(i, child);
		}
	};

	for (size_t i = num / 2; i-- > 0;)
		sift_down(i, num);
	for (size_t end = num; end > 1; end--) {
		swap(0, end - 1);
		sift_down(0, end - 1);
	}
}
