// SPDX-License-Identifier: GPL-2.0
/* The kernel's own files that a snapshot has beside the reports. */
#include "parse.h"
#include "scan.h"

#include <cstdlib>

namespace zorva
{

/* "12.34 10.50" */
bool parse_uptime(model &into, std::string_view text)
{
	scan in{ text };
	uint64_t seconds, hundredths;

	if (!in.number(seconds) || !in.text(".") || !in.number(hundredths) ||
	    hundredths > 99 || seconds > UINT64_MAX / 2000)
		return false;
	into.uptime_ms = seconds * 1000 + hundredths * 10;
	return true;
}

/* "MemFree:           98123 kB" */
bool parse_meminfo(model &into, std::string_view text, place at)
{
	scan in{ text };
	std::string_view name;
	uint64_t amount;

	if (!in.until(":", name) || !in.blanks() || !in.number(amount) ||
	    amount > UINT64_MAX / 1024)
		return false;
	if (in.text(" kB"))
		amount *= 1024;
	if (!in.done())
		return false;
	into.kernel_memory.push_back({ std::string(name), amount, at });
	return true;
}

/* "zorva 45056 3 fw_port,fw_sys, Live 0xc0028000 (O)" */
bool parse_modules(model &into, std::string_view text, place at)
{
	scan in{ text };
	kernel_module one;
	std::string_view name, users, state;

	if (!in.until(" ", name) || !in.number(one.size) || !in.blanks() ||
	    (!in.number(one.users) && !in.text("-")) || !in.blanks() ||
	    !in.until(" ", users) || !in.until(" ", state) || !in.text("0x") ||
	    !in.number(one.address, 16))
		return false;
	one.name = name;
	one.at = at;
	into.modules.push_back(std::move(one));
	return true;
}

/* "39 (fdb-learn) D 2 0 0 ...": the name may be anything. */
bool parse_stat(task &into, std::string_view text)
{
	scan in{ text };
	const size_t end = text.rfind(") ");
	int64_t pid;

	if (!in.number(pid) || !in.text(" (") || end == text.npos ||
	    end + 2 >= text.size() || end + 1 < text.size() - in.rest.size())
		return false;
	into.pid = pid;
	into.name = text.substr(text.size() - in.rest.size(),
				end - (text.size() - in.rest.size()));
	into.state = text[end + 2];
	return true;
}

/* "[<0>] zorva_sem_take_track+0x12c/0x2b4 [zorva]" */
bool parse_stack(task &into, std::string_view text, place at)
{
	scan in{ text };
	stack_frame frame;
	uint64_t address;
	std::string_view symbol;

	if (!in.text("[<") || !in.number(address, 16) || !in.text(">] "))
		return false;
	if (address)
		frame.address = address;
	frame.at = at;
	/* What has no name is a bare address. */
	if (in.until("+0x", symbol)) {
		frame.symbol = symbol;
		if (!in.number(frame.offset, 16) || !in.text("/0x") ||
		    !in.number(frame.size, 16))
			return false;
		if (in.text(" [")) {
			if (!in.rest.ends_with(']'))
				return false;
			in.rest.remove_suffix(1);
			frame.module = in.rest;
		} else if (!in.done()) {
			return false;
		}
	} else {
		frame.symbol = in.rest;
	}
	into.stack.push_back(std::move(frame));
	return true;
}

} // namespace zorva
