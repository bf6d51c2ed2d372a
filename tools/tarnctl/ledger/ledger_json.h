// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <nlohmann/json.hpp>

#include <tarnctl/ledger/ledger.h>
#include <tarnctl/ledger/report.h>

namespace tarn::ledger
{

// The members that a hunt's JSON has from the ledger: trust, live, caches, held, suspects and
// uncertain. Limits of 0 are none. docs/json.md describes them.
void add_ledger_members(nlohmann::ordered_json &object, const ledger &account, std::size_t top,
			std::size_t frames, stack_order order);

// The JSON of the caches command.
nlohmann::ordered_json caches_json(const ledger &account, cache_order order, std::size_t top);

} // namespace tarn::ledger
