// SPDX-License-Identifier: GPL-2.0
/*
 * The lines of a module's functions, from its debug information by libdw.
 *
 * A module is a relocatable object: its sections all start at 0, and the
 * addresses in its debug information are yet to be filled in. libdw has that
 * done by a part for each architecture, and has none for MIPS; so the sections
 * get addresses of their own here, and the few relocations that debug
 * information has are applied before libdw sees it.
 */
#include "symbols.h"

#include <algorithm>
#include <cstring>
#include <elfutils/libdw.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <gelf.h>
#include <map>
#include <memory>
#include <unistd.h>

namespace zorva
{
namespace
{

struct file_closer {
	int fd = -1;

	~file_closer()
	{
		if (fd >= 0)
			close(fd);
	}
};

struct elf_ender {
	void operator()(Elf *elf) const
	{
		elf_end(elf);
	}
};

struct dwarf_ender {
	void operator()(Dwarf *dwarf) const
	{
		dwarf_end(dwarf);
	}
};

/* The relocations that put an address or an offset into debug information. */
struct plain_relocation {
	unsigned machine;
	unsigned type;
	unsigned bytes;
};

constexpr plain_relocation plain_relocations[] = {
	{ EM_MIPS, R_MIPS_32, 4 },	    { EM_MIPS, R_MIPS_64, 8 },
	{ EM_ARM, R_ARM_ABS32, 4 },	    { EM_AARCH64, R_AARCH64_ABS32, 4 },
	{ EM_AARCH64, R_AARCH64_ABS64, 8 }, { EM_386, R_386_32, 4 },
	{ EM_X86_64, R_X86_64_32, 4 },	    { EM_X86_64, R_X86_64_64, 8 },
};

unsigned relocated_bytes(unsigned machine, unsigned type)
{
	for (const plain_relocation &one : plain_relocations)
		if (one.machine == machine && one.type == type)
			return one.bytes;
	return 0;
}

/* The jump and the instruction in its delay slot; elsewhere the last byte. */
uint32_t call_size_of(unsigned machine)
{
	return machine == EM_MIPS ? 8 : 1;
}

uint64_t load(const unsigned char *from, unsigned bytes, bool big)
{
	uint64_t value = 0;

	for (unsigned i = 0; i < bytes; ++i)
		value = value << 8 | from[big ? i : bytes - 1 - i];
	return value;
}

void store(unsigned char *to, unsigned bytes, bool big, uint64_t value)
{
	for (unsigned i = 0; i < bytes; ++i)
		to[big ? bytes - 1 - i : i] =
			static_cast<unsigned char>(value >> (8 * i));
}

/* A function, at the address that this reader gave it. */
struct placed_function {
	uint64_t begin = 0;
	uint64_t size = 0; /* as the symbol says */
	uint64_t next = 0; /* where the next one begins; 0: it is the last */
	std::string name;
};

class object {
public:
	explicit object(Elf *elf) : elf_(elf)
	{
		const char *identity = elf_getident(elf, nullptr);

		big_ = identity && identity[EI_DATA] == ELFDATA2MSB;
	}

	/* Gives the sections addresses; false: it is no relocatable object. */
	bool place_sections();
	bool relocate();
	std::vector<placed_function> functions() const;

	unsigned machine() const
	{
		return header_.e_machine;
	}

private:
	/* Where a symbol is; false when it is in no section of this object. */
	bool address_of(const GElf_Sym &symbol, uint64_t &address) const
	{
		const auto at = bases_.find(symbol.st_shndx);

		address = symbol.st_value;
		if (at != bases_.end())
			address += at->second;
		return at != bases_.end();
	}
	bool relocate_section(const GElf_Shdr &header, Elf_Scn *with);

	Elf *elf_;
	GElf_Ehdr header_ = {};
	bool big_ = false;
	std::map<size_t, uint64_t> bases_; /* by the section's index */
	Elf_Scn *symbols_ = nullptr;
	size_t names_ = 0;
};

bool object::place_sections()
{
	uint64_t next = 0x10000;

	if (!gelf_getehdr(elf_, &header_) || header_.e_type != ET_REL)
		return false;
	for (Elf_Scn *section = nullptr;
	     (section = elf_nextscn(elf_, section));) {
		GElf_Shdr header;

		if (!gelf_getshdr(section, &header))
			return false;
		if (header.sh_type == SHT_SYMTAB) {
			symbols_ = section;
			names_ = header.sh_link;
		}
		bases_[elf_ndxscn(section)] = 0;
		if (!(header.sh_flags & SHF_ALLOC))
			continue;
		/* A gap, so that an end is not the next one's start. */
		bases_[elf_ndxscn(section)] = next;
		next += (header.sh_size + 0x1fff) & ~UINT64_C(0xfff);
		if (next > UINT32_MAX)
			return false;
	}
	return symbols_ != nullptr;
}

bool object::relocate_section(const GElf_Shdr &header, Elf_Scn *with)
{
	Elf_Scn *target = elf_getscn(elf_, header.sh_info);
	Elf_Data *entries = elf_getdata(with, nullptr);
	Elf_Data *symbols = elf_getdata(symbols_, nullptr);
	GElf_Shdr its;

	if (!target || !gelf_getshdr(target, &its))
		return false;
	/* The code is left as it is: only what describes it counts. */
	if (its.sh_flags & SHF_ALLOC)
		return true;
	if ((its.sh_flags & SHF_COMPRESSED) && elf_compress(target, 0, 0) < 0)
		return false;

	Elf_Data *data = elf_getdata(target, nullptr);

	if (!entries || !symbols || !data || !data->d_buf || !header.sh_entsize)
		return false;
	for (int i = 0;
	     static_cast<uint64_t>(i) < header.sh_size / header.sh_entsize;
	     ++i) {
		GElf_Rela one = {};
		GElf_Rel plain;
		GElf_Sym symbol;
		uint64_t address;

		if (header.sh_type == SHT_REL) {
			if (!gelf_getrel(entries, i, &plain))
				return false;
			one.r_offset = plain.r_offset;
			one.r_info = plain.r_info;
		} else if (!gelf_getrela(entries, i, &one)) {
			return false;
		}

		const unsigned bytes =
			relocated_bytes(machine(), GELF_R_TYPE(one.r_info));

		if (!gelf_getsym(symbols,
				 static_cast<int>(GELF_R_SYM(one.r_info)),
				 &symbol) ||
		    one.r_offset > data->d_size ||
		    data->d_size - one.r_offset < bytes)
			return false;
		if (!bytes || !address_of(symbol, address))
			continue;

		auto *at = static_cast<unsigned char *>(data->d_buf) +
			   one.r_offset;

		if (header.sh_type == SHT_REL)
			address += load(at, bytes, big_);
		else
			address += static_cast<uint64_t>(one.r_addend);
		store(at, bytes, big_, address);
	}
	return true;
}

bool object::relocate()
{
	for (Elf_Scn *section = nullptr;
	     (section = elf_nextscn(elf_, section));) {
		GElf_Shdr header;

		if (!gelf_getshdr(section, &header))
			return false;
		if ((header.sh_type == SHT_REL || header.sh_type == SHT_RELA) &&
		    !relocate_section(header, section))
			return false;
	}
	return true;
}

std::vector<placed_function> object::functions() const
{
	std::vector<placed_function> found;
	Elf_Data *data = elf_getdata(symbols_, nullptr);
	GElf_Sym symbol;

	for (int i = 1; data && gelf_getsym(data, i, &symbol); ++i) {
		const char *name = elf_strptr(elf_, names_, symbol.st_name);
		placed_function one;

		if (GELF_ST_TYPE(symbol.st_info) != STT_FUNC || !name ||
		    !*name || !address_of(symbol, one.begin))
			continue;
		one.size = symbol.st_size;
		one.name = name;
		found.push_back(std::move(one));
	}
	std::sort(found.begin(), found.end(),
		  [](const placed_function &a, const placed_function &b) {
			  return a.begin < b.begin;
		  });
	for (size_t i = found.size(); i-- > 1;)
		found[i - 1].next = found[i].begin > found[i - 1].begin
					    ? found[i].begin
					    : found[i].next;
	return found;
}

/* A row of the line table, at its address. */
struct placed_row {
	uint64_t address = 0;
	uint32_t file = 0;
	uint32_t line = 0;
	bool end = false;
};

uint32_t file_index(module_lines &module, std::string_view path)
{
	const size_t slash = path.rfind('/');
	const std::string_view name =
		slash == path.npos ? path : path.substr(slash + 1);
	const auto at =
		std::find(module.files.begin(), module.files.end(), name);

	if (at == module.files.end())
		module.files.emplace_back(name);
	return static_cast<uint32_t>(
		std::find(module.files.begin(), module.files.end(), name) -
		module.files.begin());
}

std::vector<placed_row> rows_of(Dwarf *dwarf, module_lines &module)
{
	std::vector<placed_row> rows;
	Dwarf_CU *unit = nullptr;
	Dwarf_Die top;

	while (dwarf_get_units(dwarf, unit, &unit, nullptr, nullptr, &top,
			       nullptr) == 0) {
		Dwarf_Lines *lines;
		size_t count;

		if (dwarf_getsrclines(&top, &lines, &count))
			continue;
		for (size_t i = 0; i < count; ++i) {
			Dwarf_Line *line = dwarf_onesrcline(lines, i);
			const char *file =
				dwarf_linesrc(line, nullptr, nullptr);
			Dwarf_Addr address = 0;
			placed_row row;
			int number = 0;

			if (dwarf_lineaddr(line, &address) ||
			    dwarf_lineno(line, &number) ||
			    dwarf_lineendsequence(line, &row.end))
				continue;
			row.address = address;
			row.line = number > 0 ? static_cast<uint32_t>(number)
					      : 0;
			row.file = file_index(module, file ? file : "?");
			rows.push_back(row);
		}
	}
	/* At one address the last row counts, as in each sequence. */
	std::stable_sort(rows.begin(), rows.end(),
			 [](const placed_row &a, const placed_row &b) {
				 return a.address < b.address;
			 });
	return rows;
}

/* The rows that lie in a function, and the one that reaches into it. */
void take_rows(const std::vector<placed_row> &rows,
	       const placed_function &function, function_lines &into)
{
	auto at = std::upper_bound(rows.begin(), rows.end(), function.begin,
				   [](uint64_t address, const placed_row &row) {
					   return address < row.address;
				   });

	if (at != rows.begin())
		--at;
	for (; at != rows.end() && at->address < function.begin + function.size;
	     ++at) {
		line_row row;

		row.offset = at->address > function.begin
				     ? static_cast<uint32_t>(at->address -
							     function.begin)
				     : 0;
		row.file = at->file;
		row.line = at->end ? 0 : at->line;
		if (!into.rows.empty() && into.rows.back().offset == row.offset)
			into.rows.pop_back();
		if (into.rows.empty() || into.rows.back().line != row.line ||
		    into.rows.back().file != row.file)
			into.rows.push_back(row);
	}
}

bool read_object(Elf *elf, module_lines &module, std::string &problem)
{
	object its(elf);

	if (!its.place_sections()) {
		problem = "is no kernel module";
		return false;
	}
	if (!its.relocate()) {
		problem = "its debug information is damaged";
		return false;
	}

	const std::unique_ptr<Dwarf, dwarf_ender> dwarf(
		dwarf_begin_elf(elf, DWARF_C_READ, nullptr));

	if (!dwarf) {
		problem = "has no debug information";
		return false;
	}

	const std::vector<placed_row> rows = rows_of(dwarf.get(), module);

	module.call_size = call_size_of(its.machine());
	for (const placed_function &one : its.functions()) {
		function_lines lines;

		lines.name = one.name;
		/* Up to the next symbol, as the kernel counts it. */
		lines.size = one.next && one.next - one.begin < one.size + 4096
				     ? one.next - one.begin
				     : 0;
		take_rows(rows, one, lines);
		if (!lines.rows.empty())
			module.functions.push_back(std::move(lines));
	}
	sort_functions(module);
	if (module.functions.empty()) {
		problem = "has no debug information";
		return false;
	}
	return true;
}

} // namespace

bool read_debug_information(const std::string &path, std::string name,
			    code_lines &into)
{
	const file_closer file = { open(path.c_str(), O_RDONLY | O_CLOEXEC) };
	module_lines module;
	std::string problem;

	if (file.fd < 0) {
		into.problems.push_back(
			fmt::format("{}: {}", path, strerror(errno)));
		return false;
	}
	elf_version(EV_CURRENT);

	/* A private copy, which relocation may change. */
	const std::unique_ptr<Elf, elf_ender> elf(
		elf_begin(file.fd, ELF_C_READ_MMAP_PRIVATE, nullptr));

	module.name = std::move(name);
	if (!elf || elf_kind(elf.get()) != ELF_K_ELF)
		problem = "is no kernel module";
	else if (read_object(elf.get(), module, problem))
		into.modules.push_back(std::move(module));
	if (!problem.empty())
		into.problems.push_back(fmt::format("{}: {}", path, problem));
	return problem.empty();
}

} // namespace zorva
