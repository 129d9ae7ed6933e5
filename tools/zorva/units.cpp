// SPDX-License-Identifier: GPL-2.0
#include "units.h"
#include "scan.h"

namespace zorva
{

bool seconds_of(std::string_view text, uint64_t &seconds)
{
	scan in{ text };
	uint64_t number, unit = 1;

	if (!in.number(number))
		return false;
	if (in.text("d"))
		unit = 24 * 3600;
	else if (in.text("h"))
		unit = 3600;
	else if (in.text("m"))
		unit = 60;
	else
		in.text("s");
	return in.done() && !__builtin_mul_overflow(number, unit, &seconds);
}

} // namespace zorva
