// SPDX-License-Identifier: GPL-2.0
/*
 * The lines of the modules' functions: where they come from, the list that
 * they can be kept as, and what they are asked.
 *
 * The list is for machines on which there is no debug information, such as the
 * board. One thing a line:
 *
 *	zorva lines 1
 *	module fw_fdb 8		its name, and the size of a call
 *	file fw_fdb.c		counted from 0
 *	function save 360	its name and its size
 *	84 0 265		from this offset on: the file, the line
 */
#include "symbols.h"
#include "progress.h"
#include "scan.h"
#include "source.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fmt/format.h>
#include <memory>
#include <sys/stat.h>

namespace zorva
{
namespace
{

constexpr char list_head[] = "zorva lines 1";

/* A lock's history keeps so much of a file's name. */
constexpr size_t recorded_length = 15;

constexpr unsigned max_depth = 16;

std::string with_reason(const std::string &path)
{
	return fmt::format("{}: {}", path, strerror(errno));
}

/* The module of a file: its name without the ending, as the kernel has it. */
bool module_of(std::string_view path, std::string_view &stem, std::string &name)
{
	const size_t slash = path.rfind('/');
	std::string_view file = slash == path.npos ? path
						   : path.substr(slash + 1);

	for (const std::string_view ending : { ".ko.debug", ".ko" }) {
		if (!file.ends_with(ending) || file.size() == ending.size())
			continue;
		file.remove_suffix(ending.size());
		stem = file;
		name = file;
		std::replace(name.begin(), name.end(), '-', '_');
		return true;
	}
	return false;
}

class loader {
public:
	loader(const module_filter &wanted, code_lines &into)
		: wanted_(wanted), into_(into)
	{
	}

	bool file(const std::string &path);
	bool directory(const std::string &path, unsigned depth);

private:
	const module_filter &wanted_;
	code_lines &into_;
};

bool loader::file(const std::string &path)
{
	std::string_view stem;
	std::string name;
	std::string text;

	if (module_of(path, stem, name))
		return !wanted_(name) ||
		       read_debug_information(path, name, into_);
	if (!read_file(path, text)) {
		into_.problems.push_back(with_reason(path));
		return false;
	}
	return read_lines(path, text, wanted_, into_);
}

bool loader::directory(const std::string &path, unsigned depth)
{
	const std::unique_ptr<DIR, int (*)(DIR *)> opened(opendir(path.c_str()),
							  closedir);
	std::vector<std::string> names;
	std::string_view stem;
	std::string name;

	if (!opened) {
		into_.problems.push_back(with_reason(path));
		return false;
	}
	while (const dirent *entry = readdir(opened.get()))
		names.emplace_back(entry->d_name);
	std::sort(names.begin(), names.end());
	for (size_t i = 0; i < names.size(); ++i) {
		const std::string &one = names[i];
		const std::string below = path + '/' + one;
		struct stat is;

		if (!depth)
			progress::at(i, names.size());

		/* Links are not followed into other directories. */
		if (one == "." || one == ".." || lstat(below.c_str(), &is))
			continue;
		if (S_ISDIR(is.st_mode)) {
			if (depth < max_depth)
				directory(below, depth + 1);
		} else if (one.ends_with(".lines") ||
			   module_of(one, stem, name)) {
			file(below);
		}
	}
	return true;
}

/* A list of lines, line by line. */
class list_reader {
public:
	list_reader(const module_filter &wanted, code_lines &into)
		: wanted_(wanted), into_(into)
	{
	}

	bool line(std::string_view text);

private:
	bool row(scan in);

	const module_filter &wanted_;
	code_lines &into_;
	bool in_module_ = false;
	bool skipping_ = false;
};

bool list_reader::row(scan in)
{
	std::vector<function_lines> &functions = into_.modules.back().functions;
	uint32_t offset, file, line;

	if (functions.empty() || !in.number(offset) || !in.text(" ") ||
	    !in.number(file) || !in.text(" ") || !in.number(line) ||
	    !in.done() || file >= into_.modules.back().files.size())
		return false;

	std::vector<line_row> &rows = functions.back().rows;

	if (!rows.empty() && rows.back().offset >= offset)
		return false;
	rows.push_back({ offset, file, line });
	return true;
}

bool list_reader::line(std::string_view text)
{
	scan in{ text };
	std::string_view name;
	uint64_t number;

	if (in.text("module ")) {
		if (!in.until(" ", name) || !in.number(number) || !in.done() ||
		    number == 0 || number > 64)
			return false;
		in_module_ = true;
		skipping_ = !wanted_(name);
		if (!skipping_) {
			into_.modules.emplace_back();
			into_.modules.back().name = name;
			into_.modules.back().call_size =
				static_cast<uint32_t>(number);
		}
		return true;
	}
	if (skipping_)
		return true;
	if (!in_module_)
		return false;
	if (in.text("file ")) {
		into_.modules.back().files.emplace_back(in.rest);
		return true;
	}
	if (in.text("function ")) {
		if (!in.until(" ", name) || !in.number(number) || !in.done())
			return false;
		into_.modules.back().functions.push_back(
			{ std::string(name), number, {} });
		return true;
	}
	return row(in);
}

const module_lines *module_for(const code_lines &lines,
			       const stack_frame &frame)
{
	for (const module_lines &one : lines.modules)
		if (one.name == frame.module)
			return &one;
	return nullptr;
}

bool fits(const function_lines &function, const stack_frame &frame)
{
	if (function.rows.empty())
		return false;
	if (function.size && frame.size)
		return function.size == frame.size;
	return !frame.size || function.rows.back().offset < frame.size;
}

/* The functions of that name and size. */
std::vector<const function_lines *> functions_of(const module_lines &module,
						 const stack_frame &frame)
{
	std::vector<const function_lines *> found;
	auto at = std::lower_bound(module.functions.begin(),
				   module.functions.end(), frame.symbol,
				   [](const function_lines &one,
				      const std::string &name) {
					   return one.name < name;
				   });

	for (; at != module.functions.end() && at->name == frame.symbol; ++at)
		if (fits(*at, frame))
			found.push_back(&*at);
	return found;
}

/* The row that an offset lies in; null before the first. */
const line_row *row_at(const function_lines &function, uint64_t offset)
{
	const line_row *found = nullptr;

	for (const line_row &row : function.rows)
		if (row.offset <= offset)
			found = &row;
	return found;
}

} // namespace

bool load_lines(const std::string &path, const module_filter &wanted,
		code_lines &into)
{
	const progress shown(path);
	loader from(wanted, into);
	struct stat is;

	if (stat(path.c_str(), &is)) {
		into.problems.push_back(with_reason(path));
		return false;
	}
	return S_ISDIR(is.st_mode) ? from.directory(path, 0) : from.file(path);
}

bool read_lines(std::string_view path, std::string_view text,
		const module_filter &wanted, code_lines &into)
{
	list_reader reader(wanted, into);
	uint32_t number = 0;

	while (!text.empty()) {
		const size_t end = std::min(text.find('\n'), text.size());
		const std::string_view line = text.substr(0, end);

		text.remove_prefix(std::min(end + 1, text.size()));
		if (++number == 1 && line == list_head)
			continue;
		if (number == 1 || !reader.line(line)) {
			into.problems.push_back(
				fmt::format("{}:{}: is no list of lines", path,
					    number));
			return false;
		}
	}
	for (module_lines &one : into.modules)
		sort_functions(one);
	if (!number)
		into.problems.push_back(fmt::format("{}: is empty", path));
	return number > 0;
}

std::string lines_text(const code_lines &from)
{
	std::string text = std::string(list_head) + '\n';
	auto to = std::back_inserter(text);

	for (const module_lines &module : from.modules) {
		fmt::format_to(to, "module {} {}\n", module.name,
			       module.call_size);
		for (const std::string &file : module.files)
			fmt::format_to(to, "file {}\n", file);
		for (const function_lines &function : module.functions) {
			fmt::format_to(to, "function {} {}\n", function.name,
				       function.size);
			for (const line_row &row : function.rows)
				fmt::format_to(to, "{} {} {}\n", row.offset,
					       row.file, row.line);
		}
	}
	return text;
}

std::vector<site> call_sites(const code_lines &lines, const stack_frame &frame)
{
	const module_lines *module = module_for(lines, frame);
	std::vector<site> found;

	if (!module || frame.offset < module->call_size)
		return found;
	for (const function_lines *one : functions_of(*module, frame)) {
		const line_row *row =
			row_at(*one, frame.offset - module->call_size);

		if (row && row->line)
			found.push_back(
				{ module->files[row->file], row->line });
	}
	return found;
}

bool is_other_build(const code_lines &lines, const stack_frame &frame)
{
	const module_lines *module = module_for(lines, frame);

	return module && functions_of(*module, frame).empty();
}

bool covers(const code_lines &lines, const stack_frame &frame,
	    const site &place)
{
	const module_lines *module = module_for(lines, frame);

	if (!module)
		return false;
	for (const function_lines *one : functions_of(*module, frame))
		for (const line_row &row : one->rows)
			if (row.line == place.line &&
			    same_file(place.file, module->files[row.file]))
				return true;
	return false;
}

void sort_functions(module_lines &of)
{
	std::stable_sort(of.functions.begin(), of.functions.end(),
			 [](const function_lines &a, const function_lines &b) {
				 return a.name < b.name;
			 });
}

bool same_file(std::string_view recorded, std::string_view file)
{
	return recorded == file || (recorded.size() == recorded_length &&
				    file.starts_with(recorded));
}

} // namespace zorva
