// SPDX-License-Identifier: GPL-2.0
/* The four reports of mutexes and semaphores. */
#include "lock_fixture.h"

#include <utility>

namespace
{

constexpr u32 forever = 0xFFFFFFFF;

class LockReportTest : public LockTest {
protected:
	zorva_mutex *mutex(const char *name, u32 compId = owner)
	{
		mutexes.push_back(
			zorva_mutex_create_track(compId, name, "caller.c", 7));
		return mutexes.back();
	}

	zorva_sem *sem(const char *name, u32 count, u32 compId = owner)
	{
		sems.push_back(zorva_sem_create_track(compId, name, count,
						      "caller.c", 7));
		return sems.back();
	}

	static void take(zorva_mutex *mutex, u32 line)
	{
		zorva_mutex_take_track(owner, mutex, "mutex.c", line);
	}

	static void give(zorva_mutex *mutex, u32 line)
	{
		zorva_mutex_give_track(owner, mutex, "mutex.c", line);
	}

	static void take(zorva_sem *sem, u32 timeout, u32 line)
	{
		zorva_sem_take_track(owner, sem, timeout, "sem.c", line);
	}

	static void give(zorva_sem *sem, u32 line)
	{
		zorva_sem_give_track(owner, sem, "sem.c", line);
	}

	/* The first five lines of a report. */
	static std::string header(const std::string &title, u32 time = 0)
	{
		return "\n----------------\nDump all ACTIVE" + title +
		       "(s)\nCurrent Time : " + std::to_string(time) +
		       "\n----------------\n\n";
	}

	/*
	 * Proves that a report ends with the first line behind its header that
	 * does not fit, whatever line that is, and gives its lock back.
	 */
	static void
	ends_where_the_buffer_does(int (*dump)(struct seq_file *seq),
				   const semaphore &lock);

	/* Proves that a report of so many lines lets takes and gives go on. */
	static void copies_and_prints(int (*dump)(struct seq_file *seq),
				      const semaphore &lock, size_t lines);

	/* Proves that it holds its registry when it cannot copy it. */
	static void holds_without_memory(int (*dump)(struct seq_file *seq),
					 const semaphore &lock, size_t lines);

	void TearDown() override
	{
		fake::on_call(nullptr);
		for (zorva_mutex *each : mutexes)
			zorva_mutex_destroy_track(owner, each, "caller.c", 9);
		for (zorva_sem *each : sems)
			zorva_sem_destroy_track(owner, each, "caller.c", 9);
		reports();
		LockTest::TearDown();
	}

	std::vector<zorva_mutex *> mutexes;
	std::vector<zorva_sem *> sems;
};

void LockReportTest::ends_where_the_buffer_does(
	int (*dump)(struct seq_file *seq), const semaphore &lock)
{
	constexpr size_t header_lines = 5;
	const report_run whole = run_report(dump, 1 << 20);
	const size_t lines = whole.prints.size();
	size_t sum = 0;

	ASSERT_GT(lines, header_lines + 1);
	ASSERT_FALSE(whole.overflowed);
	for (size_t line = 0; line < lines; ++line) {
		sum += whole.prints[line].text.size();
		/* A buffer that this line fills, and one that it just fits. */
		for (const size_t size : { sum, sum + 1 }) {
			SCOPED_TRACE(whole.prints[line].text);
			const report_run run = run_report(dump, size);
			size_t expected = size == sum ? line + 1 : line + 2;

			expected = std::max(expected, header_lines + 1);
			expected = std::min(expected, lines);
			EXPECT_EQ(run.result, 0);
			EXPECT_EQ(run.prints.size(), expected);
			EXPECT_EQ(zk_sema_count(&lock), 1u);
		}
	}
}

void LockReportTest::copies_and_prints(int (*dump)(struct seq_file *seq),
				       const semaphore &lock, size_t lines)
{
	fake::forget_calls();

	const report_run run = run_report(dump, 4096);

	/* Once to count, and once to copy. */
	EXPECT_EQ(fake::call_texts({ "down", "up" }),
		  texts({ "down", "up", "down", "up" }));
	EXPECT_EQ(run.prints.size(), lines);
	for (const fake::seq_print &each : run.prints)
		EXPECT_FALSE(each.at.has_taken(&lock)) << each.text;
}

void LockReportTest::holds_without_memory(int (*dump)(struct seq_file *seq),
					  const semaphore &lock, size_t lines)
{
	const report_run copied = run_report(dump, 4096);

	const report_run run = run_report_without_copy(dump, 4096);

	EXPECT_EQ(run.text, copied.text);
	ASSERT_EQ(run.prints.size(), lines);
	/* From the first line behind the header to the totals. */
	for (size_t i = 0; i < lines; ++i)
		EXPECT_EQ(run.prints[i].at.has_taken(&lock),
			  i >= 5 && i < lines - 1)
			<< run.prints[i].text;
	EXPECT_EQ(zk_sema_count(&lock), 1u);
}

class MutexReport : public LockReportTest {
protected:
	/* Only what was used is shown. */
	static void use(zorva_mutex *mutex)
	{
		take(mutex, 10);
		give(mutex, 20);
	}
};

class SemaphoreReport : public LockReportTest {};

constexpr char rule[] = "---------------------------------\n";
constexpr char mutex_title[] = " & LOCKED mutex";
constexpr char mutex_detail_title[] = " mutex";
constexpr char sem_title[] = " & LOCKED semaphore";
constexpr char sem_detail_title[] = " semaphore";

} // namespace

/* Mutexes. */

TEST_F(MutexReport, IsEmptyBeforeTheFirstMutex)
{
	EXPECT_EQ(file_text("zorva.mutex"), "");
	EXPECT_EQ(file_text("zorva.mutex.detail"), "");
	EXPECT_TRUE(fake::coarse_readings().empty());
}

TEST_F(MutexReport, CountsAMutexThatWasNeverUsedInTheDetailedTotalsOnly)
{
	mutex("unused");

	EXPECT_EQ(file_text("zorva.mutex"),
		  header(mutex_title) + "\nNumber of Mutex: 0\n\n");
	EXPECT_EQ(file_text("zorva.mutex.detail"),
		  header(mutex_detail_title) +
			  "\nTotal number of Mutex: 1 (active 0)\n\n");
}

TEST_F(MutexReport, StaysWithItsHeaderWhenAllMutexesAreDestroyed)
{
	zorva_mutex_destroy_track(owner, mutex("m"), "caller.c", 9);
	mutexes.clear();

	EXPECT_EQ(file_text("zorva.mutex"),
		  header(mutex_title) + "\nNumber of Mutex: 0\n\n");
	EXPECT_EQ(file_text("zorva.mutex.detail"),
		  header(mutex_detail_title) +
			  "\nTotal number of Mutex: 0 (active 0)\n\n");
}

TEST_F(MutexReport, ShowsAMutexThatWasTakenAndGivenInDetailOnly)
{
	zorva_mutex *const used = mutex("used");
	fake::set_uptime(3 * sec);
	take(used, 10);
	fake::set_uptime(4 * sec);
	give(used, 20);
	fake::set_uptime(5 * sec);

	EXPECT_EQ(file_text("zorva.mutex"),
		  header(mutex_title, 5) + "\nNumber of Mutex: 0\n\n");
	EXPECT_EQ(file_text("zorva.mutex.detail"),
		  header(mutex_detail_title, 5) +
			  "Index     : 1\n"
			  "Name      : used\n"
			  "Component : PORT (11)\n"
			  "Status    : Give\n" +
			  rule +
			  "  [0000000000000004] Give @mutex.c, 20\n"
			  "  [0000000000000003] Take @mutex.c, 10\n"
			  "\n"
			  "\nTotal number of Mutex: 1 (active 1)\n\n");
}

TEST_F(MutexReport, ShowsHeldMutexesNewestFirst)
{
	zorva_mutex *const first = mutex("first");
	zorva_mutex *const second = mutex("second", other);
	zorva_mutex *const third = mutex("third");
	mutex("unused");
	take(first, 10);
	fake::rename_self("taker");
	take(second, 11);
	take(third, 12);
	give(third, 22);
	const std::string held_second =
		std::string("Index     : 2\n"
			    "Name      : second\n"
			    "Component : VLAN (18)\n"
			    "Status    : Take\n"
			    "Locker    : 100 (taker)\n") +
		rule +
		"  [0000000000000000] Take @mutex.c, 11\n"
		"\n";
	const std::string held_first =
		std::string("Index     : 1\n"
			    "Name      : first\n"
			    "Component : PORT (11)\n"
			    "Status    : Take\n"
			    "Locker    : 100 (main)\n") +
		rule +
		"  [0000000000000000] Take @mutex.c, 10\n"
		"\n";
	const std::string given_third =
		std::string("Index     : 3\n"
			    "Name      : third\n"
			    "Component : PORT (11)\n"
			    "Status    : Give\n") +
		rule +
		"  [0000000000000000] Give @mutex.c, 22\n"
		"  [0000000000000000] Take @mutex.c, 12\n"
		"\n";

	EXPECT_EQ(file_text("zorva.mutex"), header(mutex_title) + held_second +
						    held_first +
						    "\nNumber of Mutex: 2\n\n");
	EXPECT_EQ(file_text("zorva.mutex.detail"),
		  header(mutex_detail_title) + given_third + held_second +
			  held_first +
			  "\nTotal number of Mutex: 4 (active 3)\n\n");
	give(first, 30);
	give(second, 31);
}

TEST_F(MutexReport, ShowsThe8NewestEntriesAndNumbersAsSigned)
{
	zorva_mutex *const used = mutex("used");
	for (u32 line = 1; line <= 8; ++line)
		give(used, line);
	used->history[1].action = 2;
	give(used, 0x80000000);
	used->index = 0xFFFFFFFF;

	const std::string text = file_text("zorva.mutex.detail");

	std::string entries = "  [0000000000000000] Give @mutex.c, "
			      "-2147483648\n";
	for (u32 line = 8; line >= 2; --line)
		entries +=
			fake::format("  [0000000000000000] Give @mutex.c, %u\n",
				     line);
	EXPECT_EQ(text, header(mutex_detail_title) +
				"Index     : -1\n"
				"Name      : used\n"
				"Component : PORT (11)\n"
				"Status    : Give\n" +
				rule + entries +
				"\n"
				"\nTotal number of Mutex: 1 (active 1)\n\n");
}

TEST_F(MutexReport, PrintsAnyActionButATakeAsAGive)
{
	zorva_mutex *const used = mutex("used");
	zorva_mutex_history_record(used, 7, "mutex.c", 1);

	EXPECT_NE(file_text("zorva.mutex.detail").find("] Give @mutex.c, 1\n"),
		  std::string::npos);
}

TEST_F(MutexReport, PrintsTimesAsSixteenDigitsWithoutASign)
{
	zorva_mutex *const used = mutex("used");
	fake::set_uptime(4294967295 * sec);
	give(used, 1);

	EXPECT_EQ(file_text("zorva.mutex.detail"),
		  header(mutex_detail_title, 4294967295) +
			  "Index     : 1\n"
			  "Name      : used\n"
			  "Component : PORT (11)\n"
			  "Status    : Give\n" +
			  rule +
			  "  [0000004294967295] Give @mutex.c, 1\n"
			  "\n"
			  "\nTotal number of Mutex: 1 (active 1)\n\n");
}

TEST_F(MutexReport, EndsAHistoryWithTheFirstEmptySlotOrLine0)
{
	zorva_mutex *const used = mutex("used");
	for (u32 line : { 1, 2, 0, 4, 5 })
		give(used, line);

	EXPECT_EQ(file_text("zorva.mutex.detail"),
		  header(mutex_detail_title) +
			  "Index     : 1\n"
			  "Name      : used\n"
			  "Component : PORT (11)\n"
			  "Status    : Give\n" +
			  rule +
			  "  [0000000000000000] Give @mutex.c, 5\n"
			  "  [0000000000000000] Give @mutex.c, 4\n"
			  "\n"
			  "\nTotal number of Mutex: 1 (active 1)\n\n");
}

TEST_F(MutexReport, PrintsNoEntryWhenTheNewestHasLine0)
{
	zorva_mutex *const used = mutex("used");
	give(used, 1);
	give(used, 0);

	EXPECT_EQ(file_text("zorva.mutex.detail"),
		  header(mutex_detail_title) +
			  "Index     : 1\n"
			  "Name      : used\n"
			  "Component : PORT (11)\n"
			  "Status    : Give\n" +
			  rule +
			  "\n"
			  "\nTotal number of Mutex: 1 (active 1)\n\n");
}

TEST_F(MutexReport, ShowsABlockedTakerAsTheNewestEntryOfAHeldMutex)
{
	zorva_mutex *const held = mutex("held");
	take(held, 10);
	in_task("waiter", [&] {
		take(held, 11);
		give(held, 21);
	});

	EXPECT_EQ(file_text("zorva.mutex"),
		  header(mutex_title) +
			  "Index     : 1\n"
			  "Name      : held\n"
			  "Component : PORT (11)\n"
			  "Status    : Take\n"
			  "Locker    : 100 (main)\n" +
			  rule +
			  "  [0000000000000000] Take @mutex.c, 11\n"
			  "  [0000000000000000] Take @mutex.c, 10\n"
			  "\n"
			  "\nNumber of Mutex: 1\n\n");
	give(held, 20);
	fake::run_others();
}

TEST_F(MutexReport, TestsAMutexAfreshForItsStatus)
{
	zorva_mutex *const held = mutex("held");
	take(held, 10);
	int tests = 0;
	fake::on_call([&](const fake::call &made) {
		if (made.text == "mutex_is_locked" && ++tests == 3)
			mutex_unlock(&held->mutex);
	});

	/* Locked when it is counted and chosen, and not when it is copied. */
	EXPECT_EQ(file_text("zorva.mutex"),
		  header(mutex_title) +
			  "Index     : 1\n"
			  "Name      : held\n"
			  "Component : PORT (11)\n"
			  "Status    : Give\n"
			  "Locker    : 100 (main)\n" +
			  rule +
			  "  [0000000000000000] Take @mutex.c, 10\n"
			  "\n"
			  "\nNumber of Mutex: 1\n\n");
	EXPECT_EQ(tests, 3);
}

TEST_F(MutexReport, TestsAMutexOnceMoreForTheLockerInDetail)
{
	zorva_mutex *const held = mutex("held");
	take(held, 10);
	int tests = 0;
	fake::on_call([&](const fake::call &made) {
		if (made.text == "mutex_is_locked" && ++tests == 2)
			mutex_unlock(&held->mutex);
	});

	EXPECT_EQ(file_text("zorva.mutex.detail"),
		  header(mutex_detail_title) +
			  "Index     : 1\n"
			  "Name      : held\n"
			  "Component : PORT (11)\n"
			  "Status    : Take\n" +
			  rule +
			  "  [0000000000000000] Take @mutex.c, 10\n"
			  "\n"
			  "\nTotal number of Mutex: 1 (active 1)\n\n");
	EXPECT_EQ(tests, 2);
}

TEST_F(MutexReport, ReadsTheLockerBeforeTheStatus)
{
	zorva_mutex *const held = mutex("held");
	take(held, 10);
	int tests_to_status = 0;
	fake::on_call([&](const fake::call &made) {
		if (made.text == "mutex_is_locked" && --tests_to_status == 0)
			held->lockerPid.counter = 4711;
	});

	for (const auto &[file, tests] :
	     { std::pair("zorva.mutex", 3),
	       std::pair("zorva.mutex.detail", 1) }) {
		tests_to_status = tests;

		EXPECT_NE(file_text(file).find("Locker    : 100 (main)\n"),
			  std::string::npos);
		EXPECT_EQ(held->lockerPid.counter, 4711);
		held->lockerPid.counter = 100;
	}
	give(held, 20);
}

TEST_F(MutexReport, IsCopiedWithTheRegistryHeldAndPrintedWithoutIt)
{
	take(mutex("held"), 10);

	copies_and_prints(zorva_mutex_dump, _zorvaMutexDbg.lock, 14);
	copies_and_prints(zorva_mutex_dump_detail, _zorvaMutexDbg.lock, 14);

	give(mutexes[0], 20);
}

TEST_F(MutexReport, WithoutMemoryForACopyIsTheSameWithTheRegistryHeld)
{
	take(mutex("held"), 10);

	holds_without_memory(zorva_mutex_dump, _zorvaMutexDbg.lock, 14);
	holds_without_memory(zorva_mutex_dump_detail, _zorvaMutexDbg.lock, 14);

	give(mutexes[0], 20);
}

TEST_F(MutexReport, WithoutMemoryForACopyEndsWhereTheBufferDoes)
{
	take(mutex("first"), 10);
	take(mutex("second"), 11);

	for (auto dump : { zorva_mutex_dump, zorva_mutex_dump_detail }) {
		const report_run whole = run_report(dump, 4096);
		const size_t size = whole.text.find("Name");

		const report_run run = run_report_without_copy(dump, size);

		EXPECT_EQ(run.prints.size(), 6u);
		EXPECT_EQ(run.text, whole.text.substr(0, size));
		EXPECT_EQ(zk_sema_count(&_zorvaMutexDbg.lock), 1u);
	}

	give(mutexes[0], 20);
	give(mutexes[1], 21);
}

TEST_F(MutexReport, CountsAllAsTheyWereWhenTheyWereCopied)
{
	take(mutex("held"), 10);
	mutex("another");
	fake::on_seq_print([&](const fake::seq_print &made) {
		if (made.text.starts_with("Index"))
			mutex("late");
	});

	const report_run run = run_report(zorva_mutex_dump_detail, 4096);

	fake::on_seq_print(nullptr);
	EXPECT_EQ(mutexes.size(), 3u);
	EXPECT_TRUE(run.text.ends_with(
		"\nTotal number of Mutex: 2 (active 1)\n\n"));
	give(mutexes[0], 20);
}

TEST_F(MutexReport, GivesWayAfterTheMemoryForItsCopyAndAfterEach)
{
	use(mutex("first"));
	use(mutex("second"));
	const size_t before = fake::rests();

	run_report(zorva_mutex_dump_detail, 4096);

	EXPECT_EQ(fake::rests(), before + 1 + 2);
}

/* There is room for 64 that come between the count and the copy. */
TEST_F(MutexReport, IsPrintedWithTheRegistryHeldWhenManyComeThreeTimes)
{
	unsigned int tries = 0;
	use(mutex("first"));
	fake::before_kvmalloc([&] {
		for (int i = 0; i < 65; ++i)
			use(mutex("new"));
		++tries;
	});

	const report_run run = run_report(zorva_mutex_dump_detail, 1 << 20);

	EXPECT_EQ(tries, 3u);
	ASSERT_GT(run.prints.size(), 196u);
	for (size_t i = 5; i < run.prints.size() - 1; ++i)
		EXPECT_TRUE(run.prints[i].at.has_taken(&_zorvaMutexDbg.lock))
			<< run.prints[i].text;
	EXPECT_NE(run.text.find(": 196 (active 196)"), std::string::npos);
	EXPECT_EQ(zk_sema_count(&_zorvaMutexDbg.lock), 1u);
}

TEST_F(MutexReport, IsCopiedInTheNextTryWhenManyComeOnce)
{
	unsigned int tries = 0;
	use(mutex("first"));
	fake::before_kvmalloc([&] {
		for (int i = 0; i < 65 && !tries; ++i)
			use(mutex("new"));
		++tries;
	});

	const report_run run = run_report(zorva_mutex_dump_detail, 1 << 20);

	EXPECT_EQ(tries, 2u);
	ASSERT_GT(run.prints.size(), 66u);
	for (const fake::seq_print &each : run.prints)
		EXPECT_FALSE(each.at.has_taken(&_zorvaMutexDbg.lock));
	EXPECT_NE(run.text.find(": 66 (active 66)"), std::string::npos);
}

TEST_F(MutexReport, ReadsTheTimeBeforeItTakesTheRegistry)
{
	take(mutex("held"), 10);

	for (auto dump : { zorva_mutex_dump, zorva_mutex_dump_detail }) {
		fake::set_uptime(fake::now() + sec);
		const size_t read = fake::coarse_readings().size();

		run_report(dump, 4096);

		ASSERT_EQ(fake::coarse_readings().size(), read + 1);
		EXPECT_FALSE(fake::coarse_readings()[read].has_taken(
			&_zorvaMutexDbg.lock));
	}
	give(mutexes[0], 20);
}

TEST_F(MutexReport, MakesTakesAndGivesWaitUntilItIsDone)
{
	zorva_mutex *const used = mutex("used");
	pid_t taker = 0;
	give(used, 1);
	fake::on_call([&](const fake::call &made) {
		if (made.text != "mutex_is_locked" || taker)
			return;
		taker = in_task("taker", [&] {
			take(used, 2);
			give(used, 3);
		});
		EXPECT_EQ(fake::blocked_in(taker), "down");
	});

	const std::string text = file_text("zorva.mutex.detail");
	fake::run_others();

	EXPECT_EQ(text.find("mutex.c, 2"), std::string::npos);
	EXPECT_TRUE(fake::has_ended(taker));
	EXPECT_EQ(history(used).size(), 3u);
}

TEST_F(MutexReport, EndsWhereTheBufferDoes)
{
	zorva_mutex *const first = mutex("first");
	zorva_mutex *const second = mutex("second");
	take(first, 10);
	give(second, 20);
	take(second, 11);

	ends_where_the_buffer_does(zorva_mutex_dump, _zorvaMutexDbg.lock);
	ends_where_the_buffer_does(zorva_mutex_dump_detail,
				   _zorvaMutexDbg.lock);

	give(first, 30);
	give(second, 31);
}

TEST_F(MutexReport, IsRunAgainWhenItOutgrowsItsFirstBuffer)
{
	for (int i = 0; i < 100; ++i) {
		zorva_mutex *const used = mutex("used");

		for (u32 line = 1; line <= 8; ++line)
			give(used, line);
	}

	const std::string text = file_text("zorva.mutex.detail");

	EXPECT_GT(text.size(), 32768u);
	size_t shown = 0;
	for (size_t at = 0;
	     (at = text.find("Index     : ", at)) != std::string::npos; ++at)
		++shown;
	EXPECT_EQ(shown, 100u);
	EXPECT_EQ(text.substr(text.size() - 42),
		  "\nTotal number of Mutex: 100 (active 100)\n\n");
}

TEST_F(MutexReport, ChangesNothing)
{
	zorva_mutex *const held = mutex("held");
	take(held, 10);
	const std::string before = bytes_of(held);

	EXPECT_EQ(file_text("zorva.mutex"), file_text("zorva.mutex"));

	EXPECT_EQ(bytes_of(held), before);
	give(held, 20);
}

/* Semaphores. */

TEST_F(SemaphoreReport, IsEmptyBeforeTheFirstSemaphore)
{
	mutex("m");

	EXPECT_EQ(file_text("zorva.sem"), "");
	EXPECT_EQ(file_text("zorva.sem.detail"), "");
}

TEST_F(SemaphoreReport, DoesNotShowASemaphoreThatWasNeverUsedThoughItIsTaken)
{
	sem("unused", 0);

	EXPECT_EQ(file_text("zorva.sem"),
		  header(sem_title) + "\nNumber of Semaphore: 0\n\n");
	EXPECT_EQ(file_text("zorva.sem.detail"),
		  header(sem_detail_title) +
			  "\nTotal number of Semaphore: 1 (active 0)\n\n");
}

TEST_F(SemaphoreReport, ShowsSemaphoresWithoutAFreeUnitNewestFirst)
{
	zorva_sem *const first = sem("first", 1);
	zorva_sem *const second = sem("second", 2, other);
	zorva_sem *const third = sem("third", 0);
	fake::set_uptime(8 * sec);
	take(first, 250, 10);
	take(second, forever, 11);
	take(third, 0, 12);
	give(second, 21);
	take(second, forever, 13);
	const std::string taken_first = std::string("Index     : 1\n"
						    "Name      : first\n"
						    "Component : PORT (11)\n"
						    "Status    : Take\n") +
					rule +
					"  [0000000000000008] Take @sem.c, 10 "
					"(250 msec)\n"
					"\n";
	const std::string free_second = std::string("Index     : 2\n"
						    "Name      : second\n"
						    "Component : VLAN (18)\n"
						    "Status    : Give\n") +
					rule +
					"  [0000000000000008] Take @sem.c, 13 "
					"(forever)\n"
					"  [0000000000000008] Give @sem.c, 21\n"
					"  [0000000000000008] Take @sem.c, 11 "
					"(forever)\n"
					"\n";
	const std::string taken_third = std::string("Index     : 3\n"
						    "Name      : third\n"
						    "Component : PORT (11)\n"
						    "Status    : Take\n") +
					rule +
					"  [0000000000000008] Take @sem.c, 12 "
					"(0 msec)\n"
					"\n";

	EXPECT_EQ(file_text("zorva.sem"),
		  header(sem_title, 8) + taken_third + taken_first +
			  "\nNumber of Semaphore: 2\n\n");
	EXPECT_EQ(file_text("zorva.sem.detail"),
		  header(sem_detail_title, 8) + taken_third + free_second +
			  taken_first +
			  "\nTotal number of Semaphore: 3 (active 3)\n\n");
}

TEST_F(SemaphoreReport, CutsATimeLimitOfEightDigitsOrMore)
{
	zorva_sem *const used = sem("used", 9);
	for (u32 timeout : { 1u, 9999999u, 10000000u, 4294967294u })
		take(used, timeout, timeout);

	EXPECT_EQ(file_text("zorva.sem.detail"),
		  header(sem_detail_title) +
			  "Index     : 1\n"
			  "Name      : used\n"
			  "Component : PORT (11)\n"
			  "Status    : Give\n" +
			  rule +
			  "  [0000000000000000] Take @sem.c, -2 "
			  "(4294967294 ms\n"
			  "  [0000000000000000] Take @sem.c, 10000000 "
			  "(10000000 msec\n"
			  "  [0000000000000000] Take @sem.c, 9999999 "
			  "(9999999 msec)\n"
			  "  [0000000000000000] Take @sem.c, 1 (1 msec)\n"
			  "\n"
			  "\nTotal number of Semaphore: 1 (active 1)\n\n");
}

TEST_F(SemaphoreReport, ShowsNoTimeLimitForAGiveWhateverItHolds)
{
	zorva_sem *const used = sem("used", 1);
	zorva_sem_history_record(used, forever, 1, "sem.c", 1);
	zorva_sem_history_record(used, 250, 2, "sem.c", 2);

	EXPECT_EQ(file_text("zorva.sem.detail"),
		  header(sem_detail_title) +
			  "Index     : 1\n"
			  "Name      : used\n"
			  "Component : PORT (11)\n"
			  "Status    : Give\n" +
			  rule +
			  "  [0000000000000000] Give @sem.c, 2\n"
			  "  [0000000000000000] Give @sem.c, 1\n"
			  "\n"
			  "\nTotal number of Semaphore: 1 (active 1)\n\n");
}

TEST_F(SemaphoreReport, EndsAHistoryWithTheFirstEmptySlotOrLine0)
{
	zorva_sem *const used = sem("used", 1);
	for (u32 line : { 1, 2, 0, 4 })
		give(used, line);

	EXPECT_EQ(file_text("zorva.sem.detail"),
		  header(sem_detail_title) +
			  "Index     : 1\n"
			  "Name      : used\n"
			  "Component : PORT (11)\n"
			  "Status    : Give\n" +
			  rule +
			  "  [0000000000000000] Give @sem.c, 4\n"
			  "\n"
			  "\nTotal number of Semaphore: 1 (active 1)\n\n");
}

TEST_F(SemaphoreReport, ShowsThe8NewestEntries)
{
	zorva_sem *const used = sem("used", 0);
	for (u32 line = 1; line <= 9; ++line)
		give(used, line);

	std::string entries;
	for (u32 line = 9; line >= 2; --line)
		entries +=
			fake::format("  [0000000000000000] Give @sem.c, %u\n",
				     line);
	EXPECT_EQ(file_text("zorva.sem.detail"),
		  header(sem_detail_title) +
			  "Index     : 1\n"
			  "Name      : used\n"
			  "Component : PORT (11)\n"
			  "Status    : Give\n" +
			  rule + entries +
			  "\n"
			  "\nTotal number of Semaphore: 1 (active 1)\n\n");
}

TEST_F(SemaphoreReport, TestsASemaphoreAfreshForItsStatus)
{
	zorva_sem *const used = sem("used", 1);
	take(used, 0, 10);
	int tests = 0;
	fake::on_call([&](const fake::call &made) {
		if (made.text == "sema_count" && ++tests == 3)
			up(&used->semaphore);
	});

	EXPECT_EQ(file_text("zorva.sem"),
		  header(sem_title) +
			  "Index     : 1\n"
			  "Name      : used\n"
			  "Component : PORT (11)\n"
			  "Status    : Give\n" +
			  rule +
			  "  [0000000000000000] Take @sem.c, 10 (0 msec)\n"
			  "\n"
			  "\nNumber of Semaphore: 1\n\n");
	EXPECT_EQ(tests, 3);
}

TEST_F(SemaphoreReport, IsCopiedWithTheRegistryHeldAndPrintedWithoutIt)
{
	take(sem("used", 1), 0, 10);

	copies_and_prints(zorva_sem_dump, _zorvaSemDbg.lock, 13);
	copies_and_prints(zorva_sem_dump_detail, _zorvaSemDbg.lock, 13);
}

TEST_F(SemaphoreReport, WithoutMemoryForACopyIsTheSameWithTheRegistryHeld)
{
	take(sem("used", 1), 0, 10);

	holds_without_memory(zorva_sem_dump, _zorvaSemDbg.lock, 13);
	holds_without_memory(zorva_sem_dump_detail, _zorvaSemDbg.lock, 13);
}

TEST_F(SemaphoreReport, EndsWhereTheBufferDoes)
{
	zorva_sem *const first = sem("first", 1);
	zorva_sem *const second = sem("second", 0);
	take(first, 100, 10);
	take(second, 0, 11);
	give(second, 21);
	take(second, forever, 12);

	ends_where_the_buffer_does(zorva_sem_dump, _zorvaSemDbg.lock);
	ends_where_the_buffer_does(zorva_sem_dump_detail, _zorvaSemDbg.lock);
}
