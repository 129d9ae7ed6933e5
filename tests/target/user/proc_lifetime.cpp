// SPDX-License-Identifier: GPL-2.0
/*
 * Loading and unloading. zorva is loaded when this begins, with no module on
 * top of it, and not when it ends. The directory that an unload leaves behind
 * is swept away by zorva_sweep.ko where a test needs a second load to work.
 */
#include <dirent.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <set>

#include "reports.h"

namespace
{

/* Loads a module; returns 0 or an error. */
int load(const std::string &module)
{
	const file opened("/lib/modules/zorva/" + module + ".ko", O_RDONLY);

	if (opened < 0)
		return errno;
	return syscall(SYS_finit_module, (int)opened, "", 0) ? errno : 0;
}

int unload(const std::string &module)
{
	return syscall(SYS_delete_module, module.c_str(), O_NONBLOCK) ? errno
								      : 0;
}

bool loaded()
{
	const std::string modules = "\n" + whole("/proc/modules");

	return modules.find("\nzorva ") != std::string::npos;
}

/* The number of entries in the directory, or -1 without a directory. */
int entry_count()
{
	DIR *const dir = opendir(directory.c_str());
	int count = 0;

	if (!dir)
		return -1;
	while (const dirent *entry = readdir(dir))
		count += entry->d_name[0] != '.';
	closedir(dir);
	return count;
}

/* What the kernel's log gets from now on, without prefixes. */
class log_from_now {
public:
	log_from_now() : kmsg_("/dev/kmsg", O_RDONLY | O_NONBLOCK)
	{
		lseek(kmsg_, 0, SEEK_END);
	}

	std::string text()
	{
		std::string all;
		char record[8192];
		ssize_t count;

		while ((count = read(kmsg_, record, sizeof(record) - 1)) > 0) {
			record[count] = '\0';
			const char *text = strchr(record, ';');

			/* What the suites miss when memory fails. */
			if (text && strncmp(text + 1, "kunit module:", 13) != 0)
				all += text + 1;
		}
		return all;
	}

private:
	const file kmsg_;
};

const char refusal[] = "Create profs directory zorva failed.\n";

/* The kernel's own complaint about the name that is taken already. */
void expect_a_complaint()
{
	tap::note("expected: WARNING at fs/proc/generic.c");
}

/* Leaves zorva loaded afresh, wherever the test before stopped. */
void load_afresh()
{
	if (loaded())
		EXPECT_EQ(unload("zorva"), 0);
	EXPECT_EQ(load("zorva_sweep"), EAGAIN);
	EXPECT_EQ(entry_count(), -1);
	EXPECT_EQ(load("zorva"), 0);
}

} // namespace

TEST(unloading_removes_the_entries_and_keeps_the_directory)
{
	struct stat status;

	REQUIRE(loaded());
	EXPECT_EQ(entry_count(), 10);

	log_from_now log;
	EXPECT_EQ(unload("zorva"), 0);

	EXPECT_EQ(log.text(), "");
	EXPECT(!loaded());
	REQUIRE(stat("/proc/zorva", &status) == 0);
	EXPECT_EQ(status.st_mode, (mode_t)(S_IFDIR | 0555));
	EXPECT_EQ(entry_count(), 0);
}

TEST(a_second_load_is_refused)
{
	REQUIRE(!loaded());
	REQUIRE(entry_count() == 0);
	log_from_now log;

	expect_a_complaint();
	EXPECT_EQ(load("zorva"), EPERM);

	const std::string text = "\n" + log.text();
	EXPECT(text.find(std::string("\n") + refusal) != std::string::npos);
	EXPECT(!loaded());
	EXPECT_EQ(entry_count(), 0);
}

TEST(every_further_load_is_refused_as_well)
{
	for (int i = 0; i < 3; ++i) {
		expect_a_complaint();
		EXPECT_EQ(load("zorva"), EPERM);
		EXPECT_EQ(entry_count(), 0);
	}
}

TEST(without_the_directory_a_load_works_and_says_nothing)
{
	EXPECT_EQ(load("zorva_sweep"), EAGAIN);
	REQUIRE(entry_count() == -1);
	log_from_now log;

	EXPECT_EQ(load("zorva"), 0);

	EXPECT_EQ(log.text(), "");
	EXPECT_EQ(entry_count(), 10);
	for (const std::string &entry : entries)
		EXPECT_EQ(whole(path_of(entry)).find("<open"),
			  std::string::npos);
}

TEST(a_fresh_load_has_no_blocks_and_no_filter)
{
	REQUIRE(loaded());
	const file opened(path_of("zorva.mem.detail"), O_WRONLY);

	EXPECT_EQ(write(opened, "NOBODY", 6), 6);
	load_afresh();

	EXPECT_EQ(whole(path_of("zorva.mem")),
		  "           Curr        Max         Alloc       Free             \n"
		  "Component  Usage       Usage       Count       Count       Delta\n"
		  "===================================================================\n");
	wait_for_a_quiet_moment();
	EXPECT_EQ(whole(path_of("zorva.mem.detail")), detail_of({}));
}

TEST(open_reports_outlive_the_module_and_say_so)
{
	std::vector<int> untouched, half_read;
	char byte;

	load_afresh();
	for (const std::string &entry : entries) {
		untouched.push_back(open(path_of(entry).c_str(), O_RDWR));
		half_read.push_back(open(path_of(entry).c_str(), O_RDONLY));
		REQUIRE(untouched.back() >= 0);
		REQUIRE(half_read.back() >= 0);
		EXPECT(read(half_read.back(), &byte, 1) >= 0);
	}

	EXPECT_EQ(unload("zorva"), 0);

	EXPECT_EQ(entry_count(), 0);
	for (const int fd : untouched) {
		EXPECT_ERROR(read(fd, &byte, 1), EIO);
		EXPECT_ERROR(write(fd, "all\n", 4), EIO);
		EXPECT_ERROR(lseek(fd, 0, SEEK_SET), EINVAL);
		EXPECT_EQ(close(fd), 0);
	}
	for (const int fd : half_read) {
		EXPECT_ERROR(read(fd, &byte, 1), EIO);
		EXPECT_EQ(close(fd), 0);
	}
}

namespace
{

/*
 * Reads reports over and over, opening each anew, until there are none any
 * more. Returns 0 if nothing but that went wrong.
 */
int read_until_unloaded()
{
	for (unsigned int i = 0;; ++i) {
		const file opened(path_of(entries[i % entries.size()]),
				  O_RDONLY);
		char piece[7];
		ssize_t count;

		if (opened < 0)
			return errno == ENOENT ? 0 : 1;
		while ((count = read(opened, piece, sizeof(piece))) > 0)
			;
		if (count < 0)
			return errno == EIO ? 0 : 2;
	}
}

} // namespace

TEST(unloading_while_reports_are_read_is_safe)
{
	for (int round = 0; round < 5; ++round) {
		std::vector<pid_t> readers;

		load_afresh();
		for (int i = 0; i < 4; ++i) {
			const pid_t reader = fork();

			if (reader == 0)
				_exit(read_until_unloaded());
			readers.push_back(reader);
		}
		usleep(100000);

		EXPECT_EQ(unload("zorva"), 0);

		for (const pid_t reader : readers) {
			int status = -1;

			EXPECT_EQ(waitpid(reader, &status, 0), reader);
			EXPECT_EQ(status, 0);
		}
		EXPECT_EQ(entry_count(), 0);
	}
}

namespace
{

/* Loads while the n-th allocation fails; left is how many there were to go. */
int load_failing(unsigned int n, unsigned int &left)
{
	const sleeping_allocations_fail also;
	failing_allocation failing(n);
	const int error = load("zorva");

	left = failing.left();
	return error;
}

std::string missing_entry()
{
	for (const std::string &entry : entries)
		if (access(path_of(entry).c_str(), F_OK) != 0)
			return entry;
	return "";
}

} // namespace

/*
 * Loads with one allocation after the other failing, from the last to the
 * first: those of the entries, and then of the directory. What came before was
 * the kernel's loader, whose number of allocations is not quite the same each
 * time, so an entry may be passed over. When the directory was, the loader
 * itself fails: then it is looked for again from a little further on.
 */
TEST(a_load_needs_memory_for_the_directory_but_not_for_an_entry)
{
	constexpr unsigned int many = 1000000;
	std::set<std::string> missing;
	unsigned int left, passed_over = 0;
	bool refused = false;

	load_afresh();
	EXPECT_EQ(unload("zorva"), 0);
	EXPECT_EQ(load("zorva_sweep"), EAGAIN);
	REQUIRE(load_failing(many, left) == 0);
	EXPECT_EQ(unload("zorva"), 0);

	for (unsigned int n = many - left; n > 0 && !refused; --n) {
		int error, count;

		EXPECT_EQ(load("zorva_sweep"), EAGAIN);
		log_from_now log;
		error = load_failing(n, left);
		count = entry_count();
		if (error == ENOMEM && passed_over < 8) {
			++passed_over;
			n += 3;
			continue;
		}
		if (error != 0) {
			EXPECT_EQ(error, EPERM);
			EXPECT_EQ(log.text(), refusal);
			EXPECT_EQ(count, -1);
			refused = true;
			continue;
		}
		EXPECT_EQ(log.text(), "");
		EXPECT(count == 10 || count == 9);
		if (count == 9) {
			missing.insert(missing_entry());
			/* The kernel misses the entry on its removal. */
			expect_a_complaint();
		}
		EXPECT_EQ(unload("zorva"), 0);
		EXPECT_EQ(entry_count(), 0);
	}
	EXPECT(refused);
	EXPECT(missing.size() >= 5);
	EXPECT(!loaded());
}
