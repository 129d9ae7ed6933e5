/* SPDX-License-Identifier: GPL-2.0 */
/* What can be worked out from the memory reports; nothing is printed here. */
#ifndef ZORVA_TOOL_MEMORY_H
#define ZORVA_TOOL_MEMORY_H

#include "model.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zorva
{

/* What each block costs beyond the bytes that its owner has asked for. */
constexpr uint64_t block_overhead = 56;

/* A block's age at the report's own time. */
uint64_t age_of(const memory_detail &from, const block &one);

/* Blocks that have something in common. */
struct block_group {
	std::string component;
	site from;	   /* if grouped by it */
	uint64_t low = 0;  /* the smallest size or age */
	uint64_t high = 0; /* the largest */
	uint64_t blocks = 0;
	uint64_t bytes = 0;
	uint64_t oldest = 0; /* ages */
	uint64_t youngest = UINT64_MAX;
};

enum class grouping : uint8_t {
	by_component,
	by_site,
	by_size,
	by_age
};

/*
 * group_blocks - the sound blocks of a report in groups
 * @older_than: leaves out blocks that are younger, in seconds
 *
 * Return: those with the most bytes first; by age the youngest first.
 */
std::vector<block_group> group_blocks(const memory_detail &from, grouping by,
				      uint64_t older_than = 0);

/*
 * The figures of the components: those of the table, or without it those of
 * the detailed report.
 */
const std::vector<component_usage> &usage_of(const model &from);

/* What the kernel has left, if that is known. */
std::optional<uint64_t> available_memory(const model &from);

/* How one place of allocation went from moment to moment. */
struct growth {
	std::string component;
	site from; /* empty: the whole component is meant */
	/* At each moment: */
	std::vector<uint64_t> blocks;
	std::vector<uint64_t> bytes;
	uint64_t oldest = 0; /* age of its oldest block at the last moment */
	/* Blocks of the first moment that are gone at the last one. */
	std::optional<uint64_t> freed;

	unsigned rises = 0; /* steps in which it grew */
	unsigned falls = 0; /* steps in which it shrank */

	int64_t more_bytes() const
	{
		return static_cast<int64_t>(bytes.back() - bytes.front());
	}
	int64_t more_blocks() const
	{
		return static_cast<int64_t>(blocks.back() - blocks.front());
	}
	/* It only ever grew. */
	bool only_up() const
	{
		return rises && !falls;
	}
	/* What it costs the kernel, without its heap's own rounding. */
	int64_t cost() const
	{
		return more_bytes() +
		       more_blocks() * static_cast<int64_t>(block_overhead);
	}
};

struct comparison {
	std::vector<uint64_t> times; /* seconds since boot, of each moment */
	bool by_site = false;	     /* else by component alone */
	/* What is more at the last moment than at the first, most first. */
	std::vector<growth> grown;
	uint64_t steady = 0; /* places that are not */

	uint64_t seconds() const
	{
		return times.back() - times.front();
	}
};

/*
 * compare - what grew
 * @moments: at least two, oldest first, each with its memory reports
 */
comparison compare(const std::vector<const model *> &moments);

/* When a moment was, as far as its reports or its uptime tell. */
std::optional<uint64_t> time_of(const model &from);

/* A damaged block, and what may have done it. */
struct damage {
	const torn_block *torn = nullptr;
	/* The next block below it in memory: one of the two, or none. */
	const block *below = nullptr;
	const torn_block *torn_below = nullptr;
	uint64_t distance = 0; /* from header to header */
	/* The heap has nothing between the two. */
	bool adjacent = false;
};

/* By address. */
std::vector<damage> find_damage(const memory_detail &from);

/* A component whose account and list differ. */
struct mismatch {
	const component_usage *component = nullptr;
	uint64_t listed = 0; /* blocks, torn ones too */
};

/*
 * Those of a whole report of which nothing is cut off: a header was
 * overwritten together with its owner.
 */
std::vector<mismatch> find_mismatches(const memory_detail &from);

} // namespace zorva

#endif
