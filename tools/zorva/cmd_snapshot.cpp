// SPDX-License-Identifier: GPL-2.0
/* zorva snapshot: all that can be asked later, in one file. */
#include "command.h"
#include "print.h"
#include "progress.h"
#include "snapshot.h"
#include "source.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <memory>
#include <nlohmann/json.hpp>

namespace zorva
{
namespace
{

using json = nlohmann::ordered_json;

std::string output;
bool script;

std::vector<option> options()
{
	return {
		{ "-o,--output", "FILE",
		  "where to write it (default: standard output)", &output },
		{ "--script", "",
		  "print the script zorva-snapshot, for machines without this program",
		  &script },
	};
}

struct closer {
	void operator()(FILE *file) const
	{
		fclose(file);
	}
};

/* Counts what it has written, and remembers the first error. */
struct sink {
	FILE *to = stdout;
	uint64_t bytes = 0;
	int error = 0;

	void put(std::string_view text)
	{
		if (!error &&
		    fwrite(text.data(), 1, text.size(), to) != text.size())
			error = errno ? errno : EIO;
		bytes += text.size();
	}
};

/* An error's text; empty when the snapshot was made. */
std::string make(std::string_view source, sink &to)
{
	/* It would stand in the middle of the text. */
	if (to.to == stdout && isatty(STDOUT_FILENO))
		progress::forbid();
	if (source.empty() || source == "live") {
		const progress shown(live_directory);

		if (!write_snapshot("/proc", [&](std::string_view text) {
			    to.put(text);
			    progress::at(to.bytes, 0);
		    }))
			return fmt::
				format("{}: no reports (is the module loaded?)",
				       live_directory);
	} else if (is_command(source)) {
		const command_output from = run_source(source);

		if (!from.failure.empty())
			return fmt::format("{}: {}", escaped(source),
					   escaped(from.failure));
		to.put(from.text);

		const reading made = read_text(source, from.text);

		if (made.warnings || from.ended_badly)
			complain(
				fmt::format("{}: the snapshot may not be whole",
					    escaped(source)));
	} else {
		return fmt::
			format("{}: a snapshot is made of this machine, of ssh:HOST or of cmd:COMMAND",
			       escaped(source));
	}
	return to.error ? fmt::format("{}: {}",
				      output.empty() ? "standard output"
						     : escaped(output, 200),
				      strerror(to.error))
			: "";
}

int run(const common_options &common)
{
	std::unique_ptr<FILE, closer> file;
	sink to;

	if (script) {
		print(snapshot_script());
		return exit_nothing;
	}
	if (common.json && output.empty()) {
		complain("--json says what was written, so it needs --output");
		return exit_usage;
	}
	if (!output.empty()) {
		file.reset(fopen(output.c_str(), "w"));
		if (!file) {
			complain(fmt::format("{}: {}", escaped(output, 200),
					     strerror(errno)));
			return exit_unreadable;
		}
		to.to = file.get();
	}

	std::string problem = make(common.sources[0], to);

	if (fflush(to.to) != 0 && problem.empty())
		problem = fmt::format("{}: {}", escaped(output, 200),
				      strerror(errno));
	if (!problem.empty()) {
		complain(problem);
		/* Half a snapshot would pass for a whole one. */
		if (file)
			remove_half(output);
		return exit_unreadable;
	}
	if (common.json) {
		json out = json_head("snapshot", {});

		out["file"] = json_text(output);
		out["bytes"] = to.bytes;
		print_json(out);
	} else if (file) {
		complain(fmt::format("{} in {}", size_text(to.bytes),
				     escaped(output, 200)));
	}
	return exit_nothing;
}

} // namespace

const command snapshot_command = {
	"snapshot",
	"save all that can be asked later, in one file",
	"The ten reports, each task's state and kernel stack (as root), the modules, the\n"
	"uptime and the kernel's memory. Every other command reads the file.\n\n"
	"Examples:\n"
	"  zorva snapshot -o board.txt\n"
	"  zorva snapshot ssh:root@switch -o board.txt\n"
	"  zorva snapshot --script >zorva-snapshot   for a board without this program",
	0,
	1,
	options,
	run,
};

} // namespace zorva
