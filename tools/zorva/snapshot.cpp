// SPDX-License-Identifier: GPL-2.0
#include "snapshot.h"
#include "crc.h"
#include "source.h"

#include <fmt/format.h>

namespace zorva
{
namespace
{

/* In the order of the script: what changes fastest comes first. */
constexpr const char *first_reports[] = {
	"zorva.mutex",	"zorva.mutex.detail", "zorva.sem",   "zorva.sem.detail",
	"zorva.thread", "zorva.msgq",	      "zorva.timer", "zorva.hrt",
};

class writer {
public:
	writer(std::string mark,
	       const std::function<void(std::string_view)> &to)
		: mark_(std::move(mark)), put_(to)
	{
		put_(fmt::format("{}{}\n", snapshot_begin, mark_));
	}

	/* What cannot be read has no section. */
	void section(const std::string &path)
	{
		std::string text;

		if (!read_file(path, text))
			return;
		if (!text.empty() && text.back() != '\n')
			text += '\n';
		add(fmt::format("{}{} {}\n", snapshot_section, mark_, path));
		add(text);
	}

	void end()
	{
		put_(fmt::format("{}{} {} {}\n", snapshot_end, mark_,
				 sum_.value(), sum_.bytes()));
	}

private:
	void add(std::string_view text)
	{
		sum_.add(text);
		put_(text);
	}

	const std::string mark_;
	const std::function<void(std::string_view)> &put_;
	checksum sum_;
};

std::string new_mark()
{
	std::string mark;

	if (!read_file("/proc/sys/kernel/random/uuid", mark))
		return "mark";
	while (!mark.empty() && mark.back() == '\n')
		mark.pop_back();
	return mark;
}

} // namespace

bool write_snapshot(const std::string &proc,
		    const std::function<void(std::string_view)> &put)
{
	const std::string reports = proc + "/zorva/";
	std::string any;

	if (!read_file(reports + "zorva.mem", any))
		return false;

	writer to(new_mark(), put);

	to.section(proc + "/version");
	to.section(proc + "/uptime");
	for (const char *name : first_reports)
		to.section(reports + name);
	for (const std::string &task : tasks_of(proc)) {
		to.section(task + "/stat");
		to.section(task + "/stack");
	}
	to.section(reports + "zorva.mem");
	to.section(reports + "zorva.mem.detail");
	to.section(proc + "/meminfo");
	to.section(proc + "/modules");
	to.end();
	return true;
}

std::string_view snapshot_script()
{
	static constexpr char text[] = {
#include "zorva-snapshot.inc"
	};

	return { text, sizeof(text) };
}

} // namespace zorva
