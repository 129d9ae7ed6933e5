/* SPDX-License-Identifier: GPL-2.0 */
/* The checksum of cksum(1), which every BusyBox can make. */
#ifndef ZORVA_TOOL_CRC_H
#define ZORVA_TOOL_CRC_H

#include <cstdint>
#include <string_view>

namespace zorva
{

class checksum {
public:
	void add(std::string_view text);

	/* Of all that was added. */
	uint32_t value() const;

	uint64_t bytes() const
	{
		return bytes_;
	}

private:
	uint32_t crc_ = 0;
	uint64_t bytes_ = 0;
};

} // namespace zorva

#endif
