/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What the live screen shows, as lines of text: it knows no terminal.
 *
 * The screen is one list under headings: components, places that allocate
 * (once the detailed report was read), locks that are held, queues. One row is
 * selected; a row can be looked into.
 */
#ifndef ZORVA_TOOL_TOP_H
#define ZORVA_TOOL_TOP_H

#include "model.h"
#include "print.h"

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zorva
{

enum class top_section : uint8_t {
	components,
	sites,
	locks,
	queues
};

enum class top_order : uint8_t {
	by_size,
	by_growth,
	by_name
};

/* What a component or a place has, and how that went since the first look. */
struct top_amount {
	uint64_t bytes = 0;
	uint64_t blocks = 0;
	int64_t more_bytes = 0; /* than at the first look */
	uint64_t seconds = 0;	/* since then */
};

/* What can be selected. */
struct top_row {
	top_section section = top_section::components;
	std::string key; /* the same from look to look */
	std::vector<std::string> cells;
	std::vector<std::string> more; /* of a place: what is inside */
	size_t index = 0;   /* of the others: where the look has it */
	bool mutex = false; /* of locks: it is no semaphore */
	std::string name;   /* what it is sorted and filtered by */
	top_amount amount;
	style how = style::plain;
};

struct top_line {
	std::string text; /* escaped, and as long as it is wide */
	style how = style::plain;
	bool selected = false;
};

/* What the keys change. */
struct top_view {
	top_order order = top_order::by_size;
	std::string filter; /* shows rows whose name has this in it */
	std::string selected;
	bool looking = false; /* into the selected row */
	bool help = false;
	bool frozen = false;
	bool typing = false; /* the filter */
	std::string message;
};

class top_screen {
public:
	/* Takes the next look; an older detailed report stays known. */
	void update(model now);

	const std::vector<top_row> &rows() const
	{
		return rows_;
	}
	/* The rows that a view shows, in its order. */
	std::vector<const top_row *> shown(const top_view &view) const;
	/* Selects the row that is so many further on. */
	void move(top_view &view, int by) const;
	/* Selects the first row of the next section. */
	void next_section(top_view &view) const;
	/* The whole screen: as many lines as it has, none too long. */
	std::vector<top_line> frame(const top_view &view, size_t lines,
				    size_t columns) const;

	bool has_sites() const
	{
		return !sites_.empty();
	}

private:
	using amounts = std::map<std::string, top_amount>;
	struct first_look {
		uint64_t bytes = 0;
		uint64_t time = 0;
	};

	void add_components();
	void add_sites();
	void add_locks();
	void add_queues();
	top_amount amount_of(const std::string &key, uint64_t bytes,
			     uint64_t blocks, uint64_t time);
	std::string heading() const;
	std::vector<top_line> body(const top_view &view,
				   size_t *selected) const;
	/* Made when it is looked at: on the board each text counts. */
	std::vector<std::string> inside_component(const top_row &row) const;
	std::vector<std::string> inside_lock(const top_row &row) const;
	std::vector<std::string> inside_queue(const top_row &row) const;
	std::vector<top_line> inside(const top_view &view) const;

	model last_;
	std::vector<top_row> rows_;
	std::vector<top_row> sites_; /* of the last detailed report */
	std::map<std::string, first_look> first_;
	uint64_t now_ = 0;
	uint64_t total_bytes_ = 0;
	size_t held_ = 0;
	size_t full_ = 0;
	uint64_t details_time_ = 0;
};

} // namespace zorva

#endif
