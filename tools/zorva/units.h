/* SPDX-License-Identifier: GPL-2.0 */
/* Times as people type them. */
#ifndef ZORVA_TOOL_UNITS_H
#define ZORVA_TOOL_UNITS_H

#include <cstdint>
#include <string_view>

namespace zorva
{

/* "90", "90s", "10m", "2h", "1d"; false for anything else. */
bool seconds_of(std::string_view text, uint64_t &seconds);

} // namespace zorva

#endif
