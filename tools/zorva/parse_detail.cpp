// SPDX-License-Identifier: GPL-2.0
/*
 * zorva.mem.detail: a line for each block, a million of them perhaps. So the
 * places of allocation, of which there are few, are kept once each.
 */
#include "parse.h"
#include "scan.h"

#include <cstring>
#include <fmt/format.h>

namespace zorva
{
namespace
{

constexpr std::string_view rule = "----------------";

/* Finds a place's number. */
class site_table {
public:
	explicit site_table(std::vector<site> &sites)
		: sites_(sites), slots_(256, none)
	{
	}

	uint32_t number(std::string_view file, int64_t line)
	{
		if (sites_.size() * 2 >= slots_.size())
			grow();

		uint32_t &slot = slot_of(file, line);

		if (slot == none) {
			slot = static_cast<uint32_t>(sites_.size());
			sites_.push_back({ std::string(file), line });
		}
		return slot;
	}

private:
	static constexpr uint32_t none = UINT32_MAX;

	static size_t hash(std::string_view file, int64_t line)
	{
		uint64_t sum = static_cast<uint64_t>(line) + file.size();

		for (; file.size() >= 8; file.remove_prefix(8)) {
			uint64_t word;

			memcpy(&word, file.data(), 8);
			sum = (sum ^ word) * 0x9e3779b97f4a7c15u;
			sum ^= sum >> 32;
		}
		for (const char c : file)
			sum = (sum ^ static_cast<unsigned char>(c)) *
			      0x100000001b3u;
		sum *= 0x9e3779b97f4a7c15u;
		return static_cast<size_t>(sum ^ sum >> 29);
	}

	uint32_t &slot_of(std::string_view file, int64_t line)
	{
		const size_t mask = slots_.size() - 1;
		size_t i = hash(file, line) & mask;

		while (slots_[i] != none && (sites_[slots_[i]].line != line ||
					     sites_[slots_[i]].file != file))
			i = (i + 1) & mask;
		return slots_[i];
	}

	void grow()
	{
		slots_.assign(slots_.size() * 2, none);
		for (uint32_t i = 0; i < sites_.size(); ++i)
			slot_of(sites_[i].file, sites_[i].line) = i;
	}

	std::vector<site> &sites_;
	std::vector<uint32_t> slots_;
};

class detail_parser final : public report_parser {
public:
	taken line(std::string_view text, place at) override
	{
		if (text.starts_with("  ["))
			return block_line(text, at);
		if (text.starts_with("<memory corruption "))
			return torn_line(text, at);
		if (trimmed(text).empty() || text == rule)
			return taken::yes;
		return head_line(text, at);
	}

	bool lacks_lines() const override
	{
		uint32_t listed = 0;

		if (report_.components.empty())
			return false;
		for (auto i = report_.blocks.rbegin();
		     i != report_.blocks.rend() && i->component == component();
		     ++i)
			++listed;
		for (auto i = report_.torn.rbegin();
		     i != report_.torn.rend() && i->component == component();
		     ++i)
			++listed;
		return listed < report_.components.back().delta;
	}

	void finish(model &into, const report_state &state,
		    notes &said) override
	{
		if (!may_replace(into.blocks, state))
			return;
		report_.state = state;
		report_.state.now = now_;
		if (state.cut && !report_.components.empty())
			said.add(severity::warning, state.end,
				 fmt::format("zorva.mem.detail is cut off here, among the blocks of {}",
					     report_.components.back().name));
		into.blocks = std::move(report_);
	}

private:
	/* "  [0000000012] 8158c7b4 - 32 bytes (fw_port.c, 153)" */
	taken block_line(std::string_view text, place at)
	{
		scan in{ text };
		block one;
		std::string_view file;
		int64_t line;

		if (!in.text("  [") || !in.number(one.time) || !in.text("] "))
			return taken::bad;
		/* The history of a lock has an entry of this form. */
		if (in.rest.starts_with("Take @") ||
		    in.rest.starts_with("Give @"))
			return taken::no;
		if (!in.number(one.address, 16) || !in.text(" - ") ||
		    !in.number(one.size) || !in.text(" bytes (") ||
		    !in.rest.ends_with(')') || report_.components.empty())
			return taken::bad;
		in.rest.remove_suffix(1);
		if (!scan_site(in.rest, file, line))
			return taken::bad;
		one.site = site_number(file, line);
		one.component = component();
		one.line = at.line;
		report_.blocks.push_back(one);
		return taken::yes;
	}

	/* Blocks of one place mostly come in runs. */
	uint32_t site_number(std::string_view file, int64_t line)
	{
		if (last_site_ < report_.sites.size()) {
			const site &last = report_.sites[last_site_];

			if (last.line == line && last.file == file)
				return last_site_;
		}
		last_site_ = sites_.number(file, line);
		return last_site_;
	}

	/*
	 * "<memory corruption 0x815cea80 invalid end 0x00000000 (expected
	 * 0xbbbbbbbb) (fw_fault.c, 38)>"
	 */
	taken torn_line(std::string_view text, place at)
	{
		scan in{ text };
		torn_block one;
		std::string_view file;
		int64_t line;

		if (!in.text("<memory corruption 0x") ||
		    !in.number(one.header, 16) || !in.text(" invalid end 0x") ||
		    !in.number(one.invalid_end, 16) ||
		    !in.text(" (expected 0x") || !in.number(one.expected, 16) ||
		    !in.text(") (") || !in.rest.ends_with(")>") ||
		    report_.components.empty())
			return taken::bad;
		in.rest.remove_suffix(2);
		if (!scan_site(in.rest, file, line))
			return taken::bad;
		one.site = site_number(file, line);
		one.component = component();
		one.at = at;
		report_.torn.push_back(one);
		return taken::yes;
	}

	uint16_t component() const
	{
		return static_cast<uint16_t>(report_.components.size() - 1);
	}

	taken head_line(std::string_view text, place at)
	{
		scan in{ text };

		if (in.text("Current Time : ")) {
			uint64_t now;

			if (now_ || !in.number(now) || !in.done())
				return taken::bad;
			now_ = now;
			return taken::yes;
		}
		if (in.text("Component   : ")) {
			component_usage next;

			if (report_.components.size() > UINT16_MAX)
				return taken::bad;
			next.name = in.rest;
			next.at = at;
			report_.components.push_back(std::move(next));
			return taken::yes;
		}
		if (in.text("Curr Usage  : "))
			return figure(in, &component_usage::current);
		if (in.text("Max Usage   : "))
			return figure(in, &component_usage::max);
		if (in.text("Alloc Count : "))
			return figure(in, &component_usage::allocs);
		if (in.text("Free Count  : "))
			return figure(in, &component_usage::frees);
		return taken::no;
	}

	taken figure(scan &in, uint32_t component_usage::*which)
	{
		if (report_.components.empty())
			return taken::bad;

		component_usage &last = report_.components.back();

		if (!in.number(last.*which) || !in.done())
			return taken::bad;
		last.delta = last.allocs - last.frees;
		return taken::yes;
	}

	memory_detail report_;
	site_table sites_{ report_.sites };
	uint32_t last_site_ = UINT32_MAX;
	std::optional<uint64_t> now_;
};

} // namespace

std::unique_ptr<report_parser> make_detail_parser()
{
	return std::make_unique<detail_parser>();
}

} // namespace zorva
