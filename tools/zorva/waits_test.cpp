// SPDX-License-Identifier: GPL-2.0
#include "print.h"
#include "read.h"
#include "waits.h"
#include "waits_view.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace zorva
{
namespace
{

constexpr char mark[] = "zorva-snapshot 1 m\n";

/* A snapshot, put together by what the reports and the stacks say. */
class Waits : public testing::Test {
protected:
	void mutex(const std::string &name, int locker, const std::string &who,
		   const std::vector<std::string> &calls)
	{
		mutexes_ +=
			fmt::format("Index     : {}\nName      : {}\n"
				    "Component : FDB (17)\nStatus    : {}\n",
				    ++mutex_count_, name,
				    locker ? "Take" : "Give");
		if (locker)
			mutexes_ += fmt::format("Locker    : {} ({})\n", locker,
						who);
		mutexes_ += "---------------------------------\n" +
			    history(calls) + "\n";
	}

	void semaphore(const std::string &name, bool taken,
		       const std::vector<std::string> &calls)
	{
		semaphores_ +=
			fmt::format("Index     : {}\nName      : {}\n"
				    "Component : FDB (17)\nStatus    : {}\n"
				    "---------------------------------\n{}\n",
				    ++semaphore_count_, name,
				    taken ? "Take" : "Give", history(calls));
	}

	/* A thread of the module; without frames it has no stack. */
	void thread(int pid, const std::string &name,
		    const std::vector<std::string> &frames)
	{
		threads_ += fmt::
			format("Component : FDB\nName      : {}\nPID       : {}\n"
			       "State     : 2\nPriority  : 128\n\n",
			       name, pid);
		task(pid, name, frames);
	}

	void task(int pid, const std::string &name,
		  const std::vector<std::string> &frames)
	{
		tasks_ += fmt::
			format("==> m /proc/{0}/task/{0}/stat\n{0} ({1}) D 2 0 0\n",
			       pid, name);
		if (frames.empty())
			return;
		tasks_ += fmt::format("==> m /proc/{0}/task/{0}/stack\n", pid);
		for (const std::string &frame : frames)
			tasks_ += "[<0>] " + frame + '\n';
	}

	/* Who waits for a mutex, called from such a place. */
	void taker(int pid, const std::string &name, const std::string &frame)
	{
		thread(pid, name,
		       { "zorva_mutex_take_track+0x1dc/0x4e4 [zorva]", frame,
			 "_zorva_thread_wrapper+0x11c/0x1d8 [zorva]",
			 "kthread+0x134/0x13c" });
	}

	const waits &find()
	{
		const std::string text =
			mark +
			report("mutex.detail", "mutex(s)", "Mutex", mutexes_,
			       mutex_count_) +
			report("sem.detail", "semaphore(s)", "Semaphore",
			       semaphores_, semaphore_count_) +
			"==> m /proc/zorva/zorva.thread\n" + threads_ + tasks_ +
			"zorva-snapshot end m - -\n";

		reading_ = read_text("test", text);
		EXPECT_EQ(reading_.errors, 0u);
		found_ = find_waits(reading_.last(), lines_);
		return found_;
	}

	const actor &of(int pid) const
	{
		for (const actor &one : found_.actors)
			if (one.pid == pid)
				return one;
		ADD_FAILURE() << "no thread " << pid;
		return found_.actors.front();
	}

	/* "mutex 'a' at x.c:1", and "?" when it is not proven. */
	std::string wait_of(int pid) const
	{
		const actor &one = of(pid);

		if (!one.lock)
			return "nothing";
		return fmt::format("{} at {}{}",
				   lock_text(found_.locks[*one.lock]),
				   call_text(one), one.sure.proven ? "" : "?");
	}

	/* The lines of a module, a function with one call at offset 0x10. */
	void line(const std::string &module, const std::string &function,
		  const std::string &file, uint32_t line_of_call)
	{
		module_lines *its = nullptr;

		for (module_lines &one : lines_.modules)
			if (one.name == module)
				its = &one;
		if (!its) {
			lines_.modules.emplace_back();
			its = &lines_.modules.back();
			its->name = module;
			its->call_size = 8;
		}
		its->files.push_back(file);
		its->functions.push_back(
			{ function,
			  0x100,
			  { { 0, uint32_t(its->files.size() - 1), 1 },
			    { 8, uint32_t(its->files.size() - 1),
			      line_of_call } } });
		sort_functions(*its);
	}

	code_lines lines_;
	waits found_;
	reading reading_;

private:
	static std::string history(const std::vector<std::string> &calls)
	{
		std::string text;

		for (const std::string &call : calls)
			text += "  [000000000000000" + call + '\n';
		return text;
	}

	static std::string report(const char *name, const char *what,
				  const char *total, const std::string &locks,
				  int count)
	{
		return fmt::format("==> m /proc/zorva/zorva.{}\n\n----------------\n"
				   "Dump all ACTIVE {}\nCurrent Time : 9\n"
				   "----------------\n\n{}\n"
				   "Total number of {}: {} (active {})\n\n",
				   name, what, locks, total, count, count);
	}

	std::string mutexes_, semaphores_, threads_, tasks_;
	int mutex_count_ = 0, semaphore_count_ = 0;
};

constexpr char in_a[] = "fa+0x10/0x100 [ma]";
constexpr char in_b[] = "fb+0x10/0x100 [mb]";
constexpr char in_c[] = "fc+0x10/0x100 [mc]";

TEST_F(Waits, FindsNothingWhereNobodyWaits)
{
	mutex("a", 0, "", { "5] Give @a.c, 2", "5] Take @a.c, 1" });
	thread(1, "init", { "do_wait+0x1/0x2" });
	find();

	EXPECT_EQ(waits_text(found_, false), "Nobody waits for anybody.\n");
	EXPECT_TRUE(found_.deadlocks.empty());
}

TEST_F(Waits, ProvesADeadlockOfTwoByCounting)
{
	mutex("a", 10, "ta", { "6] Take @b.c, 22", "5] Take @a.c, 11" });
	mutex("b", 20, "tb", { "7] Take @a.c, 12", "5] Take @b.c, 21" });
	taker(10, "ta", in_a);
	taker(20, "tb", in_b);
	find();

	EXPECT_EQ(wait_of(10), "mutex 'b' at a.c:12");
	EXPECT_EQ(wait_of(20), "mutex 'a' at b.c:22");
	ASSERT_EQ(found_.deadlocks.size(), 1u);
	EXPECT_TRUE(found_.deadlocks[0].proven);
	EXPECT_EQ(found_.deadlocks[0].since, 7u);
	EXPECT_EQ(waits_text(found_, false),
		  "DEADLOCK: 2 threads wait for each other, for 2 s\n"
		  "  ta (10) waits for mutex 'b'\n"
		  "    at a.c:12, for 2 s\n"
		  "    held by tb (20), taken at b.c:21 4 s ago\n"
		  "  tb (20) waits for mutex 'a'\n"
		  "    at b.c:22, for 3 s\n"
		  "    held by ta (10), taken at a.c:11 4 s ago\n\n");
}

TEST_F(Waits, DoesNotProveWhatAnotherMutexMayBe)
{
	mutex("a", 10, "ta", { "6] Take @b.c, 22", "5] Take @a.c, 11" });
	mutex("b", 20, "tb", { "6] Take @a.c, 12", "5] Take @b.c, 21" });
	mutex("c", 30, "tc", { "6] Take @c.c, 32", "5] Take @c.c, 31" });
	taker(10, "ta", "fa+0x10/0x100 [a]");
	taker(20, "tb", "fb+0x10/0x100 [b]");
	taker(40, "td", "fd+0x10/0x100 [c]");
	find();

	EXPECT_EQ(wait_of(10), "mutex 'b' at a.c:12?");
	EXPECT_NE(of(10).sure.why.find("its stack is in a"), std::string::npos);
	ASSERT_EQ(found_.deadlocks.size(), 1u);
	EXPECT_FALSE(found_.deadlocks[0].proven);
	EXPECT_NE(waits_text(found_, false).find("PROBABLY A DEADLOCK"),
		  std::string::npos);
}

TEST_F(Waits, ProvesByTheLineOfTheCall)
{
	mutex("a", 10, "ta", { "6] Take @b.c, 22", "5] Take @a.c, 11" });
	mutex("b", 20, "tb", { "6] Take @a.c, 12", "5] Take @b.c, 21" });
	mutex("c", 30, "tc", { "6] Take @c.c, 32", "5] Take @c.c, 31" });
	taker(10, "ta", in_a);
	taker(20, "tb", in_b);
	taker(40, "td", in_c);
	line("ma", "fa", "a.c", 12);
	line("mb", "fb", "b.c", 22);
	line("mc", "fc", "c.c", 32);
	find();

	EXPECT_EQ(wait_of(10), "mutex 'b' at a.c:12");
	EXPECT_EQ(wait_of(20), "mutex 'a' at b.c:22");
	EXPECT_EQ(wait_of(40), "mutex 'c' at c.c:32");
	ASSERT_EQ(found_.deadlocks.size(), 1u);
	EXPECT_TRUE(found_.deadlocks[0].proven);
}

TEST_F(Waits, DoesNotBelieveLinesOfAnotherBuild)
{
	mutex("a", 10, "ta", { "6] Take @b.c, 22", "5] Take @a.c, 11" });
	taker(20, "tb", "fb+0x10/0x104 [mb]");
	line("mb", "fb", "b.c", 22);
	find();

	ASSERT_EQ(found_.notes.size(), 1u);
	EXPECT_EQ(found_.notes[0],
		  "mb: the lines are of another build than the module that runs");
}

/* Eight calls may have driven its take out of the history. */
TEST_F(Waits, SaysThatAFullHistoryHidesTakes)
{
	mutex("a", 10, "ta",
	      { "6] Take @x.c, 8", "6] Take @x.c, 7", "6] Take @x.c, 6",
		"6] Take @x.c, 5", "6] Take @x.c, 4", "6] Take @x.c, 3",
		"6] Take @x.c, 2", "5] Take @a.c, 11" });
	mutex("b", 20, "tb", { "6] Take @c.c, 32", "5] Take @b.c, 21" });
	taker(30, "tc", in_c);
	line("mc", "fc", "c.c", 32);
	find();

	EXPECT_EQ(wait_of(30), "mutex 'b' at c.c:32?");
}

TEST_F(Waits, FindsACircleOfThree)
{
	mutex("a", 10, "ta", { "6] Take @c.c, 32", "5] Take @a.c, 11" });
	mutex("b", 20, "tb", { "6] Take @a.c, 12", "5] Take @b.c, 21" });
	mutex("c", 30, "tc", { "6] Take @b.c, 22", "5] Take @c.c, 31" });
	taker(10, "ta", in_a);
	taker(20, "tb", in_b);
	taker(30, "tc", in_c);
	line("ma", "fa", "a.c", 12);
	line("mb", "fb", "b.c", 22);
	line("mc", "fc", "c.c", 32);
	find();

	ASSERT_EQ(found_.deadlocks.size(), 1u);
	EXPECT_EQ(found_.deadlocks[0].steps.size(), 3u);
	EXPECT_TRUE(found_.deadlocks[0].proven);
}

TEST_F(Waits, GuessesWithoutStacksAndSaysSo)
{
	mutex("a", 10, "ta", { "6] Take @x.c, 22", "5] Take @x.c, 11" });
	mutex("b", 20, "tb", { "7] Take @x.c, 12", "5] Take @x.c, 21" });
	thread(10, "ta", {});
	thread(20, "tb", {});
	find();

	EXPECT_EQ(wait_of(10), "mutex 'b' at x.c:12?");
	EXPECT_EQ(wait_of(20), "mutex 'a' at x.c:22?");
	ASSERT_EQ(found_.deadlocks.size(), 1u);
	EXPECT_FALSE(found_.deadlocks[0].proven);
	EXPECT_NE(waits_text(found_, false).find("there is no stack of it"),
		  std::string::npos);
}

TEST_F(Waits, KnowsWhoReadsAFullQueue)
{
	mutex("a", 10, "ta", { "6] Take @r.c, 33", "5] Take @a.c, 11" });
	semaphore("msgq-q-tx", true, { "6] Take @s.c, 5 (forever)" });
	semaphore("msgq-q-rx", false,
		  { "5] Give @s.c, 5", "5] Take @r.c, 30 (forever)" });
	taker(20, "reader", "read+0x10/0x100 [mr]");
	thread(30, "sender",
	       { "down+0x44/0x64", "zorva_sem_take_track+0x3e4/0x5c0 [zorva]",
		 "zorva_msg_queue_send_track+0x64/0x250 [zorva]",
		 "send+0x10/0x100 [ms]" });
	thread(10, "ta", { "schedule_timeout+0x1/0x2", "work+0x1/0x2 [ma]" });
	line("mr", "read", "r.c", 33);
	lines_.modules[0].functions[0].rows.push_back({ 0x20, 0, 30 });
	line("ms", "send", "s.c", 5);
	find();

	EXPECT_EQ(wait_of(30), "queue 'q' at s.c:5");
	EXPECT_EQ(of(30).kind, wait_kind::room);
	EXPECT_EQ(wait_of(20), "mutex 'a' at r.c:33");
	EXPECT_NE(waits_text(found_, false).find("it is read by reader (20)"),
		  std::string::npos);
}

/* Two threads that took one semaphore each, and want the other's. */
TEST_F(Waits, SuspectsADeadlockOfSemaphores)
{
	semaphore("a", true,
		  { "6] Take @b.c, 22 (forever)",
		    "5] Take @a.c, 11 (forever)" });
	semaphore("b", true,
		  { "6] Take @a.c, 12 (forever)",
		    "5] Take @b.c, 21 (forever)" });
	for (const auto &[pid, frame] :
	     { std::pair(10, in_a), std::pair(20, in_b) })
		thread(pid, "t",
		       { "down+0x44/0x64",
			 "zorva_sem_take_track+0x3e4/0x5c0 [zorva]", frame });
	line("ma", "fa", "a.c", 12);
	line("mb", "fb", "b.c", 22);
	lines_.modules[0].functions[0].rows.push_back({ 0x20, 0, 11 });
	lines_.modules[1].functions[0].rows.push_back({ 0x20, 0, 21 });
	find();

	ASSERT_EQ(found_.deadlocks.size(), 1u);
	EXPECT_FALSE(found_.deadlocks[0].proven);
}

TEST_F(Waits, DoesNotTakeAWaitForWorkForADeadlock)
{
	semaphore("work", true,
		  { "6] Take @a.c, 12 (forever)", "5] Give @b.c, 1",
		    "4] Take @a.c, 12 (forever)" });
	thread(10, "ta",
	       { "down+0x44/0x64", "zorva_sem_take_track+0x3e4/0x5c0 [zorva]",
		 in_a });
	line("ma", "fa", "a.c", 12);
	find();

	EXPECT_TRUE(found_.deadlocks.empty());
	EXPECT_EQ(waits_text(found_, false),
		  "Nobody waits for anybody.\n"
		  "1 thread waits for work: nobody stands in the way (--all shows them)\n");
}

/* A take whose time is up has no unit. */
TEST_F(Waits, TakesALoopWithATimeLimitForAWaitForWork)
{
	semaphore("look", true,
		  { "9] Take @a.c, 12 (500 msec)",
		    "8] Take @a.c, 12 (500 msec)",
		    "8] Take @a.c, 12 (500 msec)" });
	thread(10, "ta",
	       { "down_timeout+0x4c/0x6c",
		 "zorva_sem_take_track+0x1e0/0x5c0 [zorva]", in_a });
	find();

	EXPECT_TRUE(waits_for_work(found_, of(10)));
}

TEST_F(Waits, TellsATimedTakeFromOneWithoutLimit)
{
	semaphore("a", true, { "8] Take @a.c, 11 (forever)" });
	semaphore("b", true, { "8] Take @a.c, 12 (30000 msec)" });
	thread(10, "ta",
	       { "down_timeout+0x4c/0x6c",
		 "zorva_sem_take_track+0x1e0/0x5c0 [zorva]", in_a });
	find();

	EXPECT_EQ(wait_of(10), "semaphore 'b' at a.c:12");
	EXPECT_EQ(of(10).timeout_ms, 30000u);
}

TEST_F(Waits, KnowsAHolderThatHasEnded)
{
	mutex("a", 77, "gone", { "6] Take @b.c, 22", "5] Take @a.c, 11" });
	task(1, "init", { "do_wait+0x1/0x2" });
	taker(20, "tb", in_b);
	find();

	EXPECT_FALSE(of(77).alive);
	EXPECT_NE(waits_text(found_, false)
			  .find("held by gone (77), taken at a.c:11 4 s ago, which has ended"),
		  std::string::npos);
}

/* The registry's own lock: nobody's mutex is waited for there. */
TEST_F(Waits, DoesNotTakeTheRegistryForAMutex)
{
	mutex("a", 10, "ta", { "6] Take @b.c, 22", "5] Take @a.c, 11" });
	thread(20, "tb",
	       { "down+0x44/0x64", "zorva_mutex_take_track+0x3e4/0x5c0 [zorva]",
		 in_b });
	find();

	EXPECT_EQ(of(20).kind, wait_kind::none);
}

TEST_F(Waits, EscapesHostileNames)
{
	const std::string evil = "x\"];\x1b[31m&lt;\\\xff";

	mutex("m" + evil, 10, "t" + evil,
	      { "6] Take @b\".c, 22", "5] Take @\x1b.c, 11" });
	taker(20, "w" + evil, in_b);
	find();

	const std::string text = waits_text(found_, true);
	const std::string dot = waits_dot(found_);

	EXPECT_EQ(text.find('\x1b'), std::string::npos);
	EXPECT_EQ(dot.find('\x1b'), std::string::npos);
	EXPECT_NE(text.find("\\x1b[31m"), std::string::npos);
	EXPECT_NE(dot.find("x\\\"];\\\\x1b[31m&amp;lt;\\\\\\\\\\\\xff"),
		  std::string::npos)
		<< dot;
}

/* Far more than any firmware has; all of it at one line. */
TEST_F(Waits, EndsInTimeWithThousandsOfThreads)
{
	std::vector<std::string> calls;

	for (int i = 0; i < 2000; ++i) {
		mutex(fmt::format("m{}", i), 10000 + i, "h",
		      { "6] Take @b.c, 22", "5] Take @a.c, 11" });
		taker(20000 + i, "w", in_b);
	}
	find();

	EXPECT_EQ(found_.actors.size(), 4000u);
	EXPECT_FALSE(of(20000).sure.proven);
}

} // namespace
} // namespace zorva
