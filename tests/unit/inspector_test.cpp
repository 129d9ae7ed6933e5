// SPDX-License-Identifier: GPL-2.0
/*
 * What the inspector reads back of the reports is what the services have: at
 * random states, from each report's file, and from the log of a console that
 * shows all of them.
 */
#include "lock_fixture.h"
#include "timer_fixture.h"
#include "zorva_atomic.h"
#include "zorva_mem.h"
#include "zorva_msgq.h"
#include "zorva_thread.h"

/* The names of clocks are macros to the C library, and none to the module. */
#include "parser.h"

#include <random>

namespace
{

const std::vector<std::string> entries = {
	"zorva.mutex", "zorva.mutex.detail", "zorva.sem",    "zorva.sem.detail",
	"zorva.mem",   "zorva.mem.detail",   "zorva.thread", "zorva.timer",
	"zorva.hrt",   "zorva.msgq",
};

/* A thread, a queue, and what the test knows of them. */
struct made_thread {
	pid_t pid;
	std::string name;
	u32 component;
	s32 priority;
};

struct made_queue {
	zorva_msg_queue *queue;
	std::string name;
	u32 component, depth, size;
	s32 filled, most;
};

semaphore gate;

void wait_at_gate(void *)
{
	down(&gate);
}

std::string component_name(u32 id)
{
	return _componentName[id];
}

/* Whether every record has the place of a line of its own. */
template <class Records>
bool have_places(const Records &records)
{
	u32 before = 0;

	for (const auto &one : records) {
		if (one.at.line <= before)
			return false;
		before = one.at.line;
	}
	return true;
}

class Inspector : public LockTest {
protected:
	void SetUp() override
	{
		LockTest::SetUp();
		needs_arrival_order();
		zorva_init();
		zk_sema_init(&gate, 0);
	}

	u32 random(u32 below)
	{
		return std::uniform_int_distribution<u32>(0, below - 1)(dice_);
	}

	u32 random_component()
	{
		return 1 + random(56);
	}

	std::string random_file()
	{
		static const char *const files[] = {
			"a.c",
			"fw_port.c",
			"a file, 7.c",
			"exactly14chars",
			"a_name_that_is_much_too_long_for_it.cpp",
			"odd) (1, 2.c",
		};

		return files[random(6)];
	}

	/* One call of some service. */
	void step();
	void compare(const zorva::model &read);
	void compare_memory(const zorva::model &read);
	template <class Record>
	void compare_locks(const zorva::model &read,
			   const lock_registry<Record> &registry, bool mutex);
	template <class Record>
	void compare_lock(const zorva::lock &read, const Record *record);
	template <class Kind>
	void compare_timers(const zorva::timer_report &);

	void TearDown() override
	{
		for (void *block : blocks_)
			zorva_free_track(zorva_mem_component(block), block, "t",
					 1);
		for (const made_queue &one : queues_)
			zorva_msg_queue_delete_track(one.component, one.queue);
		for (zorva_mutex *one : mutexes_)
			zorva_mutex_destroy_track(owner, one, "t", 1);
		for (zorva_sem *one : sems_)
			zorva_sem_destroy_track(owner, one, "t", 1);
		for (size_t i = 0; i < threads_.size(); ++i)
			up(&gate);
		fake::run_others();
		/* Timers are never deleted. */
		for (const auto *block = _pZorvaMallocMemList; block;
		     block = block->next)
			leave(block + 1);
		reports();
		LockTest::TearDown();
	}

	static u32 zorva_mem_component(void *block)
	{
		return (static_cast<zorva_mem_block_hdr_t *>(block) - 1)->compId;
	}

	std::mt19937 dice_;
	std::vector<void *> blocks_;
	std::vector<zorva_mutex *> mutexes_;
	std::vector<zorva_sem *> sems_;
	std::vector<made_thread> threads_;
	std::vector<made_queue> queues_;
	u32 tick_timers_ = 0;
	u32 hr_timers_ = 0;
};

void Inspector::step()
{
	const u32 line = 1 + random(100000);
	const std::string file = random_file();
	const std::string name = "n" + std::to_string(random(1000));

	switch (random(12)) {
	case 0:
	case 1:
		blocks_.push_back(zorva_malloc_track(random_component(),
						     1 + random(3000),
						     file.c_str(), line));
		break;
	case 2:
		if (blocks_.empty())
			break;
		zorva_free_track(zorva_mem_component(blocks_.back()),
				 blocks_.back(), "t", 1);
		blocks_.pop_back();
		break;
	case 3:
		mutexes_.push_back(
			zorva_mutex_create_track(random_component(),
						 random(2) ? name.c_str()
							   : nullptr,
						 file.c_str(), line));
		break;
	case 4:
		sems_.push_back(zorva_sem_create_track(random_component(),
						       random(2) ? name.c_str()
								 : nullptr,
						       random(3), file.c_str(),
						       line));
		break;
	case 5:
		if (!mutexes_.empty())
			zorva_mutex_take_track(owner,
					       mutexes_[random(mutexes_.size())],
					       file.c_str(), line);
		break;
	case 6:
		if (!mutexes_.empty())
			zorva_mutex_give_track(owner,
					       mutexes_[random(mutexes_.size())],
					       file.c_str(), line);
		break;
	case 7:
		if (!sems_.empty()) {
			static const u32 limits[] = { 0, 10, 250, 12345678 };
			zorva_sem *one = sems_[random(sems_.size())];
			const u32 limit = zk_sema_count(&one->semaphore)
						  ? limits[random(4)]
						  : random(20);

			zorva_sem_take_track(owner, one, limit, file.c_str(),
					     line);
		}
		break;
	case 8:
		if (!sems_.empty())
			zorva_sem_give_track(owner, sems_[random(sems_.size())],
					     file.c_str(), line);
		break;
	case 9: {
		const u32 component = random_component();
		const s32 priority = static_cast<s32>(random(256));

		if (threads_.size() < 6)
			threads_.push_back(
				{ static_cast<pid_t>(
					  zorva_thread_create_track(component,
								    name.c_str(),
								    0, priority,
								    wait_at_gate,
								    &gate,
								    file.c_str(),
								    line)),
				  name, component, priority });
		break;
	}
	case 10:
		if (queues_.size() < 5 || random(3)) {
			made_queue one = { nullptr,
					   name,
					   random_component(),
					   1 + random(9),
					   1 + random(64),
					   0,
					   0 };

			if (queues_.size() >= 5) {
				made_queue &old = queues_[random(5)];
				const std::string message(old.size, 'x');

				if (old.filled == static_cast<s32>(old.depth))
					break;
				zorva_msg_queue_send_track(owner, old.queue,
							   message.data(),
							   old.size, 0,
							   file.c_str(), line);
				old.most = std::max(old.most, ++old.filled);
				break;
			}
			one.queue = zorva_msg_queue_create_track(one.component,
								 name.c_str(),
								 one.depth,
								 one.size,
								 file.c_str(),
								 line);
			queues_.push_back(one);
		}
		break;
	case 11: {
		static const u32 data[] = { 0, 5, 99999, 123456, 4294967295 };
		static const u32 periods[] = { 1, 50, 12345678, 99999999 };
		const bool tick_kind = random(2);
		u32 id = 0;

		if (tick_kind)
			zorva_timer_init_track(random_component(), &id,
					       note_expiry, data[random(5)],
					       file.c_str(), line);
		else
			zorva_hrt_timer_init_track(random_component(), &id,
						   note_expiry, data[random(5)],
						   file.c_str(), line);
		++(tick_kind ? tick_timers_ : hr_timers_);
		if (random(2))
			(tick_kind
				 ? zorva_timer_start_track
				 : zorva_hrt_timer_start_track)(owner, &id,
								periods[random(
									4)],
								file.c_str(),
								line);
		break;
	}
	}
	fake::advance(static_cast<s64>(random(3)) * sec);
	new_reports();
}

void Inspector::compare_memory(const zorva::model &read)
{
	std::vector<const zorva_mem_block_hdr_t *> list[57];
	size_t next = 0, component = 0, row = 0;

	for (const auto *block = _pZorvaMallocMemList; block;
	     block = block->next)
		list[block->compId].push_back(block);

	for (u32 id = 0; id < 57; ++id) {
		const zorva_mem_usage_t &usage = _zorvaMallocMemUsage[id];

		if (!usage.currUsage)
			continue;
		ASSERT_LT(row, read.memory.components.size());
		for (const zorva::component_usage &one :
		     { read.memory.components[row],
		       read.blocks.components.at(row) }) {
			EXPECT_EQ(one.name, component_name(id));
			EXPECT_EQ(one.current, usage.currUsage);
			EXPECT_EQ(one.max, usage.maxUsage);
			EXPECT_EQ(one.allocs, usage.allocCount);
			EXPECT_EQ(one.frees, usage.freeCount);
			EXPECT_EQ(one.delta,
				  usage.allocCount - usage.freeCount);
		}
		++row;
		for (const auto *block : list[id]) {
			ASSERT_LT(next, read.blocks.blocks.size());

			const zorva::block &one = read.blocks.blocks[next++];

			EXPECT_EQ(one.component, component);
			EXPECT_EQ(one.address,
				  reinterpret_cast<uintptr_t>(block + 1));
			EXPECT_EQ(one.size, block->size);
			EXPECT_EQ(one.time, block->allocTime);
			EXPECT_EQ(read.blocks.sites[one.site].file,
				  block->file);
			EXPECT_EQ(read.blocks.sites[one.site].line,
				  block->line);
		}
		++component;
	}
	EXPECT_EQ(next, read.blocks.blocks.size());
	EXPECT_EQ(row, read.memory.components.size());
	EXPECT_EQ(row, read.blocks.components.size());
	EXPECT_TRUE(read.blocks.torn.empty());
	EXPECT_TRUE(have_places(read.memory.components));
}

void compare_extra(const zorva::lock &read, const zorva_mutex *mutex)
{
	const bool held =
		mutex_is_locked(const_cast<struct mutex *>(&mutex->mutex));

	EXPECT_EQ(read.taken, held);
	if (held) {
		EXPECT_EQ(read.locker_pid, atomic_read(mutex->lockerPid));
		EXPECT_EQ(read.locker_name, mutex->lockerName);
	} else {
		EXPECT_FALSE(read.locker_pid);
	}
}

void compare_extra(const zorva::lock &read, const zorva_sem *sem)
{
	EXPECT_EQ(read.taken, zk_sema_count(&sem->semaphore) == 0);
	EXPECT_FALSE(read.locker_pid);
}

void compare_limit(const zorva::lock_call &read, const mutex_entry &)
{
	EXPECT_FALSE(read.forever);
	EXPECT_FALSE(read.timeout_ms);
}

void compare_limit(const zorva::lock_call &read, const sem_entry &entry)
{
	if (entry.action == action_give) {
		EXPECT_FALSE(read.timeout_ms);
		EXPECT_FALSE(read.forever);
	} else if (entry.timeout == 0xFFFFFFFF) {
		EXPECT_TRUE(read.forever);
	} else {
		EXPECT_EQ(read.timeout_ms, entry.timeout);
		EXPECT_EQ(read.timeout_cut, entry.timeout >= 10000000);
	}
}

template <class Record>
void Inspector::compare_lock(const zorva::lock &read, const Record *record)
{
	size_t count = 0;

	EXPECT_EQ(read.index, record->index);
	EXPECT_EQ(read.name, record->name);
	EXPECT_EQ(read.component_id, record->component);
	EXPECT_EQ(read.component, component_name(record->component));
	compare_extra(read, record);
	for (; count < history_slots; ++count) {
		const auto &entry =
			record->history[(record->historyHead - count) & 7];

		if (!entry.line)
			break;
		ASSERT_LT(count, read.history.size());

		const zorva::lock_call &call = read.history[count];

		EXPECT_EQ(call.time, entry.time);
		EXPECT_EQ(call.give, entry.action == action_give);
		EXPECT_EQ(call.from.file, entry.file);
		EXPECT_EQ(call.from.line, entry.line);
		compare_limit(call, entry);
	}
	EXPECT_EQ(read.history.size(), count);
}

template <class Record>
void Inspector::compare_locks(const zorva::model &read,
			      const lock_registry<Record> &registry, bool mutex)
{
	const zorva::lock_report &plain = read.locks[mutex ? 0 : 2];
	const zorva::lock_report &detail = read.locks[mutex ? 1 : 3];
	size_t all = 0, held = 0;

	if (!registry.initialised) {
		EXPECT_TRUE(detail.locks.empty());
		return;
	}
	for (const Record *record : listed(registry)) {
		if (!record->active)
			continue;
		ASSERT_LT(all, detail.locks.size());
		compare_lock(detail.locks[all], record);
		if (detail.locks[all++].taken) {
			ASSERT_LT(held, plain.locks.size());
			compare_lock(plain.locks[held++], record);
		}
	}
	EXPECT_EQ(all, detail.locks.size());
	EXPECT_EQ(held, plain.locks.size());
	EXPECT_EQ(detail.total, registry.count);
	EXPECT_EQ(detail.shown, all);
	EXPECT_EQ(plain.shown, held);
	EXPECT_FALSE(detail.state.cut);
	EXPECT_TRUE(have_places(detail.locks));
}

template <class Kind>
void Inspector::compare_timers(const zorva::timer_report &read)
{
	size_t count = 0;

	if (Kind::list())
		for (auto *node = Kind::list()->pFirst; node;
		     node = node->pNext) {
			const auto *timer =
				static_cast<typename Kind::record *>(
					node->pData);

			if (!timer)
				continue;
			ASSERT_LT(count, read.timers.size());

			const zorva::timer &one = read.timers[count++];

			EXPECT_EQ(one.component,
				  component_name(timer->component));
			EXPECT_EQ(one.id, timer->timerId);
			EXPECT_EQ(one.data, timer->data);
			EXPECT_EQ(one.period_ms, timer->period);
			EXPECT_EQ(one.running, timer->running != 0);
			EXPECT_EQ(one.started_by.has_value(),
				  timer->running != 0);
			if (one.started_by) {
				EXPECT_EQ(one.started_by->file,
					  timer->startFile);
				EXPECT_EQ(one.started_by->line,
					  timer->startLine);
			}
		}
	EXPECT_EQ(count, read.timers.size());
	EXPECT_TRUE(have_places(read.timers));
}

void Inspector::compare(const zorva::model &read)
{
	compare_memory(read);
	compare_locks(read, _zorvaMutexDbg, true);
	compare_locks(read, _zorvaSemDbg, false);
	compare_timers<tick>(read.timers);
	compare_timers<hrt>(read.hr_timers);

	ASSERT_EQ(read.threads.threads.size(), threads_.size());
	for (size_t i = 0; i < threads_.size(); ++i) {
		const made_thread &thread = threads_[threads_.size() - 1 - i];
		const zorva::thread &one = read.threads.threads[i];

		EXPECT_EQ(one.name, thread.name);
		EXPECT_EQ(one.pid, thread.pid);
		EXPECT_EQ(one.component, component_name(thread.component));
		EXPECT_EQ(one.priority, thread.priority);
		EXPECT_EQ(one.state, 2);
	}
	ASSERT_EQ(read.queues.queues.size(), queues_.size());
	for (size_t i = 0; i < queues_.size(); ++i) {
		const made_queue &queue = queues_[i];
		const zorva::queue &one = read.queues.queues[i];

		EXPECT_EQ(one.name, queue.name);
		EXPECT_EQ(one.component_id, queue.component);
		EXPECT_EQ(one.component, component_name(queue.component));
		EXPECT_EQ(one.message_size, queue.size);
		EXPECT_EQ(one.max_depth, queue.depth);
		EXPECT_EQ(one.depth, queue.filled);
		EXPECT_EQ(one.max_seen, queue.most);
	}
	EXPECT_TRUE(have_places(read.threads.threads));
	EXPECT_TRUE(have_places(read.queues.queues));
}

void expect_nothing_said(const zorva::reading &from)
{
	EXPECT_EQ(from.errors, 0u);
	EXPECT_EQ(from.warnings, 0u);
	for (const zorva::diagnostic &one : from.diagnostics)
		ADD_FAILURE() << one.at.line << ": " << one.text;
}

/* As a serial console shows it, empty lines lost, the kernel in between. */
std::string console_of(const std::string &text)
{
	std::string shown;
	size_t lines = 0;

	for (size_t at = 0; at < text.size();) {
		const size_t end = text.find('\n', at);
		const std::string line = text.substr(at, end - at);

		at = end + 1;
		if (line.empty())
			continue;
		if (++lines % 7 == 0)
			shown += "[    3.141592] eth0: link down\r\n";
		if (lines % 11 == 0 && line.size() > 3) {
			const size_t cut = line.size() / 2;

			shown += line.substr(0, cut) +
				 "[   12.345678] a message (in, 2) between\r\n";
			shown += line.substr(cut) + "\r\n";
			continue;
		}
		shown += line + "\r\n";
	}
	return shown;
}

} // namespace

TEST_F(Inspector, ReadsBackFromTheFilesWhatTheServicesHave)
{
	for (u32 seed = 1; seed <= 25; ++seed) {
		zorva::reading from;

		SCOPED_TRACE(seed);
		dice_.seed(seed);
		for (int i = 0; i < 15; ++i)
			step();
		for (const std::string &name : entries)
			zorva::parse_file(from, "/proc/zorva/" + name,
					  file_text(name));
		zorva::complete_last_moment(from);

		expect_nothing_said(from);
		ASSERT_EQ(from.moments.size(), 1u);
		compare(from.last());
		if (HasFailure())
			break;
	}
}

TEST_F(Inspector, ReadsBackTheSameFromTheOutputOfTail)
{
	for (u32 seed = 101; seed <= 110; ++seed) {
		zorva::reading from;
		std::string text;

		SCOPED_TRACE(seed);
		dice_.seed(seed);
		for (int i = 0; i < 25; ++i)
			step();
		for (const std::string &name : entries)
			text += (text.empty() ? "" : "\n") +
				("==> /proc/zorva/" + name + " <==\n") +
				file_text(name);
		zorva::parse_text(from, "tail", text);
		zorva::complete_last_moment(from);

		expect_nothing_said(from);
		compare(from.last());
		if (HasFailure())
			break;
	}
}

TEST_F(Inspector, ReadsBackTheSameFromTheLogOfAConsole)
{
	for (u32 seed = 201; seed <= 220; ++seed) {
		zorva::reading from;
		std::string text = "[    0.000000] Linux version 5.10\r\n";

		SCOPED_TRACE(seed);
		dice_.seed(seed);
		for (int i = 0; i < 25; ++i)
			step();
		for (const std::string &name : entries)
			text += "board:~# cat /proc/zorva/" + name + "\r\n" +
				console_of(file_text(name));
		text += "board:~# ";
		zorva::parse_text(from, "console", text);
		zorva::complete_last_moment(from);

		expect_nothing_said(from);
		compare(from.last());
		if (HasFailure())
			break;
	}
}

TEST_F(Inspector, FindsATornBlock)
{
	auto *const block = static_cast<char *>(
		zorva_malloc_track(owner, 10, "caller.c", 7));
	zorva::reading from;

	tear(block);
	zorva::parse_file(from, "zorva.mem.detail",
			  file_text("zorva.mem.detail"));

	expect_nothing_said(from);
	ASSERT_EQ(from.moments[0].blocks.torn.size(), 1u);

	const zorva::torn_block &torn = from.moments[0].blocks.torn[0];

	EXPECT_EQ(torn.header + zorva::user_offset,
		  reinterpret_cast<uintptr_t>(block));
	EXPECT_EQ(torn.expected, 0xbbbbbbbb);
	EXPECT_EQ(from.moments[0].blocks.sites[torn.site].file, "caller.c");
	zorva_free_track(owner, block, "caller.c", 8);
	new_reports();
	fake::log_text();
}
