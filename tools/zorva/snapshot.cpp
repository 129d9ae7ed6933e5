// SPDX-License-Identifier: GPL-2.0
#include "snapshot.h"

namespace zorva
{

std::string_view snapshot_script()
{
	static constexpr char text[] = {
#include "zorva-snapshot.inc"
	};

	return { text, sizeof(text) };
}

} // namespace zorva
