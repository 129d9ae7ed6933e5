// SPDX-License-Identifier: GPL-2.0
/*
 * What must not come out when another task, or another processor, comes in
 * between any two instructions of a call.
 */
#include "fake/internal.h"
#include "interleave.h"
#include "msgq_fixture.h"
#include "mutex_fixture.h"
#include "timer_fixture.h"
#include "zorva_wait.h"

namespace
{

/* As many accesses to memory have all the calls here at least. */
constexpr unsigned int some_rounds = 3;

/* With other tasks that preempt, and with other processors. */
class Interleaved : public ServiceTest,
		    public ::testing::WithParamInterface<interleave::others> {
protected:
	static void
	anywhere(const std::function<void(const interrupted_call &)> &round)
	{
		EXPECT_GE(interrupt_anywhere(GetParam(), round), some_rounds);
	}

	/* The same for a report, while it holds the registry of its locks. */
	static void anywhere_under(
		const void *registry,
		const std::function<void(const interrupted_call &)> &round)
	{
		interleave::only_while_held(registry);
		anywhere(round);
		interleave::only_while_held(nullptr);
	}

	/* Lets time pass until all tasks have ended or are blocked. */
	static void settle()
	{
		fake::sleep_for(sec);
	}

	static u32 create_wait_module()
	{
		u32 id = 0;

		EXPECT_EQ(zorva_wait_module_create_track(owner, &id, "caller.c",
							 7),
			  ok);
		return id;
	}

	static void wait(u32 id)
	{
		EXPECT_EQ(zorva_wait_event_track(owner, id, "caller.c", 8), ok);
	}

	static void wake(u32 id)
	{
		EXPECT_EQ(zorva_wake_up_track(owner, id, "caller.c", 9), ok);
	}

	static void destroy_wait_module(u32 id)
	{
		EXPECT_EQ(zorva_wait_module_destroy_track(owner, id, "caller.c",
							  10),
			  ok);
	}

	static zorva_sem *make_taken_sem()
	{
		zorva_sem *const sem =
			zorva_sem_create_track(owner, "s", 1, "caller.c", 7);

		zorva_sem_take_track(owner, sem, 0, "caller.c", 11);
		return sem;
	}

	void destroy(zorva_mutex *mutex)
	{
		EXPECT_EQ(zorva_mutex_destroy_track(owner, mutex, "caller.c",
						    9),
			  ok);
		reports();
	}

	/* What a report prints while others come in once. */
	static std::string
	interrupted_report(const interrupted_call &interrupted,
			   int (*dump)(struct seq_file *seq))
	{
		const size_t before = fake::seq_prints().size();
		struct file file = {};
		std::string text;

		single_open_size(&file, nullptr, nullptr, 65536);
		interrupted(dump, zk_seq_of(&file));
		for (size_t i = before; i < fake::seq_prints().size(); ++i)
			text += fake::seq_prints()[i].text;
		single_release(nullptr, &file);
		return text;
	}

	static zorva_mutex *create_mutex()
	{
		return zorva_mutex_create_track(owner, "m", "caller.c", 7);
	}

	static void take(zorva_mutex *mutex)
	{
		EXPECT_EQ(zorva_mutex_take_track(owner, mutex, "caller.c", 11),
			  ok);
	}

	static void give(zorva_mutex *mutex)
	{
		EXPECT_EQ(zorva_mutex_give_track(owner, mutex, "caller.c", 12),
			  ok);
	}
};

INSTANTIATE_TEST_SUITE_P(By, Interleaved,
			 ::testing::Values(interleave::others::tasks,
					   interleave::others::processors),
			 [](const auto &info) {
				 return info.param == interleave::others::tasks
						? "Tasks"
						: "Processors";
			 });

/* What a task waits at without the module's help, until it is opened. */
class gate {
public:
	gate()
	{
		zk_sema_init(&sem_, 0);
	}
	void wait()
	{
		down(&sem_);
	}
	void open()
	{
		up(&sem_);
	}

private:
	struct semaphore sem_;
};

void other_print(u32, s32, u32, const char *, const char *, s32, const char *,
		 ...)
{
}

} // namespace

/* The debug-print function. */

TEST_P(Interleaved, RegistrationOfAFunctionDoesNotReplaceAnother)
{
	unsigned int instructions =
		interrupt_anywhere(GetParam(), [](const interrupted_call
							  &interrupted) {
			sys_dbg_pr_fn_t first = nullptr;
			_sys_dbg_pr_fn = nullptr;
			fake::start_task("other", [&first] {
				zorva_debug_pr_fn_register(other_print);
				first = _sys_dbg_pr_fn;
			});

			interrupted(zorva_debug_pr_fn_register, record_report);
			fake::run_others();

			EXPECT_NE(first, nullptr);
			EXPECT_EQ(_sys_dbg_pr_fn, first);
		});

	EXPECT_GE(instructions, 1u);
	_sys_dbg_pr_fn = record_report;
}

/* Wait modules. */

TEST_P(Interleaved, TwoWaitersAreWokenTogether)
{
	const u32 id = create_wait_module();

	anywhere([id](const interrupted_call &interrupted) {
		const pid_t first = fake::start_task("first", [&] {
			interrupted(zorva_wait_event_track, owner, id,
				    "caller.c", 8);
		});
		const pid_t second = fake::start_task("second", [id] {
			wait(id);
		});
		settle();
		EXPECT_EQ(_zorvaWaitHead->count, 1);

		wake(id);
		settle();

		ASSERT_TRUE(fake::has_ended(first));
		ASSERT_TRUE(fake::has_ended(second));
		EXPECT_EQ(_zorvaWaitHead->count, 0);
	});
	destroy_wait_module(id);
}

TEST_P(Interleaved, AWaitModuleIsDestroyedByWhomAWakeUpHasWoken)
{
	anywhere([](const interrupted_call &interrupted) {
		const u32 id = create_wait_module();
		const pid_t pid = fake::start_task("waiter", [id] {
			wait(id);
			destroy_wait_module(id);
		});
		fake::run_others();
		/* Woken for nothing, it may find its wake-up at any moment. */
		wake_up_process(fake::task_of(pid));

		interrupted(zorva_wake_up_track, owner, id, "caller.c", 9);
		settle();

		ASSERT_TRUE(fake::has_ended(pid));
	});
	EXPECT_EQ(tracked_blocks(), 0u);
}

TEST_P(Interleaved, AWaitModuleIsDestroyedOnce)
{
	anywhere([](const interrupted_call &interrupted) {
		const u32 id = create_wait_module();
		u32 theirs = ok;
		fake::start_task("other", [id, &theirs] {
			theirs = zorva_wait_module_destroy_track(owner, id,
								 "caller.c",
								 10);
		});

		const u32 ours = interrupted(zorva_wait_module_destroy_track,
					     owner, id, "caller.c", 10);
		settle();

		EXPECT_NE(ours == ok, theirs == ok);
		EXPECT_TRUE(ours == failed || theirs == failed);
	});
	EXPECT_EQ(tracked_blocks(), 0u);
	EXPECT_EQ(own_reports(), "");
}

TEST_P(Interleaved, AWaitModuleIsMadeWhileAnotherIsDestroyed)
{
	const u32 oldest = create_wait_module();

	anywhere([](const interrupted_call &interrupted) {
		const u32 id = create_wait_module();
		u32 made = 0;
		fake::start_task("maker", [&made] {
			made = create_wait_module();
		});

		interrupted(zorva_wait_module_destroy_track, owner, id,
			    "caller.c", 10);
		settle();

		EXPECT_NE(_zorva_wait_module_find(made), nullptr);
		destroy_wait_module(made);
	});
	destroy_wait_module(oldest);
}

/* Mutexes. */

TEST_P(Interleaved, AMutexHasOneHolder)
{
	zorva_mutex *const mutex = create_mutex();

	anywhere([mutex](const interrupted_call &interrupted) {
		gate again;
		unsigned int holders = 0;
		unsigned int most = 0;
		const auto hold = [&] {
			most = std::max(most, ++holders);
			fake::sleep_for(msec);
			--holders;
			give(mutex);
		};
		/* The last holder, who takes it again at any moment. */
		const pid_t before = fake::start_task("before", [&] {
			take(mutex);
			give(mutex);
			again.wait();
			take(mutex);
			hold();
		});
		fake::run_others();
		again.open();

		interrupted(zorva_mutex_take_track, owner, mutex, "caller.c",
			    11);
		hold();
		settle();

		ASSERT_TRUE(fake::has_ended(before));
		ASSERT_EQ(most, 1u);
		ASSERT_FALSE(mutex_is_locked(&mutex->mutex));
	});
	destroy(mutex);
}

TEST_P(Interleaved, AMutexIsGivenByItsHolderOnly)
{
	zorva_mutex *const mutex = create_mutex();

	anywhere([mutex](const interrupted_call &interrupted) {
		gate again;
		const pid_t before = fake::start_task("before", [&] {
			take(mutex);
			give(mutex);
			again.wait();
			give(mutex);
		});
		fake::run_others();
		again.open();

		interrupted(zorva_mutex_take_track, owner, mutex, "caller.c",
			    11);
		settle();

		ASSERT_TRUE(fake::has_ended(before));
		ASSERT_TRUE(mutex_is_locked(&mutex->mutex));
		give(mutex);
		ASSERT_FALSE(mutex_is_locked(&mutex->mutex));
	});
	destroy(mutex);
}

/* Reports. */

namespace
{

/* Two components that own a block each; the filter names one of them. */
class FilteredBlocks {
public:
	static constexpr u32 early = 3, late = 40;

	FilteredBlocks()
	{
		for (void *&block : blocks_)
			block = zorva_malloc_track(&block == blocks_ ? early
								     : late,
						   8, "caller.c", 7);
	}
	~FilteredBlocks()
	{
		for (void *block : blocks_)
			zorva_free_track(early, block, "caller.c", 8);
		zorva_mem_write_detail("all");
	}
	static void expect_one_of_them(const std::string &report)
	{
		EXPECT_NE(shows(report, early), shows(report, late)) << report;
	}

private:
	static bool shows(const std::string &report, u32 id)
	{
		return report.find("Component   : " +
				   std::string(_componentName[id]) + "\n") !=
		       std::string::npos;
	}

	void *blocks_[2];
};

std::string whole_report(int (*dump)(struct seq_file *seq))
{
	return run_report(dump, 65536).text;
}

} // namespace

TEST_P(Interleaved, AFilterIsWrittenAsAWhole)
{
	const FilteredBlocks blocks;

	anywhere([](const interrupted_call &interrupted) {
		std::string shown;

		zorva_mem_write_detail(_componentName[FilteredBlocks::late]);
		fake::start_task("reader", [&shown] {
			shown = whole_report(zorva_mem_dump_detail);
		});
		interrupted(zorva_mem_write_detail,
			    _componentName[FilteredBlocks::early]);
		settle();

		FilteredBlocks::expect_one_of_them(shown);
	});
}

TEST_P(Interleaved, AFilterIsReadAsAWhole)
{
	/* It is read first; all of the report would take minutes. */
	constexpr unsigned int instructions = 300;
	const FilteredBlocks blocks;

	if (GetParam() == interleave::others::tasks)
		fake::preempt_tasks();
	else
		fake::use_several_processors();
	for (unsigned int number = 0; number < instructions; number += 25) {
		const interrupted_call interrupted(number, GetParam());

		zorva_mem_write_detail(_componentName[FilteredBlocks::late]);
		fake::start_task("writer", [] {
			zorva_mem_write_detail(
				_componentName[FilteredBlocks::early]);
		});

		FilteredBlocks::expect_one_of_them(
			interrupted_report(interrupted, zorva_mem_dump_detail));
		fake::run_others();
	}
}

TEST_P(Interleaved, AReportShowsNoDepthAboveTheHighest)
{
	zorva_msg_queue *const queue =
		zorva_msg_queue_create_track(owner, "q", 1000, 4, "caller.c",
					     12);

	u32 sent = 0;

	anywhere([queue, &sent](const interrupted_call &interrupted) {
		int depth = 0, highest = 0;
		std::string shown;

		fake::start_task("reader", [&shown] {
			shown = whole_report(zorva_msg_queue_dump);
		});
		interrupted(zorva_msg_queue_send_track, owner, queue,
			    static_cast<const void *>("1234"), 4u, 0u,
			    "caller.c", 13u);
		settle();

		const size_t at = shown.find("Curr Depth");

		ASSERT_NE(at, std::string::npos);
		ASSERT_EQ(sscanf(shown.c_str() + at,
				 "Curr Depth   : %d Max Seen     : %d", &depth,
				 &highest),
			  2);
		EXPECT_LE(depth, highest);
		EXPECT_EQ(zorva_msg_queue_depth(owner, queue),
			  static_cast<s32>(++sent));
	});
	zorva_msg_queue_delete_track(owner, queue);
	reports();
}

/* The reports of locks, which look at what nobody has to wait for. */

namespace
{

using dump_function = int (*)(struct seq_file *seq);

constexpr dump_function mutex_dumps[] = { zorva_mutex_dump,
					  zorva_mutex_dump_detail };

bool says(const std::string &report, const std::string &line)
{
	return report.find(line) != std::string::npos;
}

std::string locker_line(pid_t pid, const std::string &name)
{
	return "Locker    : " + std::to_string(pid) + " (" + name + ")\n";
}

/* What a give does once it has been recorded, and waits for no report. */
void let_go(zorva_mutex *mutex)
{
	mutex->takeCount.counter = 0;
	mutex_unlock(&mutex->mutex);
}

} // namespace

TEST_P(Interleaved, AReportOfAMutexThatChangesHandsIsOfOneMoment)
{
	dump_function dump = nullptr;
	/* A new one has a short history, and so a short report. */
	const auto round = [&](const interrupted_call &interrupted) {
		zorva_mutex *const mutex = create_mutex();
		gate change, end;
		const pid_t first = fake::start_task("first", [&] {
			take(mutex);
			change.wait();
			let_go(mutex);
		});
		fake::run_others();
		const pid_t second = fake::start_task("second", [&] {
			take(mutex);
			end.wait();
			let_go(mutex);
		});
		fake::run_others();
		change.open();

		const std::string report =
			interrupted_report(interrupted, dump);
		end.open();
		settle();

		EXPECT_EQ(says(report, "Status    : Take\n"),
			  says(report, "Locker    : "))
			<< report;
		EXPECT_EQ(says(report, "Locker    : "),
			  says(report, locker_line(first, "first")) ||
				  says(report, locker_line(second, "second")))
			<< report;
		destroy(mutex);
	};

	for (dump_function each : mutex_dumps) {
		dump = each;
		anywhere_under(&_zorvaMutexDbg.lock, round);
	}
}

TEST_P(Interleaved, AReportOfTakenMutexesHasNoneThatWasGivenMeanwhile)
{
	const auto round = [this](const interrupted_call &interrupted) {
		zorva_mutex *const mutex = create_mutex();
		gate end;
		const pid_t holder = fake::start_task("holder", [&] {
			take(mutex);
			end.wait();
			let_go(mutex);
		});
		fake::run_others();
		end.open();

		const std::string report =
			interrupted_report(interrupted, zorva_mutex_dump);
		settle();

		EXPECT_EQ(says(report, "Index     : "),
			  says(report, locker_line(holder, "holder")))
			<< report;
		EXPECT_FALSE(says(report, "Status    : Give")) << report;
		destroy(mutex);
	};

	anywhere_under(&_zorvaMutexDbg.lock, round);
}

TEST_P(Interleaved, AReportShowsAMutexAsTakenByWhomHasTakenIt)
{
	zorva_mutex *const mutex = create_mutex();
	const std::string ours = locker_line(zk_current_pid(), "main");

	for (dump_function dump : mutex_dumps) {
		anywhere([&](const interrupted_call &interrupted) {
			std::string report;

			fake::start_task("before", [mutex] {
				take(mutex);
				give(mutex);
			});
			fake::run_others();
			fake::start_task("reader", [&report, dump] {
				report = whole_report(dump);
			});

			interrupted(zorva_mutex_take_track, owner, mutex,
				    "caller.c", 11);
			settle();

			EXPECT_EQ(says(report, "Status    : Take\n"),
				  says(report, ours))
				<< report;
			EXPECT_EQ(says(report, "Locker    : "),
				  says(report, ours))
				<< report;
			give(mutex);
		});
	}
	destroy(mutex);
}

TEST_P(Interleaved, AReportOfTakenSemaphoresHasNoneThatWasGivenMeanwhile)
{
	const auto round = [](const interrupted_call &interrupted) {
		zorva_sem *const sem = make_taken_sem();
		/* As a give does once it has been recorded. */
		fake::start_task("giver", [sem] {
			up(&sem->semaphore);
		});

		const std::string report =
			interrupted_report(interrupted, zorva_sem_dump);
		settle();

		EXPECT_FALSE(says(report, "Status    : Give")) << report;
		zorva_sem_destroy_track(owner, sem, "caller.c", 9);
		reports();
	};

	anywhere_under(&_zorvaSemDbg.lock, round);
}

TEST_P(Interleaved, AReportOfAllSemaphoresShowsOneAsItWasOrAsItIs)
{
	const auto round = [](const interrupted_call &interrupted) {
		zorva_sem *const sem = make_taken_sem();
		fake::start_task("giver", [sem] {
			zorva_sem_give_track(owner, sem, "caller.c", 12);
		});

		const std::string report =
			interrupted_report(interrupted, zorva_sem_dump_detail);
		settle();

		EXPECT_NE(says(report, "Status    : Take\n"),
			  says(report, "Status    : Give\n"))
			<< report;
		EXPECT_TRUE(says(whole_report(zorva_sem_dump_detail),
				 "Status    : Give\n"));
		zorva_sem_destroy_track(owner, sem, "caller.c", 9);
		reports();
	};

	anywhere_under(&_zorvaSemDbg.lock, round);
}
