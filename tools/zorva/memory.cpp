// SPDX-License-Identifier: GPL-2.0
#include "memory.h"

#include <algorithm>
#include <array>
#include <map>
#include <tuple>
#include <unordered_map>

namespace zorva
{
namespace
{

/* Where one age ends and the next begins, in seconds. */
constexpr std::array<uint64_t, 6> age_limits = {
	60, 600, 3600, 6 * 3600, 24 * 3600, UINT64_MAX,
};

size_t age_class(uint64_t age)
{
	size_t i = 0;

	while (age >= age_limits[i] && i + 1 < age_limits.size())
		++i;
	return i;
}

void add(block_group &group, const block &one, uint64_t age)
{
	++group.blocks;
	group.bytes += one.size;
	group.oldest = std::max(group.oldest, age);
	group.youngest = std::min(group.youngest, age);
}

/* The heap's own sizes on the target: 128, 256, 512 bytes and so on. */
uint64_t heap_size(uint64_t bytes)
{
	uint64_t size = 128;

	while (size < bytes && size < UINT64_MAX / 2)
		size *= 2;
	return size;
}

/* What tells a block from all others, as long as it lives. */
struct identity {
	uint64_t address;
	uint64_t time;
	uint32_t group;

	auto operator<=>(const identity &) const = default;
};

using group_key = std::tuple<std::string, std::string, int64_t>;

struct group_table {
	std::map<group_key, uint32_t> numbers;
	std::vector<growth> groups;

	uint32_t number(const std::string &component, const site &from,
			size_t moments)
	{
		const auto [at, is_new] =
			numbers.try_emplace(group_key(component, from.file,
						      from.line),
					    static_cast<uint32_t>(
						    groups.size()));

		if (is_new) {
			growth &added = groups.emplace_back();

			added.component = component;
			added.from = from;
			added.blocks.resize(moments);
			added.bytes.resize(moments);
		}
		return at->second;
	}
};

/*
 * Counts a report's blocks; @of gets what tells them, if it is wanted. There
 * are few places and many blocks: each pair of a component and a place is
 * looked up once.
 */
void count(group_table &table, const memory_detail &from, size_t moment,
	   size_t moments, std::vector<identity> *of)
{
	std::unordered_map<uint64_t, uint32_t> known;

	for (const block &one : from.blocks) {
		const uint64_t pair = uint64_t{ one.component } << 32 |
				      one.site;
		auto at = known.find(pair);

		if (at == known.end())
			at = known.emplace(pair,
					   table.number(from.components
								[one.component]
									.name,
							from.sites[one.site],
							moments))
				     .first;

		growth &group = table.groups[at->second];

		++group.blocks[moment];
		group.bytes[moment] += one.size;
		if (moment + 1 == moments)
			group.oldest =
				std::max(group.oldest, age_of(from, one));
		if (of)
			of->push_back({ one.address, one.time, at->second });
	}
}

/* The blocks that are gone. */
void count_freed(std::vector<growth> &groups, std::vector<identity> &first,
		 std::vector<identity> &last)
{
	for (growth &one : groups)
		one.freed = 0;
	std::sort(first.begin(), first.end());
	std::sort(last.begin(), last.end());

	auto at = last.begin();

	for (const identity &one : first) {
		while (at != last.end() && *at < one)
			++at;
		if (at == last.end() || *at != one)
			++*groups[one.group].freed;
	}
}

} // namespace

uint64_t age_of(const memory_detail &from, const block &one)
{
	const uint64_t now = from.state.now.value_or(0);

	return now > one.time ? now - one.time : 0;
}

std::vector<block_group> group_blocks(const memory_detail &from, grouping by,
				      uint64_t older_than)
{
	std::unordered_map<uint64_t, size_t> known;
	std::vector<block_group> groups;

	for (const block &one : from.blocks) {
		const uint64_t age = age_of(from, one);
		uint64_t key = one.component;

		if (age < older_than)
			continue;
		if (by == grouping::by_site)
			key = key << 32 | one.site;
		else if (by == grouping::by_size)
			key = one.size;
		else if (by == grouping::by_age)
			key = age_class(age);

		const auto [at, is_new] = known.try_emplace(key, groups.size());

		if (is_new) {
			block_group &added = groups.emplace_back();

			if (by == grouping::by_component ||
			    by == grouping::by_site)
				added.component =
					from.components[one.component].name;
			if (by == grouping::by_site)
				added.from = from.sites[one.site];
			if (by == grouping::by_size)
				added.low = added.high = one.size;
			if (by == grouping::by_age) {
				added.low = key ? age_limits[key - 1] : 0;
				added.high = age_limits[key];
			}
		}
		add(groups[at->second], one, age);
	}

	std::sort(groups.begin(), groups.end(),
		  [by](const block_group &a, const block_group &b) {
			  if (by == grouping::by_age)
				  return a.low < b.low;
			  return std::tie(b.bytes, b.blocks, a.component,
					  a.from.file, a.from.line, a.low) <
				 std::tie(a.bytes, a.blocks, b.component,
					  b.from.file, b.from.line, b.low);
		  });
	return groups;
}

const std::vector<component_usage> &usage_of(const model &from)
{
	if (from.memory.state.present && !from.memory.components.empty())
		return from.memory.components;
	return from.blocks.components;
}

std::optional<uint64_t> available_memory(const model &from)
{
	std::optional<uint64_t> free;

	for (const memory_figure &one : from.kernel_memory) {
		if (one.name == "MemAvailable")
			return one.bytes;
		if (one.name == "MemFree")
			free = one.bytes;
	}
	return free;
}

std::optional<uint64_t> time_of(const model &from)
{
	if (from.blocks.state.now)
		return from.blocks.state.now;
	if (from.uptime_ms)
		return *from.uptime_ms / 1000;
	for (const lock_report &one : from.locks)
		if (one.state.now)
			return one.state.now;
	return {};
}

comparison compare(const std::vector<const model *> &moments)
{
	const size_t count_of = moments.size();
	comparison made;
	group_table table;
	std::vector<identity> first, last;

	made.by_site = true;
	for (const model *one : moments) {
		made.times.push_back(time_of(*one).value_or(0));
		made.by_site &= one->blocks.state.present;
	}
	for (size_t i = 0; i < count_of; ++i) {
		if (made.by_site) {
			count(table, moments[i]->blocks, i, count_of,
			      i == 0		  ? &first
			      : i + 1 == count_of ? &last
						  : nullptr);
			continue;
		}
		for (const component_usage &one : usage_of(*moments[i])) {
			growth &group = table.groups[table.number(one.name, {},
								  count_of)];

			group.blocks[i] = one.delta;
			group.bytes[i] = one.current;
		}
	}
	if (made.by_site)
		count_freed(table.groups, first, last);

	for (growth &one : table.groups) {
		for (size_t i = 1; i < count_of; ++i) {
			one.rises += one.bytes[i] > one.bytes[i - 1];
			one.falls += one.bytes[i] < one.bytes[i - 1];
		}
		if (one.more_bytes() > 0)
			made.grown.push_back(std::move(one));
		else
			++made.steady;
	}
	std::sort(made.grown.begin(), made.grown.end(),
		  [](const growth &a, const growth &b) {
			  if (a.only_up() != b.only_up())
				  return a.only_up();
			  return std::tuple(b.more_bytes(), b.more_blocks(),
					    std::tie(a.component, a.from.file,
						     a.from.line)) <
				 std::tuple(a.more_bytes(), a.more_blocks(),
					    std::tie(b.component, b.from.file,
						     b.from.line));
		  });
	return made;
}

std::vector<damage> find_damage(const memory_detail &from)
{
	struct header {
		uint64_t address;
		const block *sound;
		const torn_block *torn;
	};
	std::vector<header> headers;
	std::vector<damage> found;

	if (from.torn.empty())
		return found;
	for (const block &one : from.blocks)
		headers.push_back({ one.address - user_offset, &one, nullptr });
	for (const torn_block &one : from.torn)
		headers.push_back({ one.header, nullptr, &one });
	std::sort(headers.begin(), headers.end(),
		  [](const header &a, const header &b) {
			  return a.address < b.address;
		  });

	for (size_t i = 0; i < headers.size(); ++i) {
		damage one;

		if (!headers[i].torn)
			continue;
		one.torn = headers[i].torn;
		if (i > 0) {
			const header &below = headers[i - 1];

			one.below = below.sound;
			one.torn_below = below.torn;
			one.distance = headers[i].address - below.address;
			/* A torn one's size is not known. */
			one.adjacent =
				one.distance <=
				heap_size(below.sound ? below.sound->size +
								block_overhead
						      : 0);
		}
		found.push_back(one);
	}
	return found;
}

std::vector<mismatch> find_mismatches(const memory_detail &from)
{
	std::vector<mismatch> found;
	std::vector<uint64_t> listed(from.components.size());

	if (!from.state.whole || from.state.cut)
		return found;
	for (const block &one : from.blocks)
		++listed[one.component];
	for (const torn_block &one : from.torn)
		++listed[one.component];
	for (size_t i = 0; i < listed.size(); ++i)
		if (listed[i] != from.components[i].delta)
			found.push_back({ &from.components[i], listed[i] });
	return found;
}

} // namespace zorva
