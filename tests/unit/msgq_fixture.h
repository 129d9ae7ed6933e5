/* SPDX-License-Identifier: GPL-2.0 */
/* Message queues as their tests see them. */
#ifndef MSGQ_FIXTURE_H
#define MSGQ_FIXTURE_H

#include "lock_fixture.h"
#include "zorva_msgq.h"

inline constexpr u32 forever = 0xFFFFFFFF;

class MessageQueue : public LockTest {
protected:
	static std::string said_of_queue(const std::string &call,
					 const std::string &name,
					 const std::string &done)
	{
		return "3 zorva_msgq.cpp zorva_msg_queue_" + call +
		       "_track: MsgQ '" + name + "' has been " + done + "\n";
	}

	static zorva_msg_queue *create(u32 depth = 3, u32 size = 8,
				       const char *name = "q")
	{
		const auto call = [&] {
			return zorva_msg_queue_create_track(owner, name, depth,
							    size, "caller.c",
							    120);
		};

		return reported(call, [](const zorva_msg_queue *queue) {
			return said_of_mutex(queue->lock->name) +
			       said_of_sem(queue->txSem->name) +
			       said_of_sem(queue->rxSem->name) +
			       said_of_queue("create", queue->name, "created");
		});
	}

	static u32 send(zorva_msg_queue *queue, const std::string &msg,
			u32 timeout = 0)
	{
		return silently([&] {
			return zorva_msg_queue_send_track(owner, queue,
							  msg.data(),
							  msg.size(), timeout,
							  "caller.c", 7);
		});
	}

	/* The bytes that a receive wrote, or its error as text. */
	static std::string receive(zorva_msg_queue *queue, u32 timeout = 0,
				   u32 length = 8)
	{
		std::string buffer(length, '#');
		const u32 error = silently([&] {
			return zorva_msg_queue_receive_track(owner, queue,
							     buffer.data(),
							     length, timeout,
							     "caller.c", 8);
		});

		return error ? fake::format("0x%x", error) : buffer;
	}

	static u32 count(const zorva_sem *sem)
	{
		return zk_sema_count(&sem->semaphore);
	}

	static s32 depth(zorva_msg_queue *queue, u32 compId = owner)
	{
		return silently([&] {
			return zorva_msg_queue_depth(compId, queue);
		});
	}

	static s32 max_depth(zorva_msg_queue *queue, u32 compId = owner)
	{
		return silently([&] {
			return zorva_msg_queue_max_depth(compId, queue);
		});
	}

	void destroy(zorva_msg_queue *queue)
	{
		const std::string expected =
			said_of_mutex(queue->lock->name, "destroyed") +
			said_of_sem(queue->txSem->name, "destroyed") +
			said_of_sem(queue->rxSem->name, "destroyed") +
			said_of_queue("delete", queue->name, "deleted");
		const auto call = [&] {
			return zorva_msg_queue_delete_track(owner, queue);
		};

		EXPECT_EQ(reported(call, expected), ok);
		new_reports();
	}

	/* The ring's numbers: read and write offset, depth, highest depth. */
	static texts state(const zorva_msg_queue *queue)
	{
		texts numbers;

		for (u32 number :
		     { queue->ring.readOffset, queue->ring.writeOffset,
		       static_cast<u32>(queue->ring.currDepth),
		       static_cast<u32>(queue->ring.maxSeen) })
			numbers.push_back(std::to_string(number));
		return numbers;
	}
};

#endif
