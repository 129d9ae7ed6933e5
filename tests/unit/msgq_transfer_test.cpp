// SPDX-License-Identifier: GPL-2.0
/* Message queues: sending and receiving. */
#include "msgq_fixture.h"
#include "zorva/thread.h"

namespace
{

class MessageSend : public MessageQueue {};

class MessageReceive : public MessageQueue {};

std::function<void()> body;

void run_body(void *)
{
	body();
}

/* A tracked thread that is told to end inside a queue's call. */
class KilledPeer : public MessageQueue {
protected:
	/* Kills it once it waits, and lets more than its time limit pass. */
	void kill_in(std::function<void()> call)
	{
		bool returned = false;

		body = [&] {
			call();
			returned = true;
		};
		const pid_t pid = zorva_thread_create_track(owner, "victim", 0,
							    0, run_body,
							    nullptr, "caller.c",
							    7);
		fake::run_others();
		EXPECT_EQ(fake::blocked_in(pid), "down_timeout");
		zorva_thread_destroy_track(owner, pid, "caller.c", 9);
		fake::sleep_for(sec);

		EXPECT_EQ(fake::exit_code_of(pid), 1);
		EXPECT_FALSE(returned);
		new_reports();
	}
};

} // namespace

/* Send. */

TEST_F(MessageSend, RefusesWrongArgumentsInOrder)
{
	zorva_msg_queue *const queue = create();
	const auto with = [](u32 compId, zorva_msg_queue *which,
			     const void *msg) {
		return [=] {
			return zorva_msg_queue_send_track(compId, which, msg, 1,
							  0, "caller.c", 7);
		};
	};
	new_reports();

	refuses("zorva_msgq.cpp", "zorva_msg_queue_send_track",
		{ { bad_component, with(0, queue, "m"),
		    with(0, nullptr, nullptr) },
		  { bad_component, with(57, queue, "m"),
		    with(0xFFFFFFFF, nullptr, nullptr) },
		  { null_argument, with(owner, nullptr, "m"),
		    with(owner, nullptr, nullptr) },
		  { null_argument, with(owner, queue, nullptr),
		    with(owner, queue, nullptr) } });

	EXPECT_EQ(state(queue), texts({ "0", "0", "0", "0" }));
	destroy(queue);
}

TEST_F(MessageSend, StoresAMessageAndCountsIt)
{
	zorva_msg_queue *const queue = create(3, 8);
	new_reports();

	EXPECT_EQ(send(queue, "abcdefgh"), ok);

	EXPECT_EQ(std::string(queue->ring.buffer, 8), "abcdefgh");
	EXPECT_EQ(state(queue), texts({ "0", "8", "1", "1" }));
	EXPECT_EQ(count(queue->txSem), 2u);
	EXPECT_EQ(count(queue->rxSem), 1u);
	EXPECT_FALSE(mutex_is_locked(&queue->lock->mutex));
	EXPECT_EQ(new_reports(), "");
	destroy(queue);
}

TEST_F(MessageSend, TakesADepthBelow0ForLowerThanTheHighest)
{
	zorva_msg_queue *const queue = create(3, 8);
	queue->ring.currDepth = -2;
	queue->ring.maxSeen = 1;

	EXPECT_EQ(send(queue, "m"), ok);

	EXPECT_EQ(queue->ring.currDepth, -1);
	EXPECT_EQ(queue->ring.maxSeen, 1);
	destroy(queue);
}

TEST_F(MessageSend, StoresWhatFitsOfALongMessage)
{
	zorva_msg_queue *const queue = create(2, 8);

	EXPECT_EQ(send(queue, "abcdefghijklmnopqrst"), ok);

	EXPECT_EQ(std::string(queue->ring.buffer, 16),
		  std::string("abcdefgh\0\0\0\0\0\0\0\0", 16));
	destroy(queue);
}

TEST_F(MessageSend, LeavesTheRestOfTheSlotOfAShortMessage)
{
	zorva_msg_queue *const queue = create(1, 8);
	send(queue, "ABCDEFGH");
	receive(queue);

	EXPECT_EQ(send(queue, "abc"), ok);

	EXPECT_EQ(receive(queue, 0, 16), "abcDEFGH########");
	EXPECT_EQ(send(queue, ""), ok);
	EXPECT_EQ(receive(queue), "abcDEFGH");
	destroy(queue);
}

TEST_F(MessageSend, TakesALengthOf2To31AndMoreAsLong)
{
	zorva_msg_queue *const queue = create(1, 8);

	EXPECT_EQ(zorva_msg_queue_send_track(owner, queue, "abcdefgh",
					     0x80000000, 0, "caller.c", 7),
		  ok);

	EXPECT_EQ(receive(queue), "abcdefgh");
	destroy(queue);
}

TEST_F(MessageSend, WrapsAtTheEndOfTheRing)
{
	zorva_msg_queue *const queue = create(3, 2);
	const char *const offsets[] = { "2", "4", "0", "2" };

	for (const char *offset : offsets) {
		EXPECT_EQ(send(queue, "ab"), ok);
		EXPECT_EQ(state(queue)[1], offset);
		EXPECT_EQ(receive(queue, 0, 2), "ab");
		EXPECT_EQ(state(queue)[0], offset);
	}

	destroy(queue);
}

/* 3 slots of 0x55555556 bytes are 2 bytes, which all messages share. */
TEST_F(MessageSend, StaysInARingThatIsSmallerThanASlot)
{
	zorva_msg_queue *const queue = create(3, 0x55555556);

	EXPECT_EQ(queue->ring.bufferSize, 2u);
	for (const char *msg : { "ab", "cd", "ef" }) {
		EXPECT_EQ(send(queue, msg), ok);
		EXPECT_EQ(state(queue)[1], "0");
	}
	for (int i = 0; i < 3; ++i) {
		EXPECT_EQ(receive(queue, 0, 2), "ef");
		EXPECT_EQ(state(queue)[0], "0");
	}

	destroy(queue);
}

/* A ring of 4 bytes, in which an offset grows by 2^32 - 3 in 32 bits. */
TEST_F(MessageSend, ComputesItsOffsetsIn32Bits)
{
	zorva_msg_queue *const queue = create(0x55555554, 0xFFFFFFFD);
	const char *const offsets[] = { "1", "2", "3", "0", "1" };

	EXPECT_EQ(queue->ring.bufferSize, 4u);
	for (const char *offset : offsets) {
		EXPECT_EQ(send(queue, "a"), ok);
		EXPECT_EQ(state(queue)[1], offset);
		EXPECT_EQ(receive(queue, 0, 1), "a");
		EXPECT_EQ(state(queue)[0], offset);
	}

	destroy(queue);
}

TEST_F(MessageSend, TakesAndGivesItsLocksInOrder)
{
	zorva_msg_queue *const queue = create();
	fake::forget_calls();

	send(queue, "m", 250);

	texts order;
	for (const fake::call &each : fake::calls()) {
		if (each.object == &queue->txSem->semaphore)
			order.push_back("tx " + each.text);
		if (each.object == &queue->rxSem->semaphore)
			order.push_back("rx " + each.text);
		if (each.object == &queue->lock->mutex)
			order.push_back(each.text);
		EXPECT_NE(each.object, &zorva_msgq_list_lock);
	}
	EXPECT_EQ(order, texts({ "tx down_timeout 25", "mutex_lock",
				 "mutex_unlock", "rx up" }));
	destroy(queue);
}

TEST_F(MessageSend, StoresAMessageUnderTheQueuesLock)
{
	zorva_msg_queue *const queue = create();
	texts states;
	fake::on_call([&](const fake::call &made) {
		if (made.object == &queue->lock->mutex)
			states.push_back(state(queue)[1] + state(queue)[2]);
	});

	send(queue, "m");

	EXPECT_EQ(states, texts({ "00", "81" }));
	destroy(queue);
}

TEST_F(MessageSend, PassesTheCallersFileAndLineOn)
{
	zorva_msg_queue *const queue = create();

	send(queue, "m", 250);

	EXPECT_EQ(history(queue->txSem), texts{ "0 caller.c:7 at 0 (250)" });
	EXPECT_EQ(history(queue->lock),
		  texts({ "1 caller.c:7 at 0", "0 caller.c:7 at 0" }));
	EXPECT_EQ(history(queue->rxSem), texts{ "1 caller.c:7 at 0 (0)" });
	destroy(queue);
}

TEST_F(MessageSend, FailsAtOnceWhenTheQueueIsFullWithTimeout0)
{
	zorva_msg_queue *const queue = create(1, 8, "frames");
	send(queue, "m");
	new_reports();

	EXPECT_EQ(send(queue, "n", 0), failed);

	EXPECT_EQ(fake::now(), 0);
	EXPECT_EQ(new_reports(),
		  "1 zorva_msgq.cpp zorva_msg_queue_send_track: "
		  "error 0xffffffff\n"
		  "1 zorva_msgq.cpp zorva_msg_queue_send_track: "
		  "send to queue 'frames' failed (0xffffffff, caller.c, 7)\n");
	EXPECT_EQ(state(queue), texts({ "0", "0", "1", "1" }));
	EXPECT_EQ(history(queue->lock).size(), 2u);
	destroy(queue);
}

TEST_F(MessageSend, FailsWhenTheTimeIsUp)
{
	zorva_msg_queue *const queue = create(1, 8, "frames");
	send(queue, "m");
	new_reports();

	EXPECT_EQ(send(queue, "n", 100), timed_out);

	EXPECT_EQ(fake::now(), 100 * msec);
	EXPECT_EQ(new_reports(),
		  "1 zorva_msgq.cpp zorva_msg_queue_send_track: "
		  "error 0x7000002a\n"
		  "1 zorva_msgq.cpp zorva_msg_queue_send_track: "
		  "send to queue 'frames' failed (0x7000002a, caller.c, 7)\n");
	EXPECT_EQ(receive(queue).substr(0, 1), "m");
	EXPECT_EQ(receive(queue), "0xffffffff");
	destroy(queue);
}

TEST_F(MessageSend, WaitsForASlotWithoutLimit)
{
	zorva_msg_queue *const queue = create(1, 1);
	u32 result = 1;
	send(queue, "m");
	const pid_t sender = in_task("sender", [&] {
		result = send(queue, "n", forever);
	});
	fake::sleep_for(100 * sec);
	EXPECT_EQ(fake::blocked_in(sender), "down");

	EXPECT_EQ(receive(queue, 0, 1), "m");
	fake::run_others();

	EXPECT_EQ(result, ok);
	EXPECT_EQ(receive(queue, 0, 1), "n");
	destroy(queue);
}

TEST_F(MessageSend, FailsWithoutAFileAfterItsReport)
{
	zorva_msg_queue *const queue = create(1, 8, "frames");
	new_reports();

	EXPECT_EQ(zorva_msg_queue_send_track(owner, queue, "m", 1, 0, nullptr,
					     7),
		  null_argument);

	EXPECT_EQ(new_reports(),
		  "1 zorva_sem.cpp zorva_sem_take_track: invalid parameter\n"
		  "1 zorva_msgq.cpp zorva_msg_queue_send_track: "
		  "error 0x7e000015\n"
		  "1 zorva_msgq.cpp zorva_msg_queue_send_track: "
		  "send to queue 'frames' failed (0x7e000015, (null), 7)\n");
	destroy(queue);
}

TEST_F(MessageSend, KeepsTheSlotWhenTheLockCannotBeTaken)
{
	zorva_msg_queue *const queue = create(2, 8, "frames");
	zorva_mutex *const lock = queue->lock;
	new_reports();
	queue->lock = nullptr;

	EXPECT_EQ(send(queue, "m"), null_argument);

	EXPECT_EQ(new_reports(),
		  "1 zorva_sem.cpp zorva_mutex_take_track: invalid parameter\n"
		  "1 zorva_msgq.cpp zorva_msg_queue_send_track: "
		  "error 0x7e000015\n"
		  "1 zorva_msgq.cpp zorva_msg_queue_send_track: "
		  "send to queue 'frames' failed (0x7e000015, caller.c, 7)\n");
	EXPECT_EQ(count(queue->txSem), 1u);
	EXPECT_EQ(count(queue->rxSem), 0u);
	EXPECT_EQ(state(queue), texts({ "0", "0", "0", "0" }));
	queue->lock = lock;
	destroy(queue);
}

TEST_F(MessageSend, StoresButDoesNotSignalWhenTheLockCannotBeGiven)
{
	zorva_msg_queue *const queue = create(2, 8, "frames");
	zorva_mutex *const lock = queue->lock;
	new_reports();
	fake::on_call([&](const fake::call &made) {
		if (made.text == "mutex_lock")
			queue->lock = nullptr;
	});

	EXPECT_EQ(send(queue, "m"), null_argument);

	fake::on_call(nullptr);
	EXPECT_EQ(new_reports(),
		  "1 zorva_sem.cpp zorva_mutex_give_track: invalid parameter\n"
		  "1 zorva_msgq.cpp zorva_msg_queue_send_track: "
		  "error 0x7e000015\n"
		  "1 zorva_msgq.cpp zorva_msg_queue_send_track: "
		  "send to queue 'frames' failed (0x7e000015, caller.c, 7)\n");
	EXPECT_EQ(count(queue->rxSem), 0u);
	EXPECT_EQ(state(queue), texts({ "0", "8", "1", "1" }));
	queue->lock = lock;
	zorva_mutex_give_track(owner, lock, "caller.c", 9);
	destroy(queue);
}

TEST_F(MessageSend, FailsWhenItCannotSignal)
{
	zorva_msg_queue *const queue = create(2, 8, "frames");
	zorva_sem *const rx = queue->rxSem;
	new_reports();
	queue->rxSem = nullptr;

	EXPECT_EQ(send(queue, "m"), null_argument);

	EXPECT_EQ(new_reports(),
		  "1 zorva_sem.cpp zorva_sem_give_track: invalid parameter\n"
		  "1 zorva_msgq.cpp zorva_msg_queue_send_track: "
		  "error 0x7e000015\n"
		  "1 zorva_msgq.cpp zorva_msg_queue_send_track: "
		  "send to queue 'frames' failed (0x7e000015, caller.c, 7)\n");
	EXPECT_EQ(state(queue), texts({ "0", "8", "1", "1" }));
	EXPECT_FALSE(mutex_is_locked(&queue->lock->mutex));
	queue->rxSem = rx;
	destroy(queue);
}

/* Receive. */

TEST_F(MessageReceive, RefusesWrongArgumentsInOrder)
{
	zorva_msg_queue *const queue = create();
	char buffer[8];
	const auto with = [](u32 compId, zorva_msg_queue *which, void *to) {
		return [=] {
			return zorva_msg_queue_receive_track(compId, which, to,
							     1, 0, "caller.c",
							     7);
		};
	};
	send(queue, "m");
	new_reports();

	refuses("zorva_msgq.cpp", "zorva_msg_queue_receive_track",
		{ { bad_component, with(0, queue, buffer),
		    with(0, nullptr, nullptr) },
		  { bad_component, with(57, queue, buffer),
		    with(0xFFFFFFFF, nullptr, nullptr) },
		  { null_argument, with(owner, nullptr, buffer),
		    with(owner, nullptr, nullptr) },
		  { null_argument, with(owner, queue, nullptr),
		    with(owner, queue, nullptr) } });

	EXPECT_EQ(state(queue), texts({ "0", "8", "1", "1" }));
	destroy(queue);
}

TEST_F(MessageReceive, ReturnsMessagesInTheOrderOfTheirSending)
{
	zorva_msg_queue *const queue = create(3, 1);
	std::string received;

	for (const char *pair : { "ab", "cd", "ef", "gh" }) {
		send(queue, { pair, 1 });
		send(queue, { pair + 1, 1 });
		received += receive(queue, 0, 1);
		received += receive(queue, 0, 1);
	}

	EXPECT_EQ(received, "abcdefgh");
	destroy(queue);
}

TEST_F(MessageReceive, FreesASlotAndCountsIt)
{
	zorva_msg_queue *const queue = create(3, 8);
	send(queue, "abcdefgh");
	send(queue, "ijklmnop");
	new_reports();

	EXPECT_EQ(receive(queue), "abcdefgh");

	EXPECT_EQ(state(queue), texts({ "8", "16", "1", "2" }));
	EXPECT_EQ(count(queue->txSem), 2u);
	EXPECT_EQ(count(queue->rxSem), 1u);
	EXPECT_EQ(new_reports(), "");
	destroy(queue);
}

TEST_F(MessageReceive, CopiesNoMoreThanTheBufferHolds)
{
	zorva_msg_queue *const queue = create(2, 8);
	send(queue, "abcdefgh");
	send(queue, "ijklmnop");

	EXPECT_EQ(receive(queue, 0, 3), "abc");
	EXPECT_EQ(receive(queue, 0, 10), "ijklmnop##");

	destroy(queue);
}

TEST_F(MessageReceive, TakesAndGivesItsLocksInOrder)
{
	zorva_msg_queue *const queue = create();
	send(queue, "m");
	fake::forget_calls();

	receive(queue, forever);

	texts order;
	for (const fake::call &each : fake::calls()) {
		if (each.object == &queue->txSem->semaphore)
			order.push_back("tx " + each.text);
		if (each.object == &queue->rxSem->semaphore)
			order.push_back("rx " + each.text);
		if (each.object == &queue->lock->mutex)
			order.push_back(each.text);
		EXPECT_NE(each.object, &zorva_msgq_list_lock);
	}
	EXPECT_EQ(order,
		  texts({ "rx down", "mutex_lock", "mutex_unlock", "tx up" }));
	destroy(queue);
}

TEST_F(MessageReceive, PassesTheCallersFileAndLineOn)
{
	zorva_msg_queue *const queue = create();
	send(queue, "m");

	receive(queue, 250);

	EXPECT_EQ(history(queue->rxSem)[0], "0 caller.c:8 at 0 (250)");
	EXPECT_EQ(history(queue->lock)[1], "0 caller.c:8 at 0");
	EXPECT_EQ(history(queue->lock)[0], "1 caller.c:8 at 0");
	EXPECT_EQ(history(queue->txSem)[0], "1 caller.c:8 at 0 (0)");
	destroy(queue);
}

TEST_F(MessageReceive, FailsSilentlyWithoutAMessage)
{
	zorva_msg_queue *const queue = create();
	new_reports();

	EXPECT_EQ(receive(queue, 0), "0xffffffff");
	EXPECT_EQ(fake::now(), 0);
	EXPECT_EQ(receive(queue, 100), "0x7000002a");
	EXPECT_EQ(fake::now(), 100 * msec);

	EXPECT_EQ(new_reports(), "");
	EXPECT_EQ(history(queue->lock), texts());
	EXPECT_EQ(state(queue), texts({ "0", "0", "0", "0" }));
	destroy(queue);
}

TEST_F(MessageReceive, FailsSilentlyWithoutAFileButForTheSemaphore)
{
	zorva_msg_queue *const queue = create();
	char buffer[8];
	new_reports();

	EXPECT_EQ(zorva_msg_queue_receive_track(owner, queue, buffer, 8, 0,
						nullptr, 7),
		  null_argument);

	EXPECT_EQ(new_reports(),
		  "1 zorva_sem.cpp zorva_sem_take_track: invalid parameter\n");
	destroy(queue);
}

TEST_F(MessageReceive, WaitsForAMessageWithoutLimit)
{
	zorva_msg_queue *const queue = create(1, 1);
	std::string received;
	const pid_t receiver = in_task("receiver", [&] {
		received = receive(queue, forever, 1);
	});
	EXPECT_EQ(fake::blocked_in(receiver), "down");

	send(queue, "m");
	fake::run_others();

	EXPECT_EQ(received, "m");
	destroy(queue);
}

TEST_F(MessageReceive, KeepsTheMessageCountedOutWhenTheLockCannotBeTaken)
{
	zorva_msg_queue *const queue = create(2, 8);
	zorva_mutex *const lock = queue->lock;
	send(queue, "m");
	new_reports();
	queue->lock = nullptr;

	EXPECT_EQ(receive(queue), "0x7e000015");

	EXPECT_EQ(new_reports(),
		  "1 zorva_sem.cpp zorva_mutex_take_track: invalid parameter\n"
		  "1 zorva_msgq.cpp zorva_msg_queue_receive_track: "
		  "error 0x7e000015\n");
	EXPECT_EQ(count(queue->rxSem), 0u);
	EXPECT_EQ(count(queue->txSem), 1u);
	EXPECT_EQ(state(queue), texts({ "0", "8", "1", "1" }));
	queue->lock = lock;
	destroy(queue);
}

TEST_F(MessageReceive, FailsWhenTheLockOrASlotCannotBeGiven)
{
	zorva_msg_queue *const queue = create(2, 8);
	zorva_mutex *const lock = queue->lock;
	zorva_sem *const tx = queue->txSem;
	send(queue, "m");
	send(queue, "n");
	new_reports();
	fake::on_call([&](const fake::call &made) {
		if (made.text == "mutex_lock")
			queue->lock = nullptr;
	});

	EXPECT_EQ(receive(queue), "0x7e000015");
	EXPECT_EQ(new_reports(),
		  "1 zorva_sem.cpp zorva_mutex_give_track: invalid parameter\n"
		  "1 zorva_msgq.cpp zorva_msg_queue_receive_track: "
		  "error 0x7e000015\n");
	EXPECT_EQ(count(queue->txSem), 0u);
	EXPECT_EQ(state(queue), texts({ "8", "0", "1", "2" }));

	fake::on_call(nullptr);
	queue->lock = lock;
	zorva_mutex_give_track(owner, lock, "caller.c", 9);
	queue->txSem = nullptr;
	EXPECT_EQ(receive(queue), "0x7e000015");
	EXPECT_EQ(new_reports(),
		  "1 zorva_sem.cpp zorva_sem_give_track: invalid parameter\n"
		  "1 zorva_msgq.cpp zorva_msg_queue_receive_track: "
		  "error 0x7e000015\n");
	EXPECT_EQ(state(queue), texts({ "0", "0", "0", "2" }));

	queue->txSem = tx;
	destroy(queue);
}

/* Of threads that are told to end. */

TEST_F(KilledPeer, GivesASlotBackThatItNeverHad)
{
	zorva_msg_queue *const queue = create(2, 1, "frames");
	send(queue, "a");
	send(queue, "b");

	kill_in([&] {
		send(queue, "n", 100);
	});
	EXPECT_EQ(count(queue->txSem), 1u);
	EXPECT_EQ(send(queue, "c"), ok);

	/* The oldest message is overwritten. */
	EXPECT_EQ(file_text("zorva.msgq"), "Queue Name   : frames\n"
					   "Component ID : 11 (PORT)\n"
					   "Msg Size     : 1 bytes\n"
					   "Max Depth    : 2\n"
					   "Curr Depth   : 3\n"
					   "Max Seen     : 3\n\n");
	for (const char *msg : { "c", "b", "c" })
		EXPECT_EQ(receive(queue, 0, 1), msg);
	EXPECT_EQ(receive(queue, 0, 1), "0xffffffff");
	destroy(queue);
}

TEST_F(KilledPeer, LeavesAMessageThatNobodySent)
{
	zorva_msg_queue *const queue = create(2, 1);
	for (const char *msg : { "a", "b" }) {
		send(queue, msg);
		receive(queue, 0, 1);
	}

	kill_in([&] {
		receive(queue, 100, 1);
	});
	EXPECT_EQ(count(queue->rxSem), 1u);

	/* What the slot held before. */
	EXPECT_EQ(receive(queue, 0, 1), "a");
	EXPECT_EQ(queue->ring.currDepth, -1);
	EXPECT_EQ(zorva_msg_queue_depth(owner, queue), -1);
	EXPECT_EQ(receive(queue, 0, 1), "0xffffffff");
	destroy(queue);
}

/* Between tasks. */

TEST_F(MessageQueue, CarriesAllMessagesBetweenTwoTasks)
{
	zorva_msg_queue *const queue = create(3, 1);
	std::string sent;
	std::string received;
	for (int i = 0; i < 100; ++i)
		sent += static_cast<char>('0' + i % 77);

	fake::start_task("sender", [&] {
		for (char c : sent)
			EXPECT_EQ(send(queue, { &c, 1 }, forever), ok);
	});
	fake::start_task("receiver", [&] {
		while (received.size() < sent.size())
			received += receive(queue, forever, 1);
	});
	fake::run_others();

	EXPECT_EQ(received, sent);
	EXPECT_EQ(count(queue->txSem), 3u);
	EXPECT_EQ(count(queue->rxSem), 0u);
	EXPECT_GE(queue->ring.maxSeen, 1);
	EXPECT_LE(queue->ring.maxSeen, 3);
	destroy(queue);
}

/* A thread that is told to end. */

TEST_F(MessageQueue, EndsASenderInTheNameOfItsCaller)
{
	zorva_msg_queue *const queue = create();
	const texts callers = { "VLAN, zorva_thread.cpp" };
	const auto send_one = [&] {
		zorva_msg_queue_send_track(other, queue, "m", 1, 0, "caller.c",
					   7);
	};

	EXPECT_EQ(ends_in_the_name_of(send_one, "down_trylock",
				      &queue->txSem->semaphore),
		  callers);
	EXPECT_EQ(ends_in_the_name_of(send_one, "mutex_unlock",
				      &queue->lock->mutex),
		  callers);

	destroy(queue);
}

TEST_F(MessageQueue, EndsAReceiverInTheNameOfItsCaller)
{
	zorva_msg_queue *const queue = create();
	const texts callers = { "VLAN, zorva_thread.cpp" };
	const auto receive_one = [&] {
		char buffer[8];

		zorva_msg_queue_receive_track(other, queue, buffer, 8, 0,
					      "caller.c", 7);
	};
	send(queue, "m");
	send(queue, "n");

	EXPECT_EQ(ends_in_the_name_of(receive_one, "down_trylock",
				      &queue->rxSem->semaphore),
		  callers);
	EXPECT_EQ(ends_in_the_name_of(receive_one, "mutex_unlock",
				      &queue->lock->mutex),
		  callers);

	destroy(queue);
}
