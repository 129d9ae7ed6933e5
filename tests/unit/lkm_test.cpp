// SPDX-License-Identifier: GPL-2.0
/* Load and unload. */
#include "report_fixture.h"

extern "C" {
int init_module(void);
void cleanup_module(void);
}

namespace
{

constexpr char directory_failed[] =
	"\001cCreate profs directory zorva failed.\n";
constexpr char already_there[] =
	"WARNING: proc_dir_entry '/proc/zorva' already registered\n";

class Load : public ModuleTest {};
class Unload : public TrackedMemoryTest {};

std::vector<std::string> with(const char *before, const char *after)
{
	std::vector<std::string> texts;

	for (const std::string &entry : report_entries)
		texts.push_back(before + entry + after);
	return texts;
}

} // namespace

/* Load. */

TEST_F(Load, MakesTheDirectoryAndTheTenEntriesInOrder)
{
	const int result = zorva_init();

	std::vector<std::string> calls = with("create zorva/", " 0444");
	calls.insert(calls.begin(), "mkdir zorva");
	EXPECT_EQ(result, 0);
	EXPECT_EQ(fake::proc_calls(), calls);
	EXPECT_EQ(fake::proc_list(""),
		  std::vector<std::string>{ "zorva 0555" });
	EXPECT_EQ(fake::proc_list("zorva"), with("", " 0444"));
	EXPECT_NE(_zorvaProcDir, nullptr);
	EXPECT_EQ(fake::log_text(), "");
}

TEST_F(Load, IsTheModulesInitFunctionAndUnloadItsExitFunction)
{
	EXPECT_EQ(init_module, zorva_init);
	EXPECT_EQ(cleanup_module, zorva_exit);
}

TEST_F(Load, HasNoDirectoryBefore)
{
	EXPECT_EQ(_zorvaProcDir, nullptr);
	EXPECT_EQ(_pZorvaMallocMemList, nullptr);
	EXPECT_EQ(_sys_dbg_pr_fn, record_report);
	for (const zorva_mem_usage_t &usage : _zorvaMallocMemUsage)
		EXPECT_EQ(usage, zorva_mem_usage_t());
}

TEST_F(Load, FailsWithoutADirectoryAndMakesNothing)
{
	fake::refuse_directories(1);

	const int result = zorva_init();

	EXPECT_EQ(result, -1);
	EXPECT_EQ(fake::log_text(), directory_failed);
	EXPECT_EQ(fake::proc_calls(),
		  std::vector<std::string>{ "mkdir zorva" });
	EXPECT_EQ(_zorvaProcDir, nullptr);
}

TEST_F(Load, MakesEntriesAtTheTopWhenTheDirectoryIsLostAndCannotBeMade)
{
	fake::after_proc_create([](const std::string &name) {
		if (name == "zorva.mem.detail")
			_zorvaProcDir = nullptr;
	});

	const int result = zorva_init();

	std::vector<std::string> calls = { "mkdir zorva" };
	std::string logged;
	for (size_t i = 0; i < report_entries.size(); ++i) {
		if (i < 6) {
			calls.push_back("create zorva/" + report_entries[i] +
					" 0444");
			continue;
		}
		calls.push_back("mkdir zorva");
		calls.push_back("create " + report_entries[i] + " 0444");
		logged += std::string(already_there) + directory_failed;
	}
	EXPECT_EQ(result, 0);
	EXPECT_EQ(fake::proc_calls(), calls);
	EXPECT_EQ(fake::log_text(), logged);
	EXPECT_EQ(fake::proc_list(""),
		  (std::vector<std::string>{
			  "zorva 0555", "zorva.thread 0444", "zorva.timer 0444",
			  "zorva.hrt 0444", "zorva.msgq 0444" }));
}

TEST_F(Load, TestsTheDirectoryBeforeEveryEntryButTheFirst)
{
	fake::after_proc_create([](const std::string &) {
		remove_proc_entry("zorva", nullptr);
		_zorvaProcDir = nullptr;
	});

	const int result = zorva_init();

	std::vector<std::string> calls;
	for (const std::string &entry : report_entries) {
		calls.push_back("mkdir zorva");
		calls.push_back("create zorva/" + entry + " 0444");
		calls.push_back("remove zorva");
	}
	EXPECT_EQ(result, 0);
	EXPECT_EQ(fake::proc_calls(), calls);
	EXPECT_EQ(fake::log_text(), "");
}

TEST_F(Load, UsesADirectoryThatIsMadeInBetween)
{
	fake::after_proc_create([](const std::string &name) {
		if (name == "zorva.hrt") {
			remove_proc_entry("zorva", nullptr);
			_zorvaProcDir = nullptr;
		}
	});

	const int result = zorva_init();

	EXPECT_EQ(result, 0);
	EXPECT_NE(_zorvaProcDir, nullptr);
	EXPECT_EQ(fake::proc_list("zorva"),
		  std::vector<std::string>{ "zorva.msgq 0444" });
}

TEST_F(Load, DoesNotMissAnEntryThatTheKernelRefuses)
{
	fake::after_proc_create([](const std::string &name) {
		if (name == "zorva.mutex")
			proc_create("zorva.sem", 0, _zorvaProcDir, nullptr);
	});

	const int result = zorva_init();

	EXPECT_EQ(result, 0);
	EXPECT_EQ(fake::log_text(), "WARNING: proc_dir_entry "
				    "'zorva/zorva.sem' already registered\n");
	EXPECT_EQ(fake::proc_list("zorva").back(), "zorva.msgq 0444");
}

/* Unload. */

TEST_F(Unload, RemovesTheEntriesInOrderAndLeavesTheDirectory)
{
	zorva_init();
	const size_t made = fake::proc_calls().size();

	zorva_exit();

	const std::vector<std::string> calls(fake::proc_calls().begin() + made,
					     fake::proc_calls().end());
	EXPECT_EQ(calls, with("remove zorva/", ""));
	EXPECT_EQ(fake::proc_list(""),
		  std::vector<std::string>{ "zorva 0555" });
	EXPECT_TRUE(fake::proc_list("zorva").empty());
	EXPECT_EQ(fake::log_text(), "");
}

TEST_F(Unload, LeavesBlocksAndAccountsAlone)
{
	zorva_init();
	char *const block = allocate(10);
	const std::string before = bytes(block);

	zorva_exit();

	EXPECT_EQ(bytes(block), before);
	EXPECT_EQ(listed(), std::vector<void *>{ block });
	EXPECT_EQ(usage(owner), (zorva_mem_usage_t{ 10, 10, 1, 0 }));
	EXPECT_EQ(frees(), 0u);

	zorva_free_track(owner, block, "caller.c", 8);
}

TEST_F(Unload, KeepsASecondLoadFromSucceeding)
{
	zorva_init();
	zorva_exit();
	const size_t made = fake::proc_calls().size();

	const int result = zorva_init();

	EXPECT_EQ(result, -1);
	EXPECT_EQ(fake::log_text(),
		  std::string(already_there) + directory_failed);
	EXPECT_EQ(fake::proc_calls().size(), made + 1);
	EXPECT_TRUE(fake::proc_list("zorva").empty());
}

TEST_F(Unload, RemovesEntriesFromTheTopWhenThereIsNoDirectory)
{
	fake::after_proc_create([](const std::string &) {
		_zorvaProcDir = nullptr;
	});
	zorva_init();
	fake::after_proc_create(nullptr);
	remove_proc_entry("zorva", nullptr);
	proc_create("zorva.mutex", 0444, nullptr, nullptr);
	const std::string logged = fake::log_text();

	zorva_exit();

	EXPECT_TRUE(fake::proc_list("").empty());
	EXPECT_EQ(fake::log_text(), logged);
}

TEST_F(Unload, ReleasesAFileThatIsStillOpen)
{
	zorva_init();
	fake::proc_file file("zorva/zorva.mem");
	char text[16];

	zorva_exit();

	EXPECT_EQ(fake::live_blocks(), 0u);
	EXPECT_EQ(file.read(text, sizeof(text)), -5);
}
