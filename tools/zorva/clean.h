/* SPDX-License-Identifier: GPL-2.0 */
/* What a serial console puts around the lines of a report. */
#ifndef ZORVA_TOOL_CLEAN_H
#define ZORVA_TOOL_CLEAN_H

#include <string>
#include <string_view>

namespace zorva
{

/* Where the kernel's time stamp stands in a line, "[   12.345678] ". */
struct stamp {
	size_t begin = std::string_view::npos;
	size_t end = std::string_view::npos; /* of the blank after it */

	bool found() const
	{
		return begin != std::string_view::npos;
	}
};

stamp find_stamp(std::string_view line);

/*
 * Without what a terminal would not show: carriage returns, the control
 * sequences of a line editor, and the mark of a line that user space wrote
 * into the kernel's log.
 */
std::string cleaned(std::string_view line);

} // namespace zorva

#endif
