// SPDX-License-Identifier: GPL-2.0
/*
 * Writes to the filter of the detailed memory report: any bytes, in any
 * number, from memory that ends too early; and what the report then shows.
 */
#include "input.h"
#include "life.h"

#include "zorva_mem.h"

namespace
{

constexpr u32 owners[] = { 1, 2, ZORVA_COMPONENT_SELF, ZORVA_COMPONENTS - 1 };
constexpr size_t most_writes = 50;

/* What the filter is after a write, by the rules in the documents. */
std::string filter_after(const std::string &written)
{
	const std::string text = std::string(written.c_str()).substr(0, 32);
	std::string name;

	for (const char each : text)
		if (static_cast<unsigned char>(each) >= 0x20 && each != 0x7f)
			name += each;
	return name == "all" ? "" : name.substr(0, 15);
}

bool has_owner(const std::string &report, u32 compId)
{
	return report.find(std::string("Component   : ") +
			   _componentName[compId] + "\n") != report.npos;
}

void check_report(const std::string &filter)
{
	const std::string report = fake::read_report("zorva/zorva.mem.detail");

	for (const u32 compId : owners)
		EXPECT_EQ(has_owner(report, compId),
			  filter.empty() || filter == _componentName[compId])
			<< filter;
}

} // namespace

void fuzz_filter(const u8 *bytes, size_t size)
{
	life::begin();

	input in(bytes, size);
	std::string filter;
	void *blocks[std::size(owners)];

	for (size_t i = 0; i < std::size(owners); ++i)
		blocks[i] = zorva_malloc(owners[i], 10 + i);

	for (size_t writes = 0; !in.empty() && writes < most_writes; ++writes) {
		const u32 what = in.below(16);
		const u8 length = in.byte();
		const u8 number = in.byte();
		const std::string text =
			in.text(length < 250 ? length % 64 : length * 16);
		const bool faults = what == 1 && number < text.size();
		const bool fails = what == 2;
		fake::proc_file file("zorva/zorva.mem.detail",
				     fake::access::writing);
		ssize_t expected = text.size();

		if (faults) {
			fake::fail_user_copy_after(number);
			expected = -EFAULT;
		}
		if (fails) {
			fake::fail_allocation(1);
			expected = -ENOMEM;
		}
		EXPECT_EQ(file.write(text.data(), text.size()), expected);
		fake::fail_user_copy_after(SIZE_MAX);
		fake::fail_allocation(0);
		if (expected >= 0)
			filter = filter_after(text);
		EXPECT_STREQ(_targetComp, filter.c_str());
		check_report(filter);
	}
	for (void *&block : blocks)
		zorva_free_cleanup(&block);
	life::end(life::leftovers::forbidden);
}
