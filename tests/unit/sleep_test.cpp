// SPDX-License-Identifier: GPL-2.0
/* Sleeps and delays. */
#include "service_fixture.h"
#include "zorva/thread.h"
#include "zorva/time.h"

namespace
{

constexpr s64 tick = 10 * msec;

std::function<void()> body;

void run_body(void *)
{
	body();
}

class SleepTest : public ServiceTest {
protected:
	/* A tracked thread that runs a function, until it blocks or ends. */
	static pid_t thread(std::function<void()> function)
	{
		body = std::move(function);
		const pid_t pid = zorva_thread_create_track(owner, "sleeper", 0,
							    0, run_body,
							    nullptr, "caller.c",
							    7);

		fake::run_others();
		return pid;
	}

	/* A thread that is none of this module, and lets signals through. */
	static pid_t stranger(std::function<void()> function,
			      fake::kind kind = fake::kind::kernel_thread)
	{
		const pid_t pid = fake::start_task(
			"stranger",
			[function = std::move(function)] {
				kernel_sigaction(SIGKILL, nullptr);
				kernel_sigaction(SIGTERM, SIG_KTHREAD);
				kernel_sigaction(10, SIG_KTHREAD);
				function();
			},
			kind);

		fake::run_others();
		return pid;
	}

	/* The calls of a sleep, without those of the task's start. */
	static texts sleep_calls()
	{
		return fake::call_texts(
			{ "init_waitqueue_head", "init_wait_entry",
			  "prepare_to_wait_event", "schedule_timeout",
			  "finish_wait", "flush_signals", "usleep_range",
			  "yield" });
	}

	static texts timeouts()
	{
		return fake::call_texts({ "schedule_timeout" });
	}
};

class MicrosecondSleep : public SleepTest {};

class SecondSleep : public SleepTest {};

class BusyDelay : public SleepTest {};

/* What a sleep in ticks makes of a number of microseconds. */
struct ticks_case {
	u32 usecs;
	u32 ticks;
};

} // namespace

/* Sleeps of less than a tick. */

TEST_F(MicrosecondSleep, IsExactWithHighResolutionTimers)
{
	for (u32 usecs : { 0u, 1u, 9999u }) {
		const s64 start = fake::now();

		fake::forget_calls();
		zorva_time_usleep(usecs);

		EXPECT_EQ(sleep_calls(),
			  texts{ fake::format("usleep_range %u %u", usecs,
					      usecs + 3) });
		EXPECT_EQ(fake::now() - start, usecs * usec);
	}
}

TEST_F(MicrosecondSleep, GoesByTheResolutionBelowOneTick)
{
	fake::set_resolution(9999999);
	zorva_time_usleep(5);
	EXPECT_EQ(sleep_calls(), texts{ "usleep_range 5 8" });

	fake::forget_calls();
	fake::set_resolution(10000000);
	zorva_time_usleep(5);
	EXPECT_EQ(sleep_calls(), texts(5, "yield"));
}

TEST_F(MicrosecondSleep, YieldsUntilTheTimeIsOver)
{
	fake::set_resolution(10000000);
	fake::set_yield_cost(400);

	zorva_time_usleep(2);

	EXPECT_EQ(sleep_calls(), texts(5, "yield"));
	EXPECT_EQ(fake::now(), 2 * usec);
}

TEST_F(MicrosecondSleep, YieldsOnceForNoTime)
{
	fake::set_resolution(10000000);

	zorva_time_usleep(0);

	EXPECT_EQ(sleep_calls(), texts{ "yield" });
}

TEST_F(MicrosecondSleep, YieldsAcrossTheWrapOfTheMicroseconds)
{
	fake::set_resolution(10000000);
	fake::set_uptime(((1ll << 32) - 3) * usec);

	zorva_time_usleep(7);

	EXPECT_EQ(sleep_calls(), texts(7, "yield"));
}

TEST_F(MicrosecondSleep, LetsOthersRunWhileItYields)
{
	needs_arrival_order();
	fake::set_resolution(10000000);
	bool ran = false;
	fake::start_task("other", [&] {
		ran = true;
	});

	zorva_time_usleep(1);

	EXPECT_TRUE(ran);
}

/* Sleeps of ticks. */

TEST_F(MicrosecondSleep, IsRoundedDownToTicks)
{
	const ticks_case cases[] = {
		{ 10000, 1 }, { 19999, 1 },	{ 20000, 2 },
		{ 25000, 2 }, { 1000000, 100 }, { 4294967295, 429496 },
	};

	for (const ticks_case &each : cases) {
		const s64 start = fake::now();

		fake::forget_calls();
		zorva_time_usleep(each.usecs);

		EXPECT_EQ(sleep_calls(),
			  texts({ "init_waitqueue_head &wq_h",
				  "init_wait_entry 0",
				  "prepare_to_wait_event 1",
				  fake::format("schedule_timeout %u",
					       each.ticks),
				  "prepare_to_wait_event 1", "finish_wait" }));
		EXPECT_EQ(fake::now() - start, each.ticks * tick);
	}
}

TEST_F(MicrosecondSleep, IsRefusedSilentlyInInterrupts)
{
	{
		const fake::soft_interrupt interrupt;

		zorva_time_usleep(5);
		zorva_time_usleep(10000);
		zorva_time_sleep(1);
	}
	{
		const fake::hard_interrupt interrupt;

		zorva_time_usleep(5);
		zorva_time_usleep(10000);
		zorva_time_sleep(1);
	}

	EXPECT_EQ(sleep_calls(), texts());
	EXPECT_EQ(fake::now(), 0);
	EXPECT_EQ(fake::log_text(), "");
	EXPECT_EQ(all_reports(), "");
}

TEST_F(MicrosecondSleep, IsInterruptible)
{
	const pid_t pid = stranger([] {
		zorva_time_usleep(50000);
	});

	EXPECT_EQ(fake::blocked_in(pid), "schedule_timeout");
	EXPECT_EQ(zk_task_state(fake::task_of(pid)), 1);

	fake::sleep_for(50 * msec);
	EXPECT_TRUE(fake::has_ended(pid));
}

TEST_F(MicrosecondSleep, SleepsOnAfterASignalThatDoesNotEndTheTask)
{
	s64 woke = 0;
	const pid_t pid = stranger([&] {
		zorva_time_usleep(1000000);
		woke = fake::now();
		EXPECT_FALSE(zk_signal_pending());
	});
	fake::sleep_for(300 * msec);
	fake::forget_calls();

	fake::send_signal(pid, 10);
	fake::run_others();
	EXPECT_EQ(sleep_calls(),
		  texts({ "prepare_to_wait_event 1", "flush_signals 101",
			  "init_wait_entry 0", "prepare_to_wait_event 1",
			  "schedule_timeout 70" }));
	fake::sleep_for(sec);

	EXPECT_EQ(woke, sec);
	EXPECT_EQ(all_reports(), "");
}

TEST_F(MicrosecondSleep, EndsATrackedThreadThatIsTold)
{
	for (int signal : { SIGTERM, SIGKILL }) {
		bool returned = false;
		const pid_t pid = thread([&] {
			zorva_time_usleep(1000000);
			returned = true;
		});

		fake::send_signal(pid, signal);
		fake::run_others();

		EXPECT_FALSE(returned);
		EXPECT_EQ(fake::exit_code_of(pid), 1);
		EXPECT_EQ(fake::now(), 0);
		EXPECT_EQ(last_report(),
			  "3 zorva_thread.cpp zorva_thread_exit_track: "
			  "Thread 'sleeper' exit");
	}
}

TEST_F(MicrosecondSleep, EndsADestroyedThreadAndDiscardsItsSignals)
{
	const pid_t pid = thread([] {
		zorva_time_usleep(1000000);
	});
	fake::forget_calls();

	zorva_thread_destroy_track(owner, pid, "caller.c", 8);
	fake::run_others();

	EXPECT_EQ(fake::exit_code_of(pid), 1);
	EXPECT_EQ(fake::call_texts(
			  { "flush_signals", "kill_pid", "complete_and_exit" }),
		  texts({ "kill_pid 101 9 1", "flush_signals 101",
			  "kill_pid 101 9 1", "complete_and_exit 1" }));
	EXPECT_EQ(tracked_blocks(), 0u);
	reports();
}

TEST_F(MicrosecondSleep, EndsAThreadForTheModulesOwnComponent)
{
	const pid_t pid = thread([] {
		zorva_time_usleep(1000000);
	});
	tear(_pZorvaMallocMemList + 1);

	fake::send_signal(pid, SIGKILL);
	fake::run_others();

	expect_torn_free("ZORVA", "zorva_thread.cpp");
}

TEST_F(MicrosecondSleep, ReturnsFromAThreadThatCannotBeEnded)
{
	for (int signal : { SIGTERM, SIGKILL }) {
		bool returned = false;
		const pid_t pid = stranger([&] {
			zorva_time_usleep(1000000);
			returned = true;
			EXPECT_FALSE(zk_signal_pending());
		});

		fake::send_signal(pid, signal);
		fake::run_others();

		EXPECT_TRUE(returned);
		EXPECT_EQ(fake::now(), 0);
		EXPECT_EQ(last_report().find(
				  "1 zorva_thread.cpp zorva_thread_exit_track: "
				  "cannot find target thread. "
				  "(zorva_util.cpp, "),
			  0u);
	}
	EXPECT_EQ(reports().size(), 2u);
}

TEST_F(MicrosecondSleep, ReturnsSilentlyFromATaskOfUserSpaceThatIsTold)
{
	for (int signal : { SIGTERM, SIGKILL }) {
		bool returned = false;
		const pid_t pid = stranger(
			[&] {
				zorva_time_usleep(1000000);
				returned = true;
				EXPECT_FALSE(zk_signal_pending());
			},
			fake::kind::user_space);

		fake::send_signal(pid, signal);
		fake::run_others();

		EXPECT_TRUE(returned);
		EXPECT_EQ(fake::now(), 0);
	}
	EXPECT_EQ(all_reports(), "");
}

/* What ends a process that has no handler is SIGKILL as well. */
TEST_F(MicrosecondSleep, ReturnsFromAProcessThatSigtermEnds)
{
	bool returned = false;
	const pid_t pid = fake::start_task(
		"shell",
		[&] {
			zorva_time_usleep(1000000);
			returned = true;
		},
		fake::kind::user_space);
	fake::run_others();

	fake::send_signal(pid, SIGTERM);
	fake::run_others();

	EXPECT_TRUE(returned);
	EXPECT_EQ(fake::now(), 0);
}

/* Sleeps of seconds. */

TEST_F(SecondSleep, IsAHundredTicksASecond)
{
	zorva_time_sleep(5);

	EXPECT_EQ(sleep_calls(),
		  texts({ "init_waitqueue_head &wq_h", "init_wait_entry 0",
			  "prepare_to_wait_event 1", "schedule_timeout 500",
			  "prepare_to_wait_event 1", "finish_wait" }));
	EXPECT_EQ(fake::now(), 5 * sec);
}

TEST_F(SecondSleep, OfNoTimeDoesNotSleep)
{
	zorva_time_sleep(0);

	EXPECT_EQ(sleep_calls(),
		  texts({ "init_waitqueue_head &wq_h", "init_wait_entry 0",
			  "prepare_to_wait_event 1", "finish_wait" }));
	EXPECT_EQ(fake::now(), 0);
}

TEST_F(SecondSleep, SleepsOutItsTimeWhateverSignalsCome)
{
	s64 woke = 0;
	const pid_t pid = stranger([&] {
		zorva_time_sleep(5);
		woke = fake::now();
	});

	for (int i = 0; i < 4; ++i) {
		fake::sleep_for(sec + 5 * msec);
		fake::send_signal(pid, 10);
	}
	fake::sleep_for(10 * sec);

	EXPECT_EQ(woke, 5 * sec);
	EXPECT_EQ(timeouts(),
		  texts({ "schedule_timeout 500", "schedule_timeout 400",
			  "schedule_timeout 299", "schedule_timeout 199",
			  "schedule_timeout 98" }));
	EXPECT_EQ(all_reports(), "");
}

TEST_F(SecondSleep, SleepsItsWholeTimeAfterASignalThatCameBefore)
{
	s64 woke = 0;
	stranger([&] {
		fake::send_signal(zk_current_pid(), 10);
		zorva_time_sleep(2);
		woke = fake::now();
	});

	fake::sleep_for(10 * sec);

	EXPECT_EQ(woke, 2 * sec);
	EXPECT_EQ(timeouts(), texts{ "schedule_timeout 200" });
}

TEST_F(SecondSleep, SleepsAcrossTheWrapOfTheCountOfTicks)
{
	fake::set_jiffies(0xFFFFFFFF - 100);
	s64 woke = 0;
	const pid_t pid = stranger([&] {
		zorva_time_sleep(5);
		woke = fake::now();
	});

	fake::sleep_for(500 * msec);
	fake::send_signal(pid, 10);
	fake::sleep_for(2 * sec);
	fake::send_signal(pid, 10);
	fake::sleep_for(10 * sec);

	EXPECT_EQ(woke, 5 * sec);
	EXPECT_EQ(timeouts(),
		  texts({ "schedule_timeout 500", "schedule_timeout 450",
			  "schedule_timeout 250" }));
}

TEST_F(SecondSleep, ReturnsWhenASignalComesAfterItsEnd)
{
	for (unsigned long late : { 0, 1, 1000 }) {
		fake::forget_calls();
		bool returned = false;
		fake::on_call([&](const fake::call &made) {
			if (made.text != "schedule_timeout 100")
				return;
			fake::send_signal(made.by, 10);
			fake::set_jiffies(jiffies + 100 + late);
		});

		stranger([&] {
			zorva_time_sleep(1);
			returned = true;
			EXPECT_FALSE(zk_signal_pending());
		});

		EXPECT_TRUE(returned);
		EXPECT_EQ(timeouts(), texts{ "schedule_timeout 100" });
		fake::on_call(nullptr);
	}
}

TEST_F(SecondSleep, SleepsTheOneTickThatIsLeft)
{
	fake::on_call([](const fake::call &made) {
		if (made.text != "schedule_timeout 100")
			return;
		fake::send_signal(made.by, 10);
		fake::set_jiffies(jiffies + 99);
	});

	stranger([] {
		zorva_time_sleep(1);
	});
	fake::sleep_for(sec);

	EXPECT_EQ(timeouts(),
		  texts({ "schedule_timeout 100", "schedule_timeout 1" }));
}

TEST_F(SecondSleep, EndsATrackedThreadThatIsTold)
{
	for (int signal : { SIGTERM, SIGKILL }) {
		bool returned = false;
		const pid_t pid = thread([&] {
			zorva_time_sleep(5);
			returned = true;
		});

		fake::send_signal(pid, signal);
		fake::run_others();

		EXPECT_FALSE(returned);
		EXPECT_EQ(fake::exit_code_of(pid), 1);
	}
	reports();
}

TEST_F(SecondSleep, TriesToEndATaskOfUserSpaceToo)
{
	for (int signal : { SIGTERM, SIGKILL }) {
		bool returned = false;
		const pid_t pid = stranger(
			[&] {
				zorva_time_sleep(5);
				returned = true;
			},
			fake::kind::user_space);

		fake::send_signal(pid, signal);
		fake::run_others();

		EXPECT_TRUE(returned);
		EXPECT_EQ(fake::now(), 0);
		EXPECT_EQ(last_report().find(
				  "1 zorva_thread.cpp zorva_thread_exit_track: "
				  "cannot find target thread. "
				  "(zorva_util.cpp, "),
			  0u);
	}
	EXPECT_EQ(reports().size(), 2u);
}

TEST_F(SecondSleep, IsComplainedOfBeyondWhatTheKernelTakes)
{
	zorva_time_sleep(21474836);
	EXPECT_EQ(timeouts(), texts{ "schedule_timeout 2147483600" });
	EXPECT_EQ(fake::now(), 21474836 * sec);
	fake::forget_calls();

	zorva_time_sleep(21474837);

	EXPECT_EQ(timeouts(), texts{ "schedule_timeout -2147483596" });
	EXPECT_EQ(fake::now(), 21474836 * sec);
	EXPECT_EQ(fake::log_text(),
		  "\0013schedule_timeout: wrong timeout value 80000034\n"
		  "<stack>\n");
}

TEST_F(SecondSleep, WrapsIn32Bits)
{
	zorva_time_sleep(42949673);

	EXPECT_EQ(timeouts(), texts{ "schedule_timeout 4" });
	EXPECT_EQ(fake::now(), 4 * tick);
}

/* Busy delays. */

TEST_F(BusyDelay, IsSplitIntoMilliseconds)
{
	const struct {
		u32 usecs;
		texts calls;
	} cases[] = {
		{ 0, { "udelay 0" } },
		{ 1, { "udelay 1" } },
		{ 999, { "udelay 999" } },
		{ 1000, { "udelay 1000", "udelay 0" } },
		{ 1001, { "udelay 1000", "udelay 1" } },
		{ 2500, { "udelay 1000", "udelay 1000", "udelay 500" } },
	};

	for (const auto &each : cases) {
		const s64 start = fake::now();

		fake::forget_calls();
		zorva_time_udelay(each.usecs);

		EXPECT_EQ(fake::call_texts({ "udelay" }), each.calls);
		EXPECT_EQ(fake::now() - start, each.usecs * usec);
	}
}

TEST_F(BusyDelay, OfMillisecondsIsMadeOfThem)
{
	zorva_time_mdelay(0);
	EXPECT_EQ(fake::call_texts({ "udelay" }), texts());

	zorva_time_mdelay(3);
	EXPECT_EQ(fake::call_texts({ "udelay" }), texts(3, "udelay 1000"));
	EXPECT_EQ(fake::now(), 3 * msec);
}

TEST_F(BusyDelay, LeavesInterruptsAsTheyAre)
{
	const fake::hard_interrupt interrupt;

	zorva_time_udelay(1500);
	zorva_time_mdelay(1);

	EXPECT_EQ(fake::now(), 2500 * usec);
	for (const fake::call &each : fake::calls())
		EXPECT_TRUE(each.at.in_interrupt);
}
