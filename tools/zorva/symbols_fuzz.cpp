// SPDX-License-Identifier: GPL-2.0
/*
 * Hostile debug information and lists of lines: whatever they are, they are
 * read without harm, and what was read can be asked and written.
 */
#include "print.h"
#include "symbols.h"

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

using namespace zorva;

namespace
{

void require(bool holds)
{
	if (!holds)
		abort();
}

bool any(std::string_view)
{
	return true;
}

/* A module has to be a file. */
void read_module(std::string_view text, code_lines &into)
{
	const int fd = memfd_create("module", MFD_CLOEXEC);

	require(fd >= 0);
	require(write(fd, text.data(), text.size()) ==
		static_cast<ssize_t>(text.size()));
	read_debug_information("/proc/self/fd/" + std::to_string(fd), "module",
			       into);
	close(fd);
	require(into.modules.size() + into.problems.size() == 1);
}

/* Each place that was read can be asked about. */
void ask(const code_lines &lines)
{
	for (const module_lines &module : lines.modules)
		for (const function_lines &function : module.functions) {
			stack_frame frame;

			frame.module = module.name;
			frame.symbol = function.name;
			frame.size = static_cast<uint32_t>(function.size);
			for (const line_row &row : function.rows) {
				require(row.file < module.files.size());
				frame.offset = row.offset + module.call_size;
				for (const site &one : call_sites(lines, frame))
					covers(lines, frame, one);
			}
			is_other_build(lines, frame);
		}
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
	const std::string_view text(reinterpret_cast<const char *>(data), size);
	code_lines lines;

	if (text.starts_with("\177ELF"))
		read_module(text, lines);
	else if (read_lines("list", text, any, lines)) {
		code_lines again;
		const std::string written = lines_text(lines);

		require(read_lines("again", written, any, again));
		require(lines_text(again) == written);
	}
	for (const std::string &problem : lines.problems)
		for (const char c : escaped(problem, 300))
			require(static_cast<unsigned char>(c) >= 0x20);
	ask(lines);
	return 0;
}
