// SPDX-License-Identifier: GPL-2.0
/* Tracked semaphores in the hands of tasks that are told to end. */
#include "sem_fixture.h"
#include "zorva/thread.h"

namespace
{

/* What the tracked thread of a test does. */
std::function<void()> body;

void run_body(void *)
{
	body();
}

/* Takes and gives of a task that was told to end. */
class KilledTask : public TrackedSemaphore {
protected:
	/* A tracked thread that runs a function, until it blocks or ends. */
	pid_t thread(std::function<void()> function)
	{
		body = std::move(function);
		const pid_t pid = zorva_thread_create_track(owner, "victim", 0,
							    0, run_body,
							    nullptr, "caller.c",
							    7);

		fake::run_others();
		new_reports();
		return pid;
	}

	void kill(pid_t pid)
	{
		EXPECT_EQ(zorva_thread_destroy_track(owner, pid, "caller.c", 9),
			  ok);
		new_reports();
	}
};

} // namespace

TEST_F(KilledTask, WaitsOnAndThenPutsItsUnitBackAndEnds)
{
	zorva_sem *const sem = create(0);
	bool returned = false;
	const pid_t pid = thread([&] {
		take(sem, forever, 11);
		returned = true;
	});

	kill(pid);
	fake::run_others();
	EXPECT_EQ(fake::blocked_in(pid), "down");
	fake::forget_calls();
	give(sem, 21);
	fake::run_others();

	EXPECT_EQ(fake::exit_code_of(pid), 1);
	EXPECT_FALSE(returned);
	EXPECT_EQ(count(sem), 1u);
	EXPECT_EQ(new_reports(), "3 zorva_thread.cpp zorva_thread_exit_track: "
				 "Thread 'victim' exit\n");
	const texts entries = history(sem);
	ASSERT_EQ(entries.size(), 3u);
	EXPECT_EQ(entries[0].find("1 zorva_sem.cpp:"), 0u);
	EXPECT_EQ(entries[1], "1 caller.c:21 at 0 (0)");
	EXPECT_EQ(entries[2], "0 caller.c:11 at 0 (4294967295)");
	EXPECT_EQ(fake::call_texts({ "flush_signals", "complete_and_exit" }),
		  texts({ "flush_signals " + std::to_string(pid),
			  "complete_and_exit 1" }));
	destroy(sem);
}

TEST_F(KilledTask, GivesAUnitBackThoughItHadNoneAfterATimeout)
{
	zorva_sem *const sem = create(0);
	const pid_t pid = thread([&] {
		take(sem, 100);
	});

	kill(pid);
	fake::sleep_for(90 * msec);
	EXPECT_FALSE(fake::has_ended(pid));
	fake::sleep_for(20 * msec);

	EXPECT_EQ(fake::exit_code_of(pid), 1);
	EXPECT_EQ(count(sem), 1u);
	new_reports();
	destroy(sem);
}

TEST_F(KilledTask, GivesAUnitBackThoughItHadNoneWithTimeout0)
{
	zorva_sem *const sem = create(0);
	const pid_t pid = thread([&] {
		fake::sleep_for(1 * msec);
		take(sem, 0);
	});

	kill(pid);
	fake::sleep_for(2 * msec);

	EXPECT_EQ(fake::exit_code_of(pid), 1);
	EXPECT_EQ(count(sem), 1u);
	new_reports();
	destroy(sem);
}

TEST_F(KilledTask, GivesTwoUnitsAndEnds)
{
	zorva_sem *const sem = create(0);
	bool returned = false;
	const pid_t pid = thread([&] {
		fake::sleep_for(1 * msec);
		give(sem, 21);
		returned = true;
	});

	kill(pid);
	fake::forget_calls();
	fake::sleep_for(2 * msec);

	EXPECT_EQ(fake::exit_code_of(pid), 1);
	EXPECT_FALSE(returned);
	EXPECT_EQ(count(sem), 2u);
	const texts entries = history(sem);
	ASSERT_EQ(entries.size(), 2u);
	EXPECT_EQ(entries[0].find("1 zorva_sem.cpp:"), 0u);
	EXPECT_EQ(entries[1], "1 caller.c:21 at 0 (0)");
	EXPECT_EQ(fake::call_texts({ "flush_signals" }).size(), 1u);
	EXPECT_EQ(new_reports(), "3 zorva_thread.cpp zorva_thread_exit_track: "
				 "Thread 'victim' exit\n");
	destroy(sem);
}

/* Whose name its record is freed in shows when its guard is torn. */
TEST_F(KilledTask, EndsInTheNameOfTheCallersComponent)
{
	zorva_sem *const sem = create(1);

	for (bool takes : { true, false }) {
		const pid_t pid = thread([&] {
			fake::sleep_for(1 * msec);
			tear(_pZorvaMallocMemList + 1);
			if (takes)
				zorva_sem_take_track(other, sem, 0, "caller.c",
						     10);
			else
				zorva_sem_give_track(other, sem, "caller.c",
						     20);
		});

		kill(pid);
		fake::sleep_for(2 * msec);

		expect_torn_free("VLAN", "zorva_thread.cpp");
	}
	EXPECT_EQ(fake::log_text(), "<stack>\n<stack>\n");
	destroy(sem);
}

TEST_F(KilledTask, TakesOnWhenItsSignalIsNotFatal)
{
	zorva_sem *const sem = create(1);
	const pid_t pid = thread([&] {
		fake::sleep_for(1 * msec);
		EXPECT_TRUE(zk_signal_pending());
		EXPECT_EQ(take(sem, 0), ok);
		EXPECT_EQ(give(sem), ok);
		EXPECT_TRUE(zk_signal_pending());
	});

	fake::send_signal(pid, SIGTERM);
	fake::sleep_for(2 * msec);

	EXPECT_EQ(fake::exit_code_of(pid), 0);
	EXPECT_EQ(count(sem), 1u);
	new_reports();
	destroy(sem);
}

TEST_F(KilledTask, ThatIsNotTrackedGivesAUnitBackAndSaysSo)
{
	zorva_sem *const sem = create(1);
	u32 result = 0;
	new_reports();
	in_task("stranger", [&] {
		kernel_sigaction(SIGKILL, nullptr);
		fake::send_signal(zk_current_pid(), SIGKILL);
		result = take(sem, 0);
		EXPECT_FALSE(zk_signal_pending());
	});

	EXPECT_EQ(result, not_found);
	EXPECT_EQ(count(sem), 1u);
	ASSERT_EQ(reports().size(), 3u);
	EXPECT_EQ(reports()[1].text.find(
			  "cannot find target thread. (zorva_sem.cpp, "),
		  0u);
	EXPECT_EQ(last_report(),
		  "1 zorva_sem.cpp zorva_sem_take_track: error 0x7000000e");
	destroy(sem);
}

TEST_F(KilledTask, ThatIsNotTrackedGivesTwoUnitsAndGoesOn)
{
	zorva_sem *const sem = create(0);
	u32 result = 1;
	new_reports();
	in_task("stranger", [&] {
		kernel_sigaction(SIGKILL, nullptr);
		fake::send_signal(zk_current_pid(), SIGKILL);
		result = zorva_sem_give_track(owner, sem, "caller.c", 20);
	});

	EXPECT_EQ(result, ok);
	EXPECT_EQ(count(sem), 2u);
	ASSERT_EQ(reports().size(), 2u);
	EXPECT_EQ(last_report().find("1 zorva_thread.cpp "
				     "zorva_thread_exit_track: "
				     "cannot find target thread. "
				     "(zorva_sem.cpp, "),
		  0u);
	destroy(sem);
}
