// SPDX-License-Identifier: GPL-2.0
/* The directory of the report files, and who may do what with them. */
#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>

#include "reports.h"

namespace
{

std::string list_of(const std::string &path)
{
	std::vector<std::string> names;
	std::string list;
	DIR *const dir = opendir(path.c_str());

	if (!dir)
		return "<none>";
	while (const dirent *entry = readdir(dir))
		if (entry->d_name[0] != '.')
			names.push_back(entry->d_name);
	closedir(dir);
	std::sort(names.begin(), names.end());
	for (const std::string &name : names)
		list += name + "\n";
	return list;
}

} // namespace

TEST(the_directory_is_at_the_top_of_the_proc_file_system)
{
	struct stat status;

	REQUIRE(stat("/proc/zorva", &status) == 0);
	EXPECT_EQ(status.st_mode, (mode_t)(S_IFDIR | 0555));
	EXPECT_EQ(status.st_uid, 0u);
	EXPECT_EQ(status.st_gid, 0u);
}

TEST(the_directory_holds_ten_entries)
{
	EXPECT_EQ(list_of("/proc/zorva"), "zorva.hrt\n"
					  "zorva.mem\n"
					  "zorva.mem.detail\n"
					  "zorva.msgq\n"
					  "zorva.mutex\n"
					  "zorva.mutex.detail\n"
					  "zorva.sem\n"
					  "zorva.sem.detail\n"
					  "zorva.thread\n"
					  "zorva.timer\n");
}

TEST(no_entry_is_at_the_top_of_the_proc_file_system)
{
	EXPECT_EQ(list_of("/proc").find("\nzorva."), std::string::npos);
}

TEST(every_entry_is_a_file_that_all_may_read)
{
	for (const std::string &entry : entries) {
		struct stat status;

		REQUIRE(stat(path_of(entry).c_str(), &status) == 0);
		EXPECT_EQ(status.st_mode, (mode_t)(S_IFREG | 0444));
		EXPECT_EQ(status.st_uid, 0u);
		EXPECT_EQ(status.st_gid, 0u);
		EXPECT_EQ(status.st_size, 0);
	}
}

/* The proc file system numbers its entries as they come. */
TEST(the_entries_were_created_in_their_order)
{
	ino_t last = 0;

	for (const std::string &entry : entries) {
		struct stat status;

		REQUIRE(stat(path_of(entry).c_str(), &status) == 0);
		EXPECT(status.st_ino > last);
		last = status.st_ino;
	}
}

TEST(an_ordinary_user_can_read_every_report)
{
	for (const std::string &entry : entries) {
		wait_for_a_quiet_moment();
		const std::string text = whole(path_of(entry));

		EXPECT_EQ(as_operator([&] {
				  return whole(path_of(entry)) != text;
			  }),
			  0);
	}
}

TEST(an_ordinary_user_cannot_open_a_report_for_writing)
{
	for (const std::string &entry : entries)
		for (const int flags : { O_WRONLY, O_RDWR })
			EXPECT_EQ(as_operator([&] {
					  const file opened(path_of(entry),
							    flags);

					  return opened < 0 ? errno : 0;
				  }),
				  EACCES);
}

TEST(root_can_open_every_report_for_writing)
{
	for (const std::string &entry : entries) {
		const file opened(path_of(entry), O_WRONLY);

		EXPECT(opened >= 0);
	}
}

TEST(the_module_calls_itself_by_its_name)
{
	const std::string modules = "\n" + whole("/proc/modules");

	EXPECT(modules.find("\nzorva ") != std::string::npos);
	EXPECT_EQ(list_of("/sys/module/zorva/parameters"), "<none>");
}
