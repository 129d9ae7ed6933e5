// SPDX-License-Identifier: GPL-2.0
/*
 * Message queues: a ring of slots under a tracked mutex, and two tracked
 * semaphores that count what senders and receivers wait for.
 *
 * A queue's semaphore is taken before its mutex, and the mutex is given before
 * the other semaphore. zorva_msgq_list_lock guards the list of queues only; no
 * lock of a queue is taken under it. The report copies what it shows under it,
 * and prints outside; when there is no memory for that, it prints under it.
 */
#include "zorva_msgq.h"
#include "zorva_debug.h"
#include "zorva_guard.h"
#include "zorva_snapshot.h"
#include "zorva_text.h"
#include "zorva/mem.h"

namespace
{

/* From here on codes are the caller's own errors, and not logged again. */
constexpr s32 caller_errors = 0x7E000020;

constexpr bool is_logged(u32 error)
{
	return static_cast<s32>(error) < caller_errors;
}

static_assert(is_logged(0xFFFFFFFF) && is_logged(0x7E00001F) &&
	      !is_logged(0x7E000020));

constexpr u32 smaller(u32 a, u32 b)
{
	return a < b ? a : b;
}

/*
 * The ring of a queue. It lies first in a tracked block, and so is aligned to
 * a word, which the compiler cannot know of a packed record.
 */
msg_ring &ring_of(zorva_msg_queue *queue)
{
	return *reinterpret_cast<msg_ring *>(queue);
}

const msg_ring &ring_of(const zorva_msg_queue *queue)
{
	return *reinterpret_cast<const msg_ring *>(queue);
}

/* The names of a queue's locks, cut where they do not fit. */
struct lock_names {
	char mutex[name_size];
	char tx[name_size];
	char rx[name_size];

	lock_names(const char *name, u32 line)
	{
		char base[name_size];

		if (name)
			snprintf(base, sizeof(base), "msgq-%s", name);
		else
			snprintf(base, sizeof(base), "msgq-%u", line);
		snprintf(mutex, sizeof(mutex), "%s-ent", base);
		snprintf(tx, sizeof(tx), "%s-tx", base);
		snprintf(rx, sizeof(rx), "%s-rx", base);
	}
};

void free_queue(u32 compId, zorva_msg_queue *queue)
{
	zorva_free(compId, ring_of(queue).buffer);
	zorva_free(compId, queue);
}

/*
 * Moves an offset one slot on. The ring may be smaller than a slot, when its
 * size did not fit 32 bits; divided is only where it ends.
 */
u32 next_slot(const msg_ring &ring, u32 offset)
{
	offset += ring.msgSize;
	return offset < ring.bufferSize ? offset : offset % ring.bufferSize;
}

void put_message(msg_ring &ring, const void *msg, u32 length)
{
	memcpy(ring.buffer + ring.writeOffset, msg,
	       smaller(length, ring.msgSize));
	ring.writeOffset = next_slot(ring, ring.writeOffset);
	const s32 depth = ring.currDepth + 1;

	/*
	 * A report may be reading both, this one first: it shows no depth above
	 * the highest. Where nobody comes in between, this order is shorter.
	 */
	if (!zk_interleaves())
		ring.currDepth = depth;
	if (ring.maxSeen < depth)
		write_once(ring.maxSeen, depth);
	if (zk_interleaves())
		store_release(ring.currDepth, depth);
}

void get_message(msg_ring &ring, void *buffer, u32 length)
{
	memcpy(buffer, ring.buffer + ring.readOffset,
	       smaller(length, ring.msgSize));
	ring.readOffset = next_slot(ring, ring.readOffset);
	write_once(ring.currDepth, ring.currDepth - 1);
}

/* Sends; what was taken before a lock call failed is meant to stay taken. */
u32 send(u32 compId, zorva_msg_queue *queue, const void *msg, u32 length,
	 u32 timeout, const char *file, u32 line)
{
	u32 error =
		zorva_sem_take_track(compId, queue->txSem, timeout, file, line);

	if (error)
		return error;
	error = zorva_mutex_take_track(compId, queue->lock, file, line);
	if (error)
		return error;
	put_message(ring_of(queue), msg, length);
	error = zorva_mutex_give_track(compId, queue->lock, file, line);
	if (error)
		return error;
	return zorva_sem_give_track(compId, queue->rxSem, file, line);
}

/* Receives once a message is there; leaves what it took as send() does. */
u32 receive(u32 compId, zorva_msg_queue *queue, void *buffer, u32 length,
	    const char *file, u32 line)
{
	u32 error = zorva_mutex_take_track(compId, queue->lock, file, line);

	if (error)
		return error;
	get_message(ring_of(queue), buffer, length);
	error = zorva_mutex_give_track(compId, queue->lock, file, line);
	if (error)
		return error;
	return zorva_sem_give_track(compId, queue->txSem, file, line);
}

/* Destroys the locks of a queue, up to the first that refuses. */
u32 destroy_locks(u32 compId, zorva_msg_queue *queue)
{
	u32 error = zorva_mutex_destroy(compId, queue->lock);

	if (error)
		return error;
	error = zorva_sem_destroy(compId, queue->txSem);
	if (error)
		return error;
	return zorva_sem_destroy(compId, queue->rxSem);
}

} // namespace

[[gnu::cold]] zorva_msg_queue_t *
zorva_msg_queue_create_track(u32 compId, const char *name, u32 maxDepth,
			     u32 msgSize, const char *, u32 line)
{
	ZORVA_CHECK(compId != 0, nullptr);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, nullptr);
	ZORVA_CHECK(maxDepth != 0, nullptr);
	ZORVA_CHECK(msgSize != 0, nullptr);

	auto *const queue = static_cast<zorva_msg_queue *>(
		zorva_malloc(compId, sizeof(zorva_msg_queue)));

	if (!queue) {
		ZORVA_ERROR("allocate memory failed.(%u bytes)",
			    static_cast<u32>(sizeof(zorva_msg_queue)));
		return nullptr;
	}

	const lock_names names(name, line);

	copy_text(queue->name, name ? name : _componentName[compId],
		  sizeof(queue->name));

	msg_ring &ring = ring_of(queue);

	ring.component = compId;
	ring.maxDepth = maxDepth;
	ring.msgSize = msgSize;
	ring.bufferSize = maxDepth * msgSize;
	ring.buffer =
		static_cast<char *>(zorva_malloc(compId, ring.bufferSize));
	if (!ring.buffer) {
		ZORVA_ERROR("allocate memory failed.(%u bytes)",
			    ring.bufferSize);
		zorva_free(compId, queue);
		return nullptr;
	}
	queue->lock = zorva_mutex_create(compId, names.mutex);
	if (!queue->lock) {
		ZORVA_ERROR("create mutex failed.");
		free_queue(compId, queue);
		return nullptr;
	}
	queue->txSem = zorva_sem_create(compId, names.tx, maxDepth);
	queue->rxSem = zorva_sem_create(compId, names.rx, 0);
	if (!queue->txSem || !queue->rxSem) {
		/* The text, and the mutex that stays, are meant to be so. */
		ZORVA_ERROR("create mutex failed.");
		zorva_sem_destroy(compId, queue->txSem);
		zorva_sem_destroy(compId, queue->rxSem);
		free_queue(compId, queue);
		return nullptr;
	}
	{
		const mutex_guard lock(zorva_msgq_list_lock);

		zk_list_add_tail_unaligned(queue->link, &zorva_msgq_list);
	}
	ZORVA_INFO("MsgQ '%s' has been created", queue->name);
	return queue;
}

[[gnu::cold]] u32 zorva_msg_queue_delete_track(u32 compId,
					       zorva_msg_queue_t *queue)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(queue, ZORVA_RC_NULL_ARG);

	const u32 error = destroy_locks(compId, queue);

	if (error) {
		ZORVA_ERROR("error 0x%x", error);
		return error;
	}
	{
		const mutex_guard lock(zorva_msgq_list_lock);

		zk_list_del_unaligned(queue->link);
	}
	ZORVA_INFO("MsgQ '%s' has been deleted", queue->name);
	free_queue(compId, queue);
	return ZORVA_RC_OK;
}

u32 zorva_msg_queue_send_track(u32 compId, zorva_msg_queue_t *queue,
			       const void *msg, u32 length, u32 timeout,
			       const char *file, u32 line)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(queue, ZORVA_RC_NULL_ARG);
	ZORVA_CHECK(msg, ZORVA_RC_NULL_ARG);

	const u32 error = send(compId, queue, msg, length, timeout, file, line);

	if (likely(!error))
		return ZORVA_RC_OK;
	if (is_logged(error))
		ZORVA_ERROR("error 0x%x", error);
	ZORVA_ERROR("send to queue '%s' failed (0x%x, %s, %u)", queue->name,
		    error, file, line);
	return error;
}

u32 zorva_msg_queue_receive_track(u32 compId, zorva_msg_queue_t *queue,
				  void *buffer, u32 length, u32 timeout,
				  const char *file, u32 line)
{
	ZORVA_CHECK(compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK(queue, ZORVA_RC_NULL_ARG);
	ZORVA_CHECK(buffer, ZORVA_RC_NULL_ARG);

	/* Finding no message is not worth a report, unlike finding no slot. */
	u32 error =
		zorva_sem_take_track(compId, queue->rxSem, timeout, file, line);

	if (error)
		return error;
	error = receive(compId, queue, buffer, length, file, line);
	if (unlikely(error && is_logged(error)))
		ZORVA_ERROR("error 0x%x", error);
	return error;
}

namespace
{

/* Reads one of a queue's depths under the queue's lock. */
s32 read_locked(u32 compId, zorva_msg_queue *queue, s32 msg_ring::*depth)
{
	zorva_mutex_take(compId, queue->lock);

	const s32 value = ring_of(queue).*depth;

	zorva_mutex_give(compId, queue->lock);
	return value;
}

} // namespace

s32 zorva_msg_queue_depth(u32 compId, zorva_msg_queue_t *queue)
{
	ZORVA_CHECK(compId != 0, -1);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, -1);
	ZORVA_CHECK(queue, -1);

	return read_locked(compId, queue, &msg_ring::currDepth);
}

s32 zorva_msg_queue_max_depth(u32 compId, zorva_msg_queue_t *queue)
{
	ZORVA_CHECK(compId != 0, -1);
	ZORVA_CHECK(compId < ZORVA_COMPONENTS, -1);
	ZORVA_CHECK(queue, -1);

	return read_locked(compId, queue, &msg_ring::maxSeen);
}

namespace
{

/* What the report shows of a queue. */
struct queue_view {
	u32 component;
	u32 maxDepth;
	u32 msgSize;
	s32 currDepth;
	s32 maxSeen;
	char name[sizeof(zorva_msg_queue::name)];
};

unsigned long lock_queues()
{
	zk_mutex_lock(&zorva_msgq_list_lock);
	return 0;
}

void unlock_queues(unsigned long)
{
	mutex_unlock(&zorva_msgq_list_lock);
}

void *next_queue(void *last)
{
	const void *const before =
		last ? static_cast<const zorva_msg_queue *>(last)->link
		     : static_cast<const void *>(&zorva_msgq_list);
	void *const link = zk_list_next_unaligned(before);

	return link == &zorva_msgq_list
		       ? nullptr
		       : container_of(link, zorva_msg_queue, link);
}

void copy_queue(void *copy, void *listed)
{
	auto &view = *static_cast<queue_view *>(copy);
	const auto *const queue = static_cast<const zorva_msg_queue *>(listed);

	const msg_ring &ring = ring_of(queue);

	view.component = ring.component;
	view.maxDepth = ring.maxDepth;
	view.msgSize = ring.msgSize;
	/* The queue's lock is not held. */
	view.currDepth = load_acquire(ring.currDepth);
	view.maxSeen = read_once(ring.maxSeen);
	memcpy(view.name, queue->name, sizeof(view.name));
}

bool print_queue(struct seq_file *seq, const void *copy)
{
	const auto &view = *static_cast<const queue_view *>(copy);

	zorva_proc_printf(seq, "Queue Name   : %.33s\n", view.name);
	zorva_proc_printf(seq, "Component ID : %u (%s)\n", view.component,
			  _componentName[view.component]);
	zorva_proc_printf(seq, "Msg Size     : %u bytes\n", view.msgSize);
	zorva_proc_printf(seq, "Max Depth    : %u\n", view.maxDepth);
	zorva_proc_printf(seq, "Curr Depth   : %d\n", view.currDepth);
	zorva_proc_printf(seq, "Max Seen     : %d\n\n", view.maxSeen);
	return true;
}

constexpr report_source queues = {
	sizeof(queue_view), lock_queues, unlock_queues, next_queue,
	copy_queue,	    print_queue, nullptr
};

} // namespace

int zorva_msg_queue_dump(struct seq_file *seq)
{
	show_all(seq, queues);
	return 0;
}
