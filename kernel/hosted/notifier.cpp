// SPDX-License-Identifier: GPL-2.0-only
#include <hosted/notifier.h>

#include <mutex>
#include <shared_mutex>
#include <string>
#include <vector>

#include <fmt/format.h>

#include <hosted/engine/fault.h>
#include <hosted/engine/judge.h>
#include <hosted/engine/leftovers.h>
#include <kernel/err.h>

namespace hosted
{
namespace
{

// A callback that returns a value with this bit ends the walk.
constexpr int notify_stop_mask = 0x8000;

// Held shared while callbacks run, so that none is removed while it runs.
constinit std::shared_mutex lock;
constinit notifier_block *chain = nullptr;
constinit thread_local bool in_callback = false;

void enter(const char *call)
{
	might_sleep(call);
	if (in_callback)
		judge_stop("notifier",
			   fmt::format("{} from a callback of the same chain: deadlock", call));
}

std::vector<std::string> report()
{
	const std::shared_lock guard(lock);
	std::vector<std::string> lines;
	for (const notifier_block *nb = chain; nb; nb = nb->next)
		lines.push_back(
			fmt::format("vmap purge notifier {}", static_cast<const void *>(nb)));
	return lines;
}

const leftover_source source(report);

} // namespace

unsigned long call_vmap_purge_chain()
{
	enter("vmap purge");
	const std::shared_lock guard(lock);
	in_callback = true;
	unsigned long freed = 0;
	for (notifier_block *nb = chain, *next = nullptr; nb; nb = next) {
		next = nb->next;
		const callback_check check("vmap purge notifier");
		if (nb->notifier_call(nb, 0, &freed) & notify_stop_mask)
			break;
	}
	in_callback = false;
	return freed;
}

} // namespace hosted

using namespace hosted;

int register_vmap_purge_notifier(notifier_block *nb)
{
	enter("register_vmap_purge_notifier");
	if (should_fail("register_vmap_purge_notifier"))
		return -ENOMEM;
	const std::unique_lock guard(lock);
	notifier_block **link = &chain;
	for (notifier_block *other = chain; other; other = other->next) {
		if (other == nb)
			judge_stop("notifier", "block registered twice on the vmap purge chain");
		if (other->priority >= nb->priority)
			link = &other->next;
	}
	nb->next = *link;
	*link = nb;
	return 0;
}

int unregister_vmap_purge_notifier(notifier_block *nb)
{
	enter("unregister_vmap_purge_notifier");
	const std::unique_lock guard(lock);
	notifier_block **link = &chain;
	while (*link && *link != nb)
		link = &(*link)->next;
	if (!*link)
		return -ENOENT;
	*link = nb->next;
	return 0;
}
