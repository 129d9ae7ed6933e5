/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The form of a snapshot: texts as they were, one after the other.
 *
 *	zorva-snapshot 1 MARK
 *	==> MARK /proc/uptime
 *	12.34 10.50
 *	==> MARK /proc/zorva/zorva.mem
 *	...
 *	zorva-snapshot end MARK CHECKSUM BYTES
 *
 * The mark is made anew for each snapshot, so that no text can pass for a line
 * of this kind. Checksum and length are those that cksum(1) gives of the lines
 * between the first and the last; both are "-" where there was no cksum.
 */
#ifndef ZORVA_TOOL_SNAPSHOT_H
#define ZORVA_TOOL_SNAPSHOT_H

#include <functional>
#include <string>
#include <string_view>

namespace zorva
{

constexpr std::string_view snapshot_begin = "zorva-snapshot 1 ";
constexpr std::string_view snapshot_section = "==> ";
constexpr std::string_view snapshot_end = "zorva-snapshot end ";

/*
 * write_snapshot - what the script does, without a shell
 * @proc: where the proc file system is, "/proc"
 * @put: gets the text, piece by piece
 *
 * Return: false when there are no reports.
 */
bool write_snapshot(const std::string &proc,
		    const std::function<void(std::string_view)> &put);

/* The script zorva-snapshot, for a machine that does not have it. */
std::string_view snapshot_script();

} // namespace zorva

#endif
