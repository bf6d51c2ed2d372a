// SPDX-License-Identifier: GPL-2.0-only
// The index of CMA records: finds the record that a release belongs to, and the records in order of
// first page, without a walk over all of them.
//
// A release belongs to the record of exactly its range, else to the first that shares an edge or a
// page with it in the order of the list: what has been allocated since the last listing, newest
// first, and then the rest by first page. A listing only notes its time; no record moves. The
// kernel frees a range before it reports the release, so newer records may cover parts of it.
#pragma once

#include "cma_track.h"

// A place in the order of first page; of records with the same first page the newest comes first.
struct cma_place {
	unsigned long pfn;
	u64 serial;
};

inline constexpr cma_place cma_first_place = {0, ~0ULL};

inline cma_place cma_place_of(const struct cma_stackinfo &info)
{
	return {info.start_pfn, info.serial};
}

KERNEL_C_BEGIN

// Records up to this serial number are ranked by first page: they are older than a listing.
extern u64 cma_ranked_serial GUARDED_BY(cma_lock);

// Adds a record and gives it its serial number. Its range is set. Context: any; never sleeps.
void cma_index_add(struct cma_stackinfo *info) REQUIRES(cma_lock);
// Context: any; never sleeps.
void cma_index_remove(struct cma_stackinfo *info) REQUIRES(cma_lock);
// Empties the index at once and leaves the records as they are. Context: any; never sleeps.
void cma_index_clear(void) REQUIRES(cma_lock);

// Returns the record of an area that a release from start to end belongs to, or null. end is
// start - 1 in a release of no pages. Context: any; never sleeps.
struct cma_stackinfo *cma_index_find(const char *name, unsigned long start, unsigned long end)
	REQUIRES(cma_lock);

// Ranks all records by first page from now on. Context: any; never sleeps.
void cma_index_rank(void) REQUIRES(cma_lock);
// Returns whether a record is ranked by first page. Context: any; never sleeps.
bool cma_index_ranked(const struct cma_stackinfo &info) REQUIRES(cma_lock);
// Return the record behind a place, or behind a record, or null at the end. Context: any; never
// sleep.
struct cma_stackinfo *cma_index_behind(const cma_place &place) REQUIRES(cma_lock);
struct cma_stackinfo *cma_index_next(const struct cma_stackinfo *info) REQUIRES(cma_lock);

KERNEL_C_END
