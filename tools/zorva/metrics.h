/* SPDX-License-Identifier: GPL-2.0 */
/* What was read of a switch, as OpenMetrics text 1.0. */
#ifndef ZORVA_TOOL_METRICS_H
#define ZORVA_TOOL_METRICS_H

#include "read.h"

#include <string>

namespace zorva
{

/*
 * metrics_text - the figures of a reading's last moment
 * @torn: also what the detailed memory report says of damaged blocks
 *
 * What a report would say that was not read has no figures. Names are those
 * that all commands show: control characters in them are \xNN.
 */
std::string metrics_text(const reading &from, bool torn);

} // namespace zorva

#endif
