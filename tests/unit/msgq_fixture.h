/* SPDX-License-Identifier: GPL-2.0 */
/* Message queues as their tests see them. */
#ifndef MSGQ_FIXTURE_H
#define MSGQ_FIXTURE_H

#include "lock_fixture.h"
#include "zorva_msgq.h"

inline constexpr u32 forever = 0xFFFFFFFF;

class MessageQueue : public LockTest {
protected:
	static zorva_msg_queue *create(u32 depth = 3, u32 size = 8,
				       const char *name = "q")
	{
		return zorva_msg_queue_create_track(owner, name, depth, size,
						    "caller.c", 120);
	}

	static u32 send(zorva_msg_queue *queue, const std::string &msg,
			u32 timeout = 0)
	{
		return zorva_msg_queue_send_track(owner, queue, msg.data(),
						  msg.size(), timeout,
						  "caller.c", 7);
	}

	/* The bytes that a receive wrote, or its error as text. */
	static std::string receive(zorva_msg_queue *queue, u32 timeout = 0,
				   u32 length = 8)
	{
		std::string buffer(length, '#');
		const u32 error = zorva_msg_queue_receive_track(owner, queue,
								buffer.data(),
								length, timeout,
								"caller.c", 8);

		return error ? fake::format("0x%x", error) : buffer;
	}

	static u32 count(const zorva_sem *sem)
	{
		return zk_sema_count(&sem->semaphore);
	}

	void destroy(zorva_msg_queue *queue)
	{
		new_reports();
		EXPECT_EQ(zorva_msg_queue_delete_track(owner, queue), ok);
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
