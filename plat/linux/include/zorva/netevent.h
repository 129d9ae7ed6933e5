/* SPDX-License-Identifier: GPL-2.0 */
/* Subscriptions to the kernel's network events. */
#ifndef ZORVA_NETEVENT_H
#define ZORVA_NETEVENT_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The kernel's notifier block: the handle of a subscription. */
struct notifier_block;

/**
 * zorva_netevent_ntfy_register() - subscribes a function to network events
 * @compId: the owner, 1 to 56, who is charged for the handle
 * @notify: the function: it is given the handle, the kernel's number of the
 *          event (NETEVENT_NEIGH_UPDATE and so on) and the event's data, and
 *          returns a notifier result. The kernel calls it on its own path,
 *          which may be a soft interrupt: it must not sleep.
 *
 * A function may be subscribed more than once; it is then called as often.
 *
 * Context: Thread.
 * Return: The handle, or null, which was reported: nothing is subscribed.
 */
struct notifier_block *
zorva_netevent_ntfy_register(u32 compId,
			     int (*notify)(struct notifier_block *handle,
					   unsigned long event, void *data));

/**
 * zorva_netevent_ntfy_unregister() - withdraws a subscription
 * @compId: the owner given at the subscription, 1 to 56
 * @handle: the handle; freed on success
 *
 * Context: Thread; may sleep until no call of the function is under way.
 * Return: %ZORVA_RC_OK: withdrawn. %ZORVA_RC_BAD_COMPONENT or
 * %ZORVA_RC_NULL_ARG (@handle is null): reported, nothing done.
 * %ZORVA_RC_FAIL: the kernel does not know the handle; reported, and the
 * handle's memory stays allocated.
 */
u32 zorva_netevent_ntfy_unregister(u32 compId, struct notifier_block *handle);

#ifdef __cplusplus
}
#endif

#endif
