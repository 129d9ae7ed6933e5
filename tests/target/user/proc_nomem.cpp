// SPDX-License-Identifier: GPL-2.0
/*
 * Opening report files while the kernel's allocations fail, one by one, and
 * what openings, closings and writes leave behind in its heap.
 */
#include <map>

#include "reports.h"

namespace
{

/*
 * Opens a file with its n-th allocation failing: the error, 0 for success, or
 * -1 when it needs fewer allocations than that.
 */
int open_failing(const std::string &path, unsigned int n)
{
	failing_allocation failing(n);
	const int fd = open(path.c_str(), O_RDONLY);
	const int error = fd < 0 ? errno : 0;
	const bool failed = failing.left() == 0;

	if (fd >= 0)
		close(fd);
	return failed ? error : -1;
}

/* How many allocations opening a file takes; all of them are vital. */
unsigned int allocations_to_open(const std::string &path)
{
	unsigned int n = 1;
	int error;

	/* What the path itself needs is kept from the first time on. */
	whole(path);
	while ((error = open_failing(path, n)) >= 0 && n < 100) {
		EXPECT_EQ(error, ENOMEM);
		++n;
	}
	return n - 1;
}

/* The number of objects in use of each kind of the kernel's heap. */
std::map<std::string, long> heap()
{
	std::istringstream lines(whole("/proc/slabinfo"));
	std::map<std::string, long> objects;

	for (std::string line; std::getline(lines, line);) {
		std::istringstream words(line);
		std::string name;
		long active;

		if (words >> name >> active)
			objects[name] = active;
	}
	return objects;
}

/* The first kind of object of which there are many more than before. */
std::string grown(const std::map<std::string, long> &before, long many)
{
	for (const auto &[name, objects] : heap()) {
		const auto was = before.find(name);

		if (was != before.end() && objects - was->second > many)
			return name;
	}
	return "";
}

/*
 * Does something many times; no kind of object becomes many more. What the
 * kernel itself frees later gets some time for that.
 */
template <typename Errand>
void expect_no_growth(const Errand &errand)
{
	constexpr int rounds = 500;
	const std::map<std::string, long> before = heap();

	if (whole("/proc/kallsyms").find(" kasan_report\n") !=
	    std::string::npos) {
		tap::skip("KASAN keeps what is freed for long");
		return;
	}
	REQUIRE(before.size() > 10);
	for (int i = 0; i < rounds; ++i)
		REQUIRE(errand());
	for (int i = 0; i < 50 && !grown(before, rounds / 2).empty(); ++i)
		usleep(20000);
	EXPECT_EQ(grown(before, rounds / 2), "");
}

} // namespace

TEST(an_open_without_memory_fails_at_every_step)
{
	const sleeping_allocations_fail also;
	/* Another file of one record, which has no state of its own. */
	const unsigned int plain = allocations_to_open("/proc/version");

	EXPECT(plain >= 3);
	/* Seen on 6.12 and not on 5.10: a report's open takes one more. */
	for (const std::string &entry : entries)
		EXPECT_EQ(allocations_to_open(path_of(entry)),
			  plain + (kernel_since(6, 0) ? 2 : 1));
}

TEST(an_open_that_failed_leaves_nothing_behind)
{
	const sleeping_allocations_fail also;
	const std::string path = path_of("zorva.mem");
	const unsigned int count = allocations_to_open(path);

	for (unsigned int n = 1; n <= count; ++n)
		expect_no_growth([&] {
			return open_failing(path, n) == ENOMEM;
		});
}

TEST(an_open_a_read_and_a_close_leave_nothing_behind)
{
	const blocks alive({ { 51, 10 } });

	for (const std::string &entry : entries)
		expect_no_growth([&] {
			const std::string text = whole(path_of(entry));

			return text.find("<open") == std::string::npos &&
			       text.find("<read") == std::string::npos;
		});
}

TEST(a_write_leaves_nothing_behind)
{
	const file opened(path_of("zorva.mem.detail"), O_WRONLY);

	expect_no_growth([&] {
		return write(opened, "all\n", 4) == 4;
	});
	expect_no_growth([&] {
		const volatile uintptr_t nowhere = 0;

		return write(opened, reinterpret_cast<void *>(nowhere), 4) < 0;
	});
}

TEST(a_report_needs_no_memory)
{
	const sleeping_allocations_fail also;
	const blocks alive({ { 51, 10 }, { 52, 20 }, { 51, 30 } });

	for (const unsigned int n : { 1, 2, 3 })
		for (const std::string &entry : entries) {
			wait_for_a_quiet_moment();
			const std::string text = whole(path_of(entry));
			const file opened(path_of(entry), O_RDONLY);
			const failing_allocation failing(n);

			EXPECT_EQ(read_on(opened), text);
		}
}

TEST(after_failures_every_report_opens_again)
{
	for (const std::string &entry : entries) {
		{
			const sleeping_allocations_fail also;

			EXPECT_EQ(open_failing(path_of(entry), 1), ENOMEM);
		}
		wait_for_a_quiet_moment();
		const std::string text = whole(path_of(entry));

		EXPECT_EQ(text.find("<open"), std::string::npos);
		EXPECT_EQ(whole(path_of(entry)), text);
	}
}
