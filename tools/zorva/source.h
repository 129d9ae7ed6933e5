/* SPDX-License-Identifier: GPL-2.0 */
/* Where texts come from: files, directories, commands, other machines. */
#ifndef ZORVA_TOOL_SOURCE_H
#define ZORVA_TOOL_SOURCE_H

#include "read.h"

#include <string>
#include <string_view>

namespace zorva
{

/* See read_input(). What cannot be read goes into the reading's failure. */
void read_source(reading &into, std::string_view source, const wants &what);

/* A whole file; false with errno when it cannot be read. */
bool read_file(const std::string &path, std::string &to);

} // namespace zorva

#endif
