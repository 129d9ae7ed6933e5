// SPDX-License-Identifier: GPL-2.0
/*
 * Hostile inputs: whatever they are, they are read without harm, what was read
 * holds together, and nothing of it reaches a terminal as it is.
 */
#include "memory.h"
#include "parser.h"
#include "print.h"
#include "read.h"

#include <cstdint>
#include <cstdlib>

using namespace zorva;

namespace
{

void require(bool holds)
{
	if (!holds)
		abort();
}

void require_safe(const std::string &text)
{
	for (const char c : text)
		require(static_cast<unsigned char>(c) >= 0x20 && c != 0x7f);
}

/* A place is one of the input's, or none. */
void require_place(const reading &from, place at)
{
	require(at.input < from.inputs.size());
	require_safe(escaped(place_text(from, at)));
}

void look_at_memory(const reading &from, const model &now)
{
	const memory_detail &blocks = now.blocks;

	for (const block &one : blocks.blocks) {
		require(one.site < blocks.sites.size());
		require(one.component < blocks.components.size());
	}
	for (const torn_block &one : blocks.torn) {
		require(one.site < blocks.sites.size());
		require(one.component < blocks.components.size());
		require_place(from, one.at);
	}
	for (const component_usage &one : usage_of(now))
		require_safe(escaped(one.name));
	for (const grouping by : { grouping::by_component, grouping::by_site,
				   grouping::by_size, grouping::by_age }) {
		uint64_t count = 0;

		for (const block_group &one : group_blocks(blocks, by))
			count += one.blocks;
		require(count == blocks.blocks.size());
	}
	require(find_damage(blocks).size() == blocks.torn.size());
	find_mismatches(blocks);
	available_memory(now);
}

void look_at_rest(const reading &from, const model &now)
{
	for (const lock_report &report : now.locks)
		for (const lock &one : report.locks) {
			require_place(from, one.at);
			require_safe(escaped(one.name));
			require_safe(dot_quoted(one.locker_name));
			for (const lock_call &call : one.history)
				require_safe(escaped(call.from.file));
		}
	for (const thread &one : now.threads.threads)
		require_place(from, one.at);
	for (const queue &one : now.queues.queues)
		require_place(from, one.at);
	for (const task &one : now.tasks)
		for (const stack_frame &frame : one.stack)
			require_safe(escaped(frame.symbol));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	const reading from =
		read_text("input",
			  { reinterpret_cast<const char *>(data), size });

	require(!from.moments.empty());
	require(from.diagnostics.size() <= max_diagnostics);
	for (const diagnostic &one : from.diagnostics)
		require_safe(escaped(one.text));
	for (const model &one : from.moments)
		look_at_memory(from, one);
	look_at_rest(from, from.last());
	if (from.moments.size() > 1)
		compare({ &from.moments.front(), &from.moments.back() });
	return 0;
}
