// SPDX-License-Identifier: GPL-2.0
/* What every report file does when it is read, in pieces and in wholes. */
#include <sys/ioctl.h>
#include <sys/mman.h>

#include "reports.h"

namespace
{

/* So that the memory reports have something to tell. */
const std::vector<std::pair<unsigned, unsigned>> some = {
	{ 51, 10 }, { 52, 200 }, { 51, 3000 }, { 53, 1 }
};

/* Runs a check on every report file, opened anew, with its text at hand. */
template <typename Check>
void for_every_report(const Check &check)
{
	const blocks alive(some);

	for (const std::string &entry : entries) {
		wait_for_a_quiet_moment();
		const std::string text = whole(path_of(entry));
		const file opened(path_of(entry), O_RDONLY);

		REQUIRE(opened >= 0);
		check(opened, text);
	}
}

} // namespace

TEST(the_usage_table_is_right)
{
	const blocks alive(some);
	std::string text =
		"           Curr        Max         Alloc       Free             \n"
		"Component  Usage       Usage       Count       Count       Delta\n"
		"===================================================================\n";

	for (const unsigned int comp : { 51, 52, 53 }) {
		const usage row = usage_of(name_of(comp));
		unsigned int bytes = 0, count = 0;
		char line[80];

		for (const shown_block &block : shown_blocks())
			if (block.comp == comp) {
				bytes += block.size;
				++count;
			}
		EXPECT(row.max >= bytes);
		EXPECT_EQ(row.allocs - row.frees, count);
		snprintf(line, sizeof(line), "%-11s%-12u%-12u%-12u%-12u+%-7u\n",
			 name_of(comp).c_str(), bytes, row.max, row.allocs,
			 row.frees, count);
		text += line;
	}
	EXPECT_EQ(whole(path_of("zorva.mem")), text);
}

TEST(the_detailed_memory_report_is_right)
{
	const blocks alive(some);

	wait_for_a_quiet_moment();
	EXPECT_EQ(whole(path_of("zorva.mem.detail")),
		  detail_of({ 51, 52, 53 }));
}

TEST(a_torn_block_is_shown)
{
	const blocks alive({ { 51, 10 } });

	EXPECT_EQ(order("tear"), 0);
	const std::string text = whole(path_of("zorva.mem.detail"));
	EXPECT_EQ(order("tear"), 0);

	EXPECT(text.find("\n<memory corruption 0x") != std::string::npos);
	EXPECT(text.find(" (expected 0xbbbbbbbb) (lab.c, 1)>\n") !=
	       std::string::npos);
	EXPECT_EQ(text.find(" - 10 bytes "), std::string::npos);
}

TEST(a_report_is_read_once)
{
	for_every_report([](int fd, const std::string &text) {
		EXPECT_EQ(read_on(fd), text);
		EXPECT_EQ(read_on(fd), "");
	});
}

TEST(a_report_is_read_again_after_a_seek_to_its_beginning)
{
	for_every_report([](int fd, const std::string &text) {
		EXPECT_EQ(read_on(fd), text);
		EXPECT_EQ(lseek(fd, 0, SEEK_SET), 0);
		EXPECT_EQ(read_on(fd), text);
	});
}

TEST(a_report_that_is_read_again_is_a_new_one)
{
	const file mem(path_of("zorva.mem"), O_RDONLY);
	std::string text, later;

	{
		const blocks alive({ { 51, 10 } });
		const std::string name = "\n" + name_of(51) + " ";

		text = read_on(mem);
		EXPECT(text.find(name) != std::string::npos);
		EXPECT_EQ(lseek(mem, 0, SEEK_SET), 0);
		EXPECT_EQ(order("alloc 52 5"), 0);
		later = read_on(mem);
		EXPECT(later.find(name) != std::string::npos);
		EXPECT(later.find("\n" + name_of(52) + " ") !=
		       std::string::npos);
	}
	EXPECT_EQ(lseek(mem, 0, SEEK_SET), 0);
	EXPECT(read_on(mem).size() < text.size());
}

TEST(a_report_is_made_when_it_is_read_first)
{
	const file mem(path_of("zorva.mem"), O_RDONLY);
	const blocks alive({ { 51, 10 } });
	const std::string name = "\n" + name_of(51) + " ";
	char first;

	EXPECT_EQ(read(mem, &first, 1), 1);
	EXPECT_EQ(order("alloc 52 5"), 0);
	const std::string rest = read_on(mem);
	EXPECT(rest.find(name) != std::string::npos);
	EXPECT_EQ(rest.find("\n" + name_of(52) + " "), std::string::npos);
}

TEST(pieces_of_any_size_make_the_same_report)
{
	for (const size_t step : { 1, 3, 7, 61, 997, 4095, 4097 })
		for_every_report([=](int fd, const std::string &text) {
			EXPECT_EQ(read_on(fd, step), text);
		});
}

TEST(reading_at_a_position_gives_the_same_report)
{
	for_every_report([](int fd, const std::string &text) {
		for (const size_t from : { 0, 1, 17, 100, 5 }) {
			char buffer[64];
			const ssize_t count =
				pread(fd, buffer, sizeof(buffer), from);
			const std::string want =
				from < text.size()
					? text.substr(from, sizeof(buffer))
					: "";

			REQUIRE(count >= 0);
			EXPECT_EQ(std::string(buffer, count), want);
		}
		/* The position itself is where it was. */
		EXPECT_EQ(read_on(fd), text);
	});
}

TEST(a_seek_into_a_report_gives_its_rest)
{
	for_every_report([](int fd, const std::string &text) {
		const size_t middle = text.size() / 2;

		EXPECT_EQ(lseek(fd, middle, SEEK_SET), (off_t)middle);
		EXPECT_EQ(read_on(fd), text.substr(middle));
		EXPECT_EQ(lseek(fd, -(off_t)(text.size() - middle), SEEK_CUR),
			  (off_t)middle);
		EXPECT_EQ(read_on(fd), text.substr(middle));
	});
}

TEST(a_report_has_no_end_to_seek_from)
{
	for_every_report([](int fd, const std::string &) {
		EXPECT_ERROR(lseek(fd, 0, SEEK_END), EINVAL);
		EXPECT_ERROR(lseek(fd, -1, SEEK_SET), EINVAL);
	});
}

TEST(two_openings_of_a_report_do_not_disturb_each_other)
{
	const blocks alive(some);

	for (const std::string &entry : entries) {
		wait_for_a_quiet_moment();
		const std::string text = whole(path_of(entry));
		const file a(path_of(entry), O_RDONLY);
		const file b(path_of(entry), O_RDONLY);
		std::string from_a, from_b;
		char piece[13];
		ssize_t count;

		do {
			count = read(a, piece, sizeof(piece));
			from_a.append(piece, count > 0 ? count : 0);
			count = read(b, piece, sizeof(piece));
			from_b.append(piece, count > 0 ? count : 0);
		} while (count > 0);
		EXPECT_EQ(from_a, text);
		EXPECT_EQ(from_b, text);
	}
}

TEST(many_openings_at_once_work)
{
	std::vector<int> opened;

	for (int i = 0; i < 30; ++i)
		for (const std::string &entry : entries) {
			const int fd = open(path_of(entry).c_str(), O_RDONLY);

			REQUIRE(fd >= 0);
			opened.push_back(fd);
		}
	EXPECT_EQ(opened.size(), 300u);
	for (const int fd : opened)
		EXPECT_EQ(close(fd), 0);
}

TEST(a_bad_address_is_refused_and_the_report_stays)
{
	void *const nowhere = mmap(nullptr, 4096, PROT_NONE,
				   MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);

	REQUIRE(nowhere != MAP_FAILED);
	for_every_report([=](int fd, const std::string &text) {
		if (!text.empty())
			EXPECT_ERROR(read(fd, nowhere, 4096), EFAULT);
		EXPECT_EQ(read_on(fd), text);
	});
	munmap(nowhere, 4096);
}

TEST(a_report_can_do_nothing_else)
{
	for_every_report([](int fd, const std::string &text) {
		EXPECT(mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE, fd, 0) ==
		       MAP_FAILED);
		EXPECT_ERROR(ioctl(fd, TCGETS, nullptr), ENOTTY);
		EXPECT_EQ(read_on(fd), text);
	});
}
