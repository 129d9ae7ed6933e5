/* SPDX-License-Identifier: GPL-2.0 */
#ifndef ZORVA_TOOL_CIRCLES_H
#define ZORVA_TOOL_CIRCLES_H

#include "waits.h"

namespace zorva
{

/* Finds the circles of who waits for whom, and puts them into the result. */
void find_circles(waits &in);

} // namespace zorva

#endif
