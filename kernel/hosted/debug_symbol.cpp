// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/debug_symbol.h>

#include <array>
#include <atomic>

#include <hosted/engine/fault.h>
#include <hosted/fs.h>
#include <hosted/pgtable.h>
#include <hosted/reclaim.h>
#include <hosted/slab.h>

namespace
{

// What a lookup of a hidden index returns, by index.
struct hidden_symbol {
	std::atomic<bool> hidden;
	std::atomic<void *> instead;
};
constinit std::array<hidden_symbol, ADS_SLAB_MUTEX + 1> hidden_symbols{};

template <class F>
void *address_of(F *function)
{
	return reinterpret_cast<void *>(function);
}

} // namespace

void hosted::hide_debug_symbol(android_debug_symbol_index index, void *instead)
{
	hidden_symbols[index].instead = instead;
	hidden_symbols[index].hidden = true;
}

void hosted::reset_debug_symbols()
{
	for (hidden_symbol &symbol : hidden_symbols)
		symbol.hidden = false;
}

void *helper_debug_symbol(int index)
{
	if (hosted::should_fail("android_debug_symbol"))
		return ERR_PTR(-ENOENT);
	if (index >= 0 && index <= ADS_SLAB_MUTEX && hidden_symbols[index].hidden)
		return hidden_symbols[index].instead;
	switch (index) {
	case ADS_INIT_MM:
		return hosted::init_mm();
	case ADS_ITERATE_SUPERS:
		return address_of(hosted::iterate_supers);
	case ADS_DROP_SLAB:
		return address_of(hosted::drop_slab);
	case ADS_TRY_TO_FREE_PAGES:
		return address_of(hosted::try_to_free_pages);
	case ADS_TRY_TO_COMPACT_PAGES:
		return address_of(hosted::try_to_compact_pages);
	case ADS_SLAB_CACHES:
		return hosted::slab_caches();
	case ADS_SLAB_MUTEX:
		return &hosted::slab_mutex();
	default:
		return ERR_PTR(-ENOENT);
	}
}
