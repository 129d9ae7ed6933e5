// SPDX-License-Identifier: GPL-2.0
/* The beginning, the end and the laws of a life. */
#include "life.h"

#include "fake/scheduler.h"
#include "zorva_lkm.h"
#include "zorva_mem.h"
#include "zorva_msgq.h"
#include "zorva_sem.h"
#include "zorva_thread.h"
#include "zorva_timer.h"
#include "zorva_clock.h"
#include "zorva_debug.h"
#include "zorva_wait.h"

#include <string.h>

namespace
{

constexpr u32 owner = ZORVA_COMPONENT_SELF;

std::vector<std::string> reported;

void record_report(u32 compId, s32 unit, u32 level, const char *file,
		   const char *func, s32 line, const char *format, ...)
{
	va_list args;

	va_start(args, format);
	const char *const text = va_arg(args, const char *);
	va_end(args);

	EXPECT_EQ(compId, ZORVA_COMPONENT_SELF);
	EXPECT_EQ(unit, -1);
	EXPECT_TRUE(level == ZORVA_LEVEL_ERROR || level == ZORVA_LEVEL_INFO);
	EXPECT_EQ(strchr(file, '/'), nullptr);
	EXPECT_NE(strstr(func, "zorva_"), nullptr) << func;
	EXPECT_GT(line, 0);
	EXPECT_STREQ(format, "%s");
	EXPECT_LE(strlen(text), 256u);
	reported.push_back(text);
}

template <class Record>
void check_registry(const lock_registry<Record> &registry)
{
	const Record *previous = nullptr;
	u32 count = 0;

	for (const Record *each = registry.head; each; each = each->next) {
		EXPECT_EQ(each->previous, previous);
		EXPECT_LE(each->index, registry.lastIndex);
		if (previous) {
			EXPECT_LT(each->index, previous->index);
		}
		EXPECT_TRUE(valid_owner(each->component));
		EXPECT_LT(strnlen(each->name, sizeof(each->name)),
			  sizeof(each->name));
		EXPECT_LT(static_cast<u32>(each->historyHead), history_slots);
		for (const auto &entry : each->history)
			EXPECT_EQ(entry.file[file_size - 1], '\0');
		previous = each;
		++count;
	}
	EXPECT_EQ(registry.count, count);
	if (registry.initialised) {
		EXPECT_EQ(zk_sema_count(
				  &const_cast<lock_registry<Record> &>(registry)
					   .lock),
			  1u);
	}
}

zorva_msg_queue *first_queue()
{
	void *const link = zk_list_next_unaligned(&zorva_msgq_list);

	if (link == &zorva_msgq_list)
		return nullptr;
	return reinterpret_cast<zorva_msg_queue *>(
		static_cast<char *>(link) -
		__builtin_offsetof(zorva_msg_queue, link));
}

void check_queues()
{
	for (void *link = zk_list_next_unaligned(&zorva_msgq_list);
	     link != &zorva_msgq_list; link = zk_list_next_unaligned(link)) {
		const auto *const queue =
			reinterpret_cast<const zorva_msg_queue *>(
				static_cast<char *>(link) -
				__builtin_offsetof(zorva_msg_queue, link));
		const msg_ring &ring =
			*reinterpret_cast<const msg_ring *>(queue);

		EXPECT_LT(strnlen(queue->name, sizeof(queue->name)),
			  sizeof(queue->name));
		EXPECT_EQ(ring.bufferSize, ring.maxDepth * ring.msgSize);
		EXPECT_LT(ring.readOffset, ring.bufferSize);
		EXPECT_LT(ring.writeOffset, ring.bufferSize);
		EXPECT_EQ(ring.readOffset % ring.msgSize, 0u);
		EXPECT_EQ(ring.writeOffset % ring.msgSize, 0u);
		EXPECT_GE(ring.maxSeen, ring.currDepth);
	}
}

/* A timer is marked as running while it is armed, and only then. */
template <class Record>
void check_timers(const sys_sll_t *list, u32 index, u32 limit)
{
	u32 count = 0;
	u32 last = 0;

	if (!list)
		return;
	EXPECT_EQ(list->magic, SYS_SLL_MAGIC);
	EXPECT_LE(list->count, limit);
	for (const sys_sll_node_t *node = list->pFirst; node;
	     node = node->pNext) {
		const auto *const timer = static_cast<Record *>(node->pData);

		++count;
		if (!node->pNext) {
			EXPECT_EQ(node, list->pLast);
		}
		if (!timer)
			continue;
		EXPECT_GT(timer->timerId, last);
		EXPECT_LE(timer->timerId, index);
		EXPECT_EQ(timer->running != 0, fake::is_pending(&timer->timer));
		EXPECT_EQ(timer->running != 0, timer->period != 0);
		EXPECT_EQ(timer->startFile[file_size], '\0');
		last = timer->timerId;
	}
	EXPECT_EQ(list->count, count);
}

void check_waits()
{
	const wait_module *previous = nullptr;

	for (const wait_module *each = _zorvaWaitHead; each;
	     each = each->next) {
		EXPECT_EQ(each->state, 1u);
		EXPECT_TRUE(valid_owner(each->component));
		if (previous) {
			EXPECT_EQ(each->previous, previous);
			EXPECT_GT(each->waitId, previous->waitId);
		}
		previous = each;
	}
}

/* Only of blocks whose headers are whole. */
void check_accounts()
{
	zorva_mem_usage_t found[ZORVA_COMPONENTS] = {};
	const zorva_mem_block_hdr_t *newer = nullptr;

	for (auto *block = _pZorvaMallocMemList; block; block = block->next) {
		EXPECT_EQ(block->prev, newer);
		EXPECT_EQ(block->inUse, 1u);
		EXPECT_EQ(block->startMagic, start_alive);
		EXPECT_EQ(*guard_of(block), guard_magic);
		EXPECT_EQ(block->file[14], '\0');
		ASSERT_TRUE(valid_owner(block->compId));
		found[block->compId].currUsage += block->size;
		++found[block->compId].allocCount;
		newer = block;
	}
	for (u32 i = 0; i < ZORVA_COMPONENTS; ++i) {
		const zorva_mem_usage_t &usage = _zorvaMallocMemUsage[i];

		EXPECT_EQ(usage.currUsage, found[i].currUsage);
		EXPECT_EQ(usage.allocCount - usage.freeCount,
			  found[i].allocCount);
		EXPECT_LE(usage.currUsage, usage.maxUsage);
	}
}

void destroy_locks()
{
	while (_zorvaMutexDbg.head)
		EXPECT_EQ(zorva_mutex_destroy(owner, _zorvaMutexDbg.head),
			  ZORVA_RC_OK);
	while (_zorvaSemDbg.head)
		EXPECT_EQ(zorva_sem_destroy(owner, _zorvaSemDbg.head),
			  ZORVA_RC_OK);
}

/* The youngest goes first. */
void destroy_waits()
{
	while (_zorvaWaitHead) {
		const wait_module *last = _zorvaWaitHead;

		while (last->next)
			last = last->next;
		EXPECT_EQ(zorva_wait_module_destroy(owner, last->waitId),
			  ZORVA_RC_OK);
	}
}

/* There is no call that deletes a timer. */
template <class Record>
void forget_timers(sys_sll_t *&list, u32 &index)
{
	if (!list)
		return;
	for (const sys_sll_node_t *node = list->pFirst; node;
	     node = node->pNext)
		zorva_free(owner, node->pData);
	sys_sll_node_purge(list);
	sys_sll_destroy(list);
	list = nullptr;
	index = 0;
}

} // namespace

namespace life
{

void begin()
{
	fake::restart();
	reported.clear();
	if (!_zorvaProcDir) {
		EXPECT_EQ(zorva_init(), 0);
	}
	zorva_debug_pr_fn_register(record_report);
	EXPECT_EQ(_sys_dbg_pr_fn, record_report);
}

void check()
{
	const fake::context now = fake::current_context();

	EXPECT_TRUE(now.locks.empty()) << "a lock is held";
	EXPECT_FALSE(now.interrupts_off) << "interrupts are off";
	EXPECT_FALSE(now.in_interrupt) << "an interrupt has not ended";
	EXPECT_FALSE(mutex_is_locked(&zorva_msgq_list_lock));
	check_accounts();
	check_registry(_zorvaMutexDbg);
	check_registry(_zorvaSemDbg);
	check_queues();
	check_timers<tick_timer>(_pZorvaTimerList, _timerIndex, timer_limit);
	check_timers<hrt_timer>(_pZorvaHrtTimerList, _hrtTimerIndex,
				hrt_timer_limit);
	check_waits();
}

void end(leftovers what)
{
	if (what == leftovers::forbidden) {
		EXPECT_EQ(_zorvaMutexDbg.count, 0u);
		EXPECT_EQ(_zorvaSemDbg.count, 0u);
	}
	while (zorva_msg_queue *const queue = first_queue())
		EXPECT_EQ(zorva_msg_queue_delete(owner, queue), ZORVA_RC_OK);
	destroy_locks();
	destroy_waits();
	forget_timers<tick_timer>(_pZorvaTimerList, _timerIndex);
	forget_timers<hrt_timer>(_pZorvaHrtTimerList, _hrtTimerIndex);
	memset(_zorvaTimerById, 0, sizeof(_zorvaTimerById));
	memset(_zorvaHrtTimerById, 0, sizeof(_zorvaHrtTimerById));
	check();
	EXPECT_EQ(_pZorvaMallocMemList, nullptr) << "a block is left";
	EXPECT_EQ(threads(), 0u);
	EXPECT_EQ(fake::open_files(), 0u);

	_zorvaTickSeconds.tick = ZK_INITIAL_JIFFIES - 1;
	_zorvaMutexDbg = {};
	_zorvaSemDbg = {};
	memset(_zorvaMallocMemUsage, 0, sizeof(_zorvaMallocMemUsage));
	memset(_targetComp, 0, sizeof(_targetComp));
	fake::restart();
}

size_t threads()
{
	const auto *const head =
		reinterpret_cast<const fake_link *>(&kthread_list);
	size_t count = 0;

	for (const fake_link *link = head->next; link != head;
	     link = link->next) {
		EXPECT_EQ(link->next->prev, link);
		++count;
	}
	return count;
}

const std::vector<std::string> &reports()
{
	return reported;
}

} // namespace life
