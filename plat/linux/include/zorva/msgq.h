/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Message queues: fixed-size messages, first in, first out.
 *
 * All calls may sleep and belong in thread context. A queue is made of two
 * semaphores, for which zorva/sem.h tells what time limits and fatal signals
 * come to, and of a mutex, for which the wait has no limit.
 *
 * A thread that uses queues with a time limit should be ended by a message, not
 * by zorva_thread_destroy_track(). A sender that was killed and then ran out of
 * time on a full queue gives back a slot that it never had: the next message is
 * written over the oldest that nobody has read, and the depth exceeds its
 * maximum. A receiver that was killed and then ran out of time on an empty
 * queue makes a later receive return whatever the slot held, and the depth -1.
 */
#ifndef ZORVA_MSGQ_H
#define ZORVA_MSGQ_H

#include "sem.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct zorva_msg_queue zorva_msg_queue_t;

/**
 * zorva_msg_queue_create_track() - makes a message queue
 * @compId: the owner, 1 to 56
 * @name: its name, of which 32 characters are kept; null for the owner's short
 *        name
 * @maxDepth: how many messages it holds, at least 1
 * @msgSize: the size of each in bytes, at least 1
 * @file: not used
 * @line: the caller's line; only names the locks of a queue without a name
 *
 * The product of @maxDepth and @msgSize must fit 32 bits, which is not tested:
 * else the ring is what is left of it, messages share its bytes, and a long
 * one is written past its end.
 * The queue's mutex and semaphores show in the lock reports as "msgq-" and the
 * name (or @line) with the suffixes "-ent", "-tx" (free slots) and "-rx"
 * (stored messages), cut to 31 characters.
 *
 * Context: Thread; may sleep.
 * Return: The queue, or null, which was reported; then nothing was made, but
 * when a semaphore could not be made the queue's mutex stays.
 */
zorva_msg_queue_t *zorva_msg_queue_create_track(u32 compId, const char *name,
						u32 maxDepth, u32 msgSize,
						const char *file, u32 line);
#define zorva_msg_queue_create(compId, name, maxDepth, msgSize)                \
	zorva_msg_queue_create_track(compId, name, maxDepth, msgSize,          \
				     ZORVA_FILE, __LINE__)

/**
 * zorva_msg_queue_delete_track() - frees a message queue
 * @compId: the caller, 1 to 56
 * @queue: the queue
 *
 * Nobody who waits on the queue is woken, and nobody may use it afterwards,
 * which includes a peer that has left its message, or got it, but is still
 * inside its call.
 *
 * Context: Thread; may sleep.
 * Return: %ZORVA_RC_OK: freed. %ZORVA_RC_BAD_COMPONENT or %ZORVA_RC_NULL_ARG
 * (@queue is null): reported, nothing done. Any other: a lock of the queue
 * could not be destroyed; reported, and the queue stays listed without the
 * locks destroyed so far.
 */
u32 zorva_msg_queue_delete_track(u32 compId, zorva_msg_queue_t *queue);
#define zorva_msg_queue_delete(compId, queue)                                  \
	zorva_msg_queue_delete_track(compId, queue)

/**
 * zorva_msg_queue_send_track() - puts a message in, waiting for a free slot
 * @compId: the caller, 1 to 56
 * @queue: the queue
 * @msg: the message
 * @length: its length in bytes; more than the queue's message size is cut,
 *          less leaves the rest of the slot as it was
 * @timeout: milliseconds to wait at most, as for zorva_sem_take_track()
 * @file: basename of the caller's source file
 * @line: the caller's line
 *
 * Context: Thread; sleeps.
 * Return: %ZORVA_RC_OK: the message is in the queue. %ZORVA_RC_BAD_COMPONENT
 * or %ZORVA_RC_NULL_ARG (@queue, @msg or @file is null): reported, nothing
 * done. %ZORVA_RC_TIMEOUT: no slot became free in time. %ZORVA_RC_FAIL: none
 * was free and @timeout is 0. These, a null @file, which the semaphore reports
 * first, and any other code of the locks are reported with the queue's name;
 * what had been taken by then is not given back.
 */
u32 zorva_msg_queue_send_track(u32 compId, zorva_msg_queue_t *queue,
			       const void *msg, u32 length, u32 timeout,
			       const char *file, u32 line);
#define zorva_msg_queue_send(compId, queue, msg, length, timeout)              \
	zorva_msg_queue_send_track(compId, queue, msg, length, timeout,        \
				   ZORVA_FILE, __LINE__)

/**
 * zorva_msg_queue_receive_track() - takes the oldest message, waiting for one
 * @compId: the caller, 1 to 56
 * @queue: the queue
 * @buffer: where to copy the message
 * @length: the bytes there; at most the queue's message size is copied, how
 *          long the message was is not told
 * @timeout: milliseconds to wait at most, as for zorva_sem_take_track()
 * @file: basename of the caller's source file
 * @line: the caller's line
 *
 * Context: Thread; sleeps.
 * Return: %ZORVA_RC_OK: @buffer holds the message. %ZORVA_RC_BAD_COMPONENT or
 * %ZORVA_RC_NULL_ARG (@queue, @buffer or, which the semaphore reports, @file
 * is null): reported, nothing done. %ZORVA_RC_TIMEOUT: no message came in time;
 * not reported. %ZORVA_RC_FAIL: there was none and @timeout is 0; not
 * reported. Any other code of the locks: what had been taken by then is not
 * given back.
 */
u32 zorva_msg_queue_receive_track(u32 compId, zorva_msg_queue_t *queue,
				  void *buffer, u32 length, u32 timeout,
				  const char *file, u32 line);
#define zorva_msg_queue_receive(compId, queue, buffer, length, timeout)        \
	zorva_msg_queue_receive_track(compId, queue, buffer, length, timeout,  \
				      ZORVA_FILE, __LINE__)

/**
 * zorva_msg_queue_depth() - tells how many messages are in a queue
 * @compId: the caller, 1 to 56
 * @queue: the queue
 *
 * Context: Thread; may sleep.
 * Return: The number of messages, or -1: "invalid parameter" was reported.
 */
s32 zorva_msg_queue_depth(u32 compId, zorva_msg_queue_t *queue);

/**
 * zorva_msg_queue_max_depth() - tells a queue's high-water mark
 * @compId: the caller, 1 to 56
 * @queue: the queue
 *
 * Context: Thread; may sleep.
 * Return: The most messages that were ever in the queue at once, or -1:
 * "invalid parameter" was reported.
 */
s32 zorva_msg_queue_max_depth(u32 compId, zorva_msg_queue_t *queue);

#ifdef __cplusplus
}
#endif

#endif
