// SPDX-License-Identifier: GPL-2.0
/* Message queues: their life, their depths, and their report. */
#include "msgq_fixture.h"

#include <stddef.h>
#include <string.h>

namespace
{

class MessageQueueDepth : public MessageQueue {};

class MessageQueueReport : public MessageQueue {};

constexpr char no_memory_for_record[] =
	"1 zorva_msgq.cpp zorva_msg_queue_create_track: "
	"allocate memory failed.(89 bytes)\n";
constexpr char no_locks[] = "1 zorva_msgq.cpp zorva_msg_queue_create_track: "
			    "create mutex failed.\n";

} // namespace

/* Create. */

TEST_F(MessageQueue, RefusesWrongArgumentsOfItsCreationInOrder)
{
	const auto with = [](u32 compId, u32 depth, u32 size) {
		return [=] {
			return as_word(zorva_msg_queue_create_track(compId, "q",
								    depth, size,
								    "caller.c",
								    7));
		};
	};

	refuses("zorva_msgq.cpp", "zorva_msg_queue_create_track",
		{ { 0, with(0, 1, 1), with(0, 0, 0) },
		  { 0, with(57, 1, 1), with(0xFFFFFFFF, 0, 0) },
		  { 0, with(owner, 0, 1), with(owner, 0, 0) },
		  { 0, with(owner, 1, 0), with(owner, 1, 0) } });
}

TEST_F(MessageQueue, StartsEmptyWithAllItsSlotsFree)
{
	zorva_msg_queue *const queue = create(3, 8, "frames");

	ASSERT_NE(queue, nullptr);
	EXPECT_EQ(sizeof(*queue), 89u);
	EXPECT_EQ(offsetof(zorva_msg_queue, link), 81u);
	EXPECT_EQ(queue->ring.component, owner);
	EXPECT_EQ(queue->ring.maxDepth, 3u);
	EXPECT_EQ(queue->ring.msgSize, 8u);
	EXPECT_EQ(queue->ring.bufferSize, 24u);
	EXPECT_EQ(state(queue), texts({ "0", "0", "0", "0" }));
	EXPECT_STREQ(queue->name, "frames");
	EXPECT_EQ(count(queue->txSem), 3u);
	EXPECT_EQ(count(queue->rxSem), 0u);
	EXPECT_EQ(queue->txSem->component, owner);
	EXPECT_EQ(queue->rxSem->component, owner);
	EXPECT_EQ(queue->lock->component, owner);
	EXPECT_EQ(new_reports(),
		  "3 zorva_sem.cpp zorva_mutex_create_track: "
		  "Mutex 'msgq-frames-ent' has been created\n"
		  "3 zorva_sem.cpp zorva_sem_create_track: "
		  "Semaphore 'msgq-frames-tx' has been created\n"
		  "3 zorva_sem.cpp zorva_sem_create_track: "
		  "Semaphore 'msgq-frames-rx' has been created\n"
		  "3 zorva_msgq.cpp zorva_msg_queue_create_track: "
		  "MsgQ 'frames' has been created\n");
	EXPECT_FALSE(reports().back().at.has_taken(&zorva_msgq_list_lock));

	destroy(queue);
}

TEST_F(MessageQueue, IsNamedAfterItsComponentAndItsLocksAfterTheCallersLine)
{
	zorva_msg_queue *const queue =
		zorva_msg_queue_create_track(owner, nullptr, 1, 1, "caller.c",
					     120);

	EXPECT_STREQ(queue->name, "PORT");
	EXPECT_STREQ(queue->lock->name, "msgq-120-ent");
	EXPECT_STREQ(queue->txSem->name, "msgq-120-tx");
	EXPECT_STREQ(queue->rxSem->name, "msgq-120-rx");

	destroy(queue);
}

TEST_F(MessageQueue, HasLocksThatAreNamedAfterAnyLine)
{
	zorva_msg_queue *const queue =
		zorva_msg_queue_create_track(owner, nullptr, 1, 1, "caller.c",
					     4000000000);

	EXPECT_STREQ(queue->lock->name, "msgq-4000000000-ent");

	destroy(queue);
}

TEST_F(MessageQueue, IsMadeWithoutAFile)
{
	zorva_msg_queue *const queue =
		zorva_msg_queue_create_track(owner, "q", 1, 1, nullptr, 120);

	EXPECT_NE(queue, nullptr);

	destroy(queue);
}

TEST_F(MessageQueue, CutsLongNamesAndTheSuffixesOfItsLocks)
{
	const std::string name = "0123456789abcdefghijklmnopqrstuvwxyz";

	zorva_msg_queue *const queue = create(1, 1, name.c_str());
	EXPECT_EQ(queue->name, name.substr(0, 32));
	EXPECT_EQ(queue->lock->name, "msgq-" + name.substr(0, 26));
	EXPECT_EQ(queue->txSem->name, "msgq-" + name.substr(0, 26));
	EXPECT_EQ(queue->rxSem->name, "msgq-" + name.substr(0, 26));
	destroy(queue);

	zorva_msg_queue *const shorter =
		create(1, 1, name.substr(0, 24).c_str());
	EXPECT_EQ(shorter->lock->name, "msgq-" + name.substr(0, 24) + "-e");
	EXPECT_EQ(shorter->txSem->name, "msgq-" + name.substr(0, 24) + "-t");
	EXPECT_EQ(shorter->rxSem->name, "msgq-" + name.substr(0, 24) + "-r");
	destroy(shorter);
}

TEST_F(MessageQueue, IsChargedToItsComponent)
{
	zorva_msg_queue *const queue = create(3, 8);

	EXPECT_EQ(_zorvaMallocMemUsage[owner].currUsage,
		  89 + 24 + sizeof(zorva_mutex) + 2 * sizeof(zorva_sem));
	EXPECT_EQ(_zorvaMallocMemUsage[ZORVA_COMPONENT_SELF].currUsage, 0u);

	destroy(queue);
	EXPECT_EQ(_zorvaMallocMemUsage[owner].currUsage, 0u);
}

TEST_F(MessageQueue, MultipliesDepthAndSizeIn32Bits)
{
	EXPECT_EQ(create(0x10000, 0x10000), nullptr);
	EXPECT_EQ(new_reports(),
		  "1 zorva_mem.cpp zorva_malloc_track: invalid parameter\n"
		  "1 zorva_msgq.cpp zorva_msg_queue_create_track: "
		  "allocate memory failed.(0 bytes)\n");

	zorva_msg_queue *const queue = create(0x80000001, 2);
	ASSERT_NE(queue, nullptr);
	EXPECT_EQ(queue->ring.bufferSize, 2u);
	EXPECT_EQ(queue->ring.maxDepth, 0x80000001u);
	EXPECT_EQ(count(queue->txSem), 0x80000001u);
	destroy(queue);
}

TEST_F(MessageQueue, IsListedLastUnderTheListsLock)
{
	const void *at_lock = &at_lock;
	const void *at_unlock = nullptr;
	zorva_msg_queue *const first = create();
	fake::on_call([&](const fake::call &made) {
		if (made.object != &zorva_msgq_list_lock)
			return;
		const void *const link = zk_list_next_unaligned(&first->link);

		if (made.text == "mutex_lock")
			at_lock = link;
		if (made.text == "mutex_unlock")
			at_unlock = link;
	});

	zorva_msg_queue *const second = create();

	fake::on_call(nullptr);
	EXPECT_EQ(zk_list_next_unaligned(&zorva_msgq_list), &first->link);
	EXPECT_EQ(at_lock, &zorva_msgq_list);
	EXPECT_EQ(at_unlock, &second->link);
	EXPECT_EQ(zk_list_next_unaligned(&second->link), &zorva_msgq_list);
	destroy(first);
	destroy(second);
}

TEST_F(MessageQueue, LeavesWhatIsDocumentedWithoutMemory)
{
	const texts expected = {
		/* The record. */
		no_memory_for_record,
		/* The ring. */
		"1 zorva_msgq.cpp zorva_msg_queue_create_track: "
		"allocate memory failed.(24 bytes)\n",
		/* The mutex. */
		no_locks,
		/* The semaphore of senders; that of receivers is made. */
		std::string("3 zorva_sem.cpp zorva_mutex_create_track: "
			    "Mutex 'msgq-q-ent' has been created\n"
			    "3 zorva_sem.cpp zorva_sem_create_track: "
			    "Semaphore 'msgq-q-rx' has been created\n") +
			no_locks +
			"1 zorva_sem.cpp zorva_sem_destroy_track: "
			"invalid parameter\n"
			"3 zorva_sem.cpp zorva_sem_destroy_track: "
			"Semaphore 'msgq-q-rx' has been destroyed\n",
		/* The semaphore of receivers. */
		std::string("3 zorva_sem.cpp zorva_mutex_create_track: "
			    "Mutex 'msgq-q-ent' has been created\n"
			    "3 zorva_sem.cpp zorva_sem_create_track: "
			    "Semaphore 'msgq-q-tx' has been created\n") +
			no_locks +
			"3 zorva_sem.cpp zorva_sem_destroy_track: "
			"Semaphore 'msgq-q-tx' has been destroyed\n"
			"1 zorva_sem.cpp zorva_sem_destroy_track: "
			"invalid parameter\n",
	};

	const unsigned int allocations =
		fail_each_allocation([&](unsigned int nth) {
			SCOPED_TRACE(nth);
			const bool keeps_mutex = nth == 4 || nth == 5;
			zorva_msg_queue *const queue = create();

			if (nth > expected.size()) {
				destroy(queue);
				return;
			}
			EXPECT_EQ(queue, nullptr);
			EXPECT_EQ(own_reports(), expected[nth - 1]);
			EXPECT_EQ(tracked_blocks(), keeps_mutex ? 1u : 0u);
			EXPECT_EQ(zk_list_next_unaligned(&zorva_msgq_list),
				  &zorva_msgq_list);
			if (keeps_mutex) {
				ASSERT_EQ(_zorvaMutexDbg.count, 1u);
				zorva_mutex_destroy_track(owner,
							  _zorvaMutexDbg.head,
							  "caller.c", 9);
				new_reports();
			}
		});

	EXPECT_EQ(allocations, 5u);
	EXPECT_EQ(fake::log_size(), 5u);
	fake::log_text();
}

/* Delete. */

TEST_F(MessageQueue, RefusesWrongArgumentsOfItsDeletionInOrder)
{
	zorva_msg_queue *const queue = create();
	const auto with = [](u32 compId, zorva_msg_queue *which) {
		return [=] {
			return zorva_msg_queue_delete_track(compId, which);
		};
	};
	new_reports();

	refuses("zorva_msgq.cpp", "zorva_msg_queue_delete_track",
		{ { bad_component, with(0, queue), with(0, nullptr) },
		  { bad_component, with(57, queue), with(0xFFFFFFFF, nullptr) },
		  { null_argument, with(owner, nullptr),
		    with(owner, nullptr) } });

	destroy(queue);
}

TEST_F(MessageQueue, FreesItsLocksItsRingAndItselfInOrder)
{
	zorva_msg_queue *const queue = create(3, 8, "frames");
	const void *const blocks[] = { queue->lock, queue->txSem, queue->rxSem,
				       queue->ring.buffer, queue };
	new_reports();
	const size_t before = fake::heap_calls().size();

	EXPECT_EQ(zorva_msg_queue_delete_track(other, queue), ok);

	EXPECT_EQ(new_reports(),
		  "3 zorva_sem.cpp zorva_mutex_destroy_track: "
		  "Mutex 'msgq-frames-ent' has been destroyed\n"
		  "3 zorva_sem.cpp zorva_sem_destroy_track: "
		  "Semaphore 'msgq-frames-tx' has been destroyed\n"
		  "3 zorva_sem.cpp zorva_sem_destroy_track: "
		  "Semaphore 'msgq-frames-rx' has been destroyed\n"
		  "3 zorva_msgq.cpp zorva_msg_queue_delete_track: "
		  "MsgQ 'frames' has been deleted\n");
	EXPECT_FALSE(reports().back().at.has_taken(&zorva_msgq_list_lock));
	ASSERT_EQ(fake::heap_calls().size(), before + 5);
	for (size_t i = 0; i < 5; ++i)
		EXPECT_EQ(fake::heap_calls()[before + i].block,
			  static_cast<const char *>(blocks[i]) - 52);
	fake::allow_access_to_freed(&queue->link, 8);
	EXPECT_EQ(memcmp(&queue->link, "\x00\x01\0\0\x22\x01\0\0", 8), 0);
}

/* In whose name a block is freed shows when its guard is torn. */
TEST_F(MessageQueue, IsFreedInTheNameOfWhoeverDeletesIt)
{
	zorva_msg_queue *const queue = create();
	tear_all();

	EXPECT_EQ(zorva_msg_queue_delete_track(other, queue), ok);

	EXPECT_EQ(torn_frees(),
		  texts({ "VLAN, zorva_sem.cpp", "VLAN, zorva_sem.cpp",
			  "VLAN, zorva_sem.cpp", "VLAN, zorva_msgq.cpp",
			  "VLAN, zorva_msgq.cpp" }));
}

TEST_F(MessageQueue, IsFreedInItsComponentsNameWithoutMemory)
{
	const texts record = { "PORT, zorva_msgq.cpp" };
	const texts record_and_ring(2, "PORT, zorva_msgq.cpp");
	const texts all_but_the_mutex = { "PORT, zorva_sem.cpp",
					  "PORT, zorva_msgq.cpp",
					  "PORT, zorva_msgq.cpp" };
	unsigned int nth = 1;
	on_report([](const report &made) {
		if (made.text == "create mutex failed." ||
		    made.text == "allocate memory failed.(24 bytes)")
			tear_all();
	});

	for (const texts &expected : { record, record_and_ring,
				       all_but_the_mutex, all_but_the_mutex }) {
		fake::fail_allocation(++nth);
		EXPECT_EQ(create(), nullptr);
		EXPECT_EQ(torn_frees(), expected) << nth;
	}
	while (_zorvaMutexDbg.head)
		zorva_mutex_destroy_track(owner, _zorvaMutexDbg.head,
					  "caller.c", 9);
	torn_frees();
}

TEST_F(MessageQueue, LeavesTheListFromAnyPlace)
{
	zorva_msg_queue *const first = create();
	zorva_msg_queue *const second = create();
	zorva_msg_queue *const third = create();

	destroy(second);
	EXPECT_EQ(zk_list_next_unaligned(&first->link), &third->link);
	destroy(first);
	EXPECT_EQ(zk_list_next_unaligned(&zorva_msgq_list), &third->link);
	destroy(third);

	EXPECT_EQ(zk_list_next_unaligned(&zorva_msgq_list), &zorva_msgq_list);
}

TEST_F(MessageQueue, LeavesTheListUnderTheListsLock)
{
	zorva_msg_queue *const queue = create();
	const void *at_lock = nullptr;
	const void *at_unlock = nullptr;
	fake::on_call([&](const fake::call &made) {
		if (made.object != &zorva_msgq_list_lock)
			return;
		if (made.text == "mutex_lock")
			at_lock = zk_list_next_unaligned(&zorva_msgq_list);
		if (made.text == "mutex_unlock")
			at_unlock = zk_list_next_unaligned(&zorva_msgq_list);
	});

	zorva_msg_queue_delete_track(owner, queue);

	EXPECT_EQ(at_lock, &queue->link);
	EXPECT_EQ(at_unlock, &zorva_msgq_list);
	reports();
}

TEST_F(MessageQueue, StaysListedWhenALockCannotBeDestroyed)
{
	zorva_msg_queue *const queue = create(3, 8, "frames");
	const char *const destroyed[] = {
		"3 zorva_sem.cpp zorva_mutex_destroy_track: "
		"Mutex 'msgq-frames-ent' has been destroyed\n",
		"3 zorva_sem.cpp zorva_sem_destroy_track: "
		"Semaphore 'msgq-frames-tx' has been destroyed\n",
		"3 zorva_sem.cpp zorva_sem_destroy_track: "
		"Semaphore 'msgq-frames-rx' has been destroyed\n",
	};
	const char *const refused[] = {
		"1 zorva_sem.cpp zorva_mutex_destroy_track: invalid parameter\n",
		"1 zorva_sem.cpp zorva_sem_destroy_track: invalid parameter\n",
		"1 zorva_sem.cpp zorva_sem_destroy_track: invalid parameter\n",
	};
	zorva_mutex *const lock = queue->lock;
	zorva_sem *const tx = queue->txSem;
	zorva_sem *const rx = queue->rxSem;
	const char *const error =
		"1 zorva_msgq.cpp zorva_msg_queue_delete_track: "
		"error 0x7e000015\n";
	new_reports();

	queue->lock = nullptr;
	EXPECT_EQ(zorva_msg_queue_delete_track(owner, queue), null_argument);
	EXPECT_EQ(new_reports(), std::string(refused[0]) + error);

	queue->lock = lock;
	queue->txSem = nullptr;
	EXPECT_EQ(zorva_msg_queue_delete_track(owner, queue), null_argument);
	EXPECT_EQ(new_reports(),
		  std::string(destroyed[0]) + refused[1] + error);

	queue->lock = zorva_mutex_create_track(owner, "msgq-frames-ent",
					       "caller.c", 7);
	queue->txSem = tx;
	queue->rxSem = nullptr;
	new_reports();
	EXPECT_EQ(zorva_msg_queue_delete_track(owner, queue), null_argument);
	EXPECT_EQ(new_reports(), std::string(destroyed[0]) + destroyed[1] +
					 refused[2] + error);

	EXPECT_EQ(zk_list_next_unaligned(&zorva_msgq_list), &queue->link);
	EXPECT_EQ(_zorvaSemDbg.count, 1u);
	queue->lock = zorva_mutex_create_track(owner, "m", "caller.c", 7);
	queue->txSem = zorva_sem_create_track(owner, "t", 1, "caller.c", 7);
	queue->rxSem = rx;
	destroy(queue);
}

/* Depths. */

TEST_F(MessageQueueDepth, RefusesWrongArgumentsInOrder)
{
	zorva_msg_queue *const queue = create();
	const auto all = [&](const char *func,
			     s32 (*depth)(u32, zorva_msg_queue_t *)) {
		const auto with = [=](u32 compId, zorva_msg_queue *which) {
			return [=]() -> u32 {
				return depth(compId, which);
			};
		};

		refuses("zorva_msgq.cpp", func,
			{ { failed, with(0, queue), with(0, nullptr) },
			  { failed, with(57, queue),
			    with(0xFFFFFFFF, nullptr) },
			  { failed, with(owner, nullptr),
			    with(owner, nullptr) } });
	};
	new_reports();

	all("zorva_msg_queue_depth", zorva_msg_queue_depth);
	all("zorva_msg_queue_max_depth", zorva_msg_queue_max_depth);

	destroy(queue);
}

TEST_F(MessageQueueDepth, IsWhatIsThereNowAndWhatEverWas)
{
	zorva_msg_queue *const queue = create(3, 1);
	EXPECT_EQ(depth(queue), 0);
	EXPECT_EQ(max_depth(queue), 0);

	for (const char *msg : { "a", "b", "c" })
		send(queue, msg);
	EXPECT_EQ(depth(queue, other), 3);
	for (int i = 0; i < 3; ++i)
		receive(queue);
	send(queue, "d");

	EXPECT_EQ(depth(queue), 1);
	EXPECT_EQ(max_depth(queue), 3);
	destroy(queue);
}

TEST_F(MessageQueueDepth, IsReadUnderTheQueuesLock)
{
	zorva_msg_queue *const queue = create();

	for (auto depth :
	     { zorva_msg_queue_depth, zorva_msg_queue_max_depth }) {
		fake::forget_calls();
		fake::on_call([&](const fake::call &made) {
			if (made.text == "mutex_lock")
				queue->ring.currDepth = queue->ring.maxSeen = 5;
			if (made.text == "mutex_unlock")
				queue->ring.currDepth = queue->ring.maxSeen = 9;
		});

		EXPECT_EQ(depth(owner, queue), 5);

		fake::on_call(nullptr);
		EXPECT_EQ(fake::call_texts({ "mutex_lock", "mutex_unlock" }),
			  texts({ "mutex_lock", "mutex_unlock" }));
	}
	for (const std::string &entry : history(queue->lock))
		EXPECT_EQ(entry.substr(2, 14), "zorva_msgq.cpp");
	destroy(queue);
}

TEST_F(MessageQueueDepth, IsReadAllTheSameWhenTheLockCannotBeTaken)
{
	zorva_msg_queue *const queue = create();
	zorva_mutex *const lock = queue->lock;
	send(queue, "m");
	new_reports();
	queue->lock = nullptr;

	EXPECT_EQ(zorva_msg_queue_depth(owner, queue), 1);

	EXPECT_EQ(new_reports(),
		  "1 zorva_sem.cpp zorva_mutex_take_track: invalid parameter\n"
		  "1 zorva_sem.cpp zorva_mutex_give_track: invalid "
		  "parameter\n");
	queue->lock = lock;
	destroy(queue);
}

/* The report. */

TEST_F(MessageQueueReport, IsEmptyWithoutQueues)
{
	EXPECT_EQ(file_text("zorva.msgq"), "");
}

TEST_F(MessageQueueReport, ShowsQueuesInTheOrderOfTheirCreation)
{
	zorva_msg_queue *const first =
		create(3, 8, "0123456789abcdef0123456789abcdef");
	zorva_msg_queue *const second =
		zorva_msg_queue_create_track(other, nullptr, 0x80000001, 2,
					     "caller.c", 7);
	send(first, "a");
	send(first, "b");
	receive(first);

	EXPECT_EQ(file_text("zorva.msgq"),
		  "Queue Name   : 0123456789abcdef0123456789abcdef\n"
		  "Component ID : 11 (PORT)\n"
		  "Msg Size     : 8 bytes\n"
		  "Max Depth    : 3\n"
		  "Curr Depth   : 1\n"
		  "Max Seen     : 2\n"
		  "\n"
		  "Queue Name   : VLAN\n"
		  "Component ID : 18 (VLAN)\n"
		  "Msg Size     : 2 bytes\n"
		  "Max Depth    : 2147483649\n"
		  "Curr Depth   : 0\n"
		  "Max Seen     : 0\n"
		  "\n");
	destroy(first);
	destroy(second);
}

TEST_F(MessageQueueReport, PrintsDepthsWithTheirSign)
{
	zorva_msg_queue *const queue = create(3, 8, "q");
	queue->ring.currDepth = -1;
	queue->ring.maxSeen = -2;

	EXPECT_NE(file_text("zorva.msgq")
			  .find("Curr Depth   : -1\nMax Seen     : -2\n\n"),
		  std::string::npos);
	destroy(queue);
}

TEST_F(MessageQueueReport, CopiesWithTheListHeldAndNoQueueAndPrintsWithout)
{
	zorva_msg_queue *const queue = create();
	zorva_mutex_take_track(owner, queue->lock, "caller.c", 7);
	fake::forget_calls();
	std::string text;

	in_task("reader", [&] {
		text = run_report(zorva_msg_queue_dump, 4096).text;
	});

	EXPECT_NE(text, "");
	/* Once to count, and once to copy. */
	EXPECT_EQ(fake::call_texts({ "mutex_lock", "mutex_unlock" }),
		  texts({ "mutex_lock", "mutex_unlock", "mutex_lock",
			  "mutex_unlock" }));
	for (const fake::seq_print &each : fake::seq_prints()) {
		EXPECT_FALSE(each.at.has_taken(&zorva_msgq_list_lock));
		EXPECT_TRUE(each.at.may_sleep());
	}
	EXPECT_EQ(run_report(zorva_msg_queue_dump, 4096).result, 0);
	zorva_mutex_give_track(owner, queue->lock, "caller.c", 7);
	destroy(queue);
}

TEST_F(MessageQueueReport, WithoutMemoryForACopyIsTheSameWithTheListHeld)
{
	zorva_msg_queue *const queue = create();
	zorva_mutex_take_track(owner, queue->lock, "caller.c", 7);
	const report_run copied = run_report(zorva_msg_queue_dump, 4096);

	const report_run run =
		run_report_without_copy(zorva_msg_queue_dump, 4096);

	EXPECT_EQ(run.result, 0);
	EXPECT_EQ(run.text, copied.text);
	EXPECT_EQ(run.prints.size(), 6u);
	for (const fake::seq_print &each : run.prints) {
		EXPECT_TRUE(each.at.has_taken(&zorva_msgq_list_lock));
		EXPECT_TRUE(each.at.may_sleep());
	}
	zorva_mutex_give_track(owner, queue->lock, "caller.c", 7);
	destroy(queue);
}
