// SPDX-License-Identifier: GPL-2.0
/*
 * Writing to the report files: the filter of the detailed memory report, and
 * the refusal of everything else.
 */
#include <sys/mman.h>

#include "reports.h"

namespace
{

const std::string detail = path_of("zorva.mem.detail");

constexpr unsigned int one = 51, other = 52;

/* Two components to choose from, and no filter before and after. */
class fixture {
public:
	fixture() : alive_({ { one, 10 }, { other, 20 }, { one, 30 } })
	{
		write_text("all\n");
	}
	~fixture()
	{
		write_text("all\n");
	}

	/* Writes once; returns what write() returned, or minus the error. */
	static ssize_t write_text(const std::string &text)
	{
		const file opened(detail, O_WRONLY);
		const ssize_t count = write(opened, text.data(), text.size());

		return count < 0 ? -errno : count;
	}

	static void expect_all()
	{
		expect({ one, other });
	}

	static void expect_nothing()
	{
		expect({});
	}

	static void expect(const std::vector<unsigned int> &comps)
	{
		wait_for_a_quiet_moment();
		EXPECT_EQ(whole(detail), detail_of(comps));
	}

	/* A text that is consumed whole, and the components it leaves. */
	static void expect_after(const std::string &text,
				 const std::vector<unsigned int> &comps)
	{
		EXPECT_EQ(write_text(text), (ssize_t)text.size());
		expect(comps);
	}

private:
	const blocks alive_;
};

} // namespace

TEST(all_and_a_newline_are_four_bytes)
{
	const fixture fixture;

	EXPECT_EQ(fixture.write_text("all\n"), 4);
	fixture.expect_all();
}

TEST(a_name_narrows_the_report)
{
	const fixture fixture;

	fixture.expect_after(name_of(one) + "\n", { one });
	fixture.expect_after(name_of(other), { other });
	fixture.expect_after("all", { one, other });
}

TEST(the_filter_holds_for_later_openings_and_other_readers)
{
	const fixture fixture;

	fixture.write_text(name_of(one) + "\n");
	wait_for_a_quiet_moment();
	const std::string want = detail_of({ one });

	EXPECT_EQ(whole(detail), want);
	EXPECT_EQ(as_operator([&] {
			  return whole(detail) != want;
		  }),
		  0);
}

TEST(this_modules_own_name_shows_what_it_owns)
{
	const fixture fixture;

	EXPECT_EQ(order("alloc 9 5"), 0);
	fixture.expect_after("ZORVA\n", { 9 });
	fixture.expect_after("zorva\n", {});
	fixture.expect_after(" ZORVA\n", {});
	fixture.expect_after("all\n", { 9, one, other });
}

TEST(the_name_must_match_to_the_letter)
{
	const fixture fixture;
	std::string lower = name_of(one);

	for (char &letter : lower)
		letter = tolower(letter);
	fixture.expect_after(lower + "\n", {});
	fixture.expect_after(" " + name_of(one) + "\n", {});
	fixture.expect_after(name_of(one) + " \n", {});
	fixture.expect_after(name_of(one).substr(0, 2), {});
	fixture.expect_after("NOBODY\n", {});
	fixture.expect_after("ALL\n", {});
}

TEST(nothing_but_control_characters_shows_all)
{
	const fixture fixture;

	for (const char *text : { "\n", "\r\n", "\t\t", "\x7f\x01\x1b" }) {
		fixture.write_text("NOBODY");
		fixture.expect_after(text, { one, other });
	}
}

TEST(a_write_of_nothing_shows_all)
{
	const fixture fixture;

	fixture.write_text("NOBODY");
	fixture.expect_after("", { one, other });
}

TEST(control_characters_are_taken_out_of_a_name)
{
	const fixture fixture;
	const std::string name = name_of(one);

	fixture.expect_after("\t" + name.substr(0, 1) + "\r\n\x01" +
				     name.substr(1) + "\x7f\n",
			     { one });
	fixture.expect_after("a\nl\nl\n", { one, other });
}

TEST(a_text_ends_at_a_zero)
{
	const fixture fixture;

	fixture.expect_after(name_of(one) + std::string("\0garbage", 8),
			     { one });
	fixture.expect_after(std::string("\0NOBODY", 7), { one, other });
}

TEST(a_long_name_matches_nothing)
{
	const fixture fixture;

	fixture.expect_after("A_NAME_OF_15_CH", {});
	fixture.expect_after("A_NAME_OF_16_CHA", {});
	fixture.expect_after("A_NAME_THAT_IS_EVEN_LONGER_THAN_32_CHARACTERS\n",
			     {});
	fixture.expect_after(name_of(one) + "\n", { one });
}

TEST(binary_garbage_does_no_harm)
{
	const fixture fixture;
	std::string garbage;

	for (int i = 255; i > 0; --i)
		garbage += (char)i;
	fixture.expect_after(garbage, {});
	for (char &byte : garbage)
		byte = 0x80 | rand();
	fixture.expect_after(garbage, {});
}

TEST(a_text_of_64_kib_is_consumed)
{
	const fixture fixture;

	fixture.expect_after(name_of(one) + "\n" + std::string(65536, '\n'),
			     { one });
	fixture.expect_after(std::string(65536, 'x'), {});
	fixture.expect_after(std::string(65536, '\n') + "NOBODY",
			     { one, other });
}

TEST(a_text_of_1_mib_is_consumed)
{
	const fixture fixture;
	std::string text = name_of(one) + "\n";

	text.resize(1 << 20);
	fixture.expect_after(text, { one });
	fixture.expect_after(std::string(1 << 20, 'x'), {});
}

TEST(a_text_beyond_the_heap_is_refused)
{
	const fixture fixture;
	constexpr size_t size = 64 << 20;
	/* Read by nobody, so it takes no memory. */
	void *const text = mmap(nullptr, size, PROT_READ,
				MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1,
				0);
	const file opened(detail, O_WRONLY);

	REQUIRE(text != MAP_FAILED);
	tap::note("expected: WARNING at mm/page_alloc.c");
	fixture.write_text(name_of(one));
	EXPECT_ERROR(write(opened, text, size), ENOMEM);
	EXPECT_ERROR(write(opened, text, size), ENOMEM);
	fixture.expect({ one });
	munmap(text, size);
}

TEST(a_text_beyond_the_signed_maximum_is_refused)
{
	const fixture fixture;
	const file opened(detail, O_WRONLY);

	fixture.write_text(name_of(one));
	/* Volatile, since the compiler knows that these are too much. */
	for (const volatile size_t size : { SIZE_MAX / 2 + 1, SIZE_MAX })
		EXPECT_ERROR(write(opened, "all\n", size), EFAULT);
	fixture.expect({ one });
}

TEST(a_text_that_cannot_be_read_is_refused)
{
	const fixture fixture;
	const file opened(detail, O_WRONLY);
	char *const pages =
		static_cast<char *>(mmap(nullptr, 8192, PROT_READ | PROT_WRITE,
					 MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));

	REQUIRE(pages != MAP_FAILED);
	REQUIRE(mprotect(pages + 4096, 4096, PROT_NONE) == 0);
	memcpy(pages + 4096 - 4, "all\n", 4);
	fixture.write_text(name_of(one));

	EXPECT_ERROR(write(opened, pages + 4096, 4), EFAULT);
	EXPECT_ERROR(write(opened, pages + 4096 - 4, 8), EFAULT);
	for (const volatile uintptr_t nowhere : { 0u, 0x80000000u })
		EXPECT_ERROR(write(opened, reinterpret_cast<void *>(nowhere),
				   4),
			     EFAULT);
	fixture.expect({ one });

	EXPECT_EQ(write(opened, pages + 4096 - 4, 4), 4);
	fixture.expect_all();
	munmap(pages, 8192);
}

TEST(a_text_needs_memory)
{
	const fixture fixture;
	const file opened(detail, O_WRONLY);

	fixture.write_text(name_of(one));
	{
		failing_allocation failing(1);

		EXPECT_ERROR(write(opened, "all\n", 4), ENOMEM);
		EXPECT_EQ(failing.left(), 0u);
	}
	fixture.expect({ one });
}

TEST(every_write_sets_the_filter_wherever_the_file_stands)
{
	const fixture fixture;
	const file opened(detail, O_RDWR);
	const std::string name = name_of(one);

	EXPECT_EQ(write(opened, "NOBODY\n", 7), 7);
	EXPECT_EQ(write(opened, name.data(), name.size()),
		  (ssize_t)name.size());
	fixture.expect({ one });

	/* Writing moves nothing: the report is read from its beginning. */
	EXPECT_EQ(lseek(opened, 0, SEEK_CUR), 0);
	wait_for_a_quiet_moment();
	EXPECT_EQ(read_on(opened), detail_of({ one }));
	EXPECT_EQ(write(opened, "all\n", 4), 4);
	fixture.expect_all();
}

TEST(a_write_at_a_position_is_refused)
{
	const fixture fixture;
	const file opened(detail, O_WRONLY);

	fixture.write_text(name_of(one));
	EXPECT_ERROR(pwrite(opened, "all\n", 4, 0), ESPIPE);
	fixture.expect({ one });
}

TEST(the_other_reports_take_no_text)
{
	const fixture fixture;

	for (const std::string &entry : entries) {
		if (path_of(entry) == detail)
			continue;
		const file opened(path_of(entry), O_WRONLY);

		EXPECT_ERROR(write(opened, "NOBODY\n", 7), EIO);
		EXPECT_ERROR(write(opened, "", 0), EIO);
	}
	fixture.expect_all();
}
