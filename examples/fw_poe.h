/* SPDX-License-Identifier: GPL-2.0 */
/* What the two parts of fw_poe know of each other, in C and in C++. */
#ifndef FW_POE_H
#define FW_POE_H

#include <zorva/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The C++ part, fw_poe_cxx.cpp. */

/**
 * fw_poe_start() - begins to grant power
 * @budget: what there is for all ports, in milliwatts
 *
 * Context: Thread; sleeps.
 * Return: Whether it has begun; if not, nothing is left.
 */
int fw_poe_start(u32 budget);

/**
 * fw_poe_stop() - ends what fw_poe_start() has begun
 *
 * Context: Thread; sleeps until the thread is gone.
 */
void fw_poe_stop(void);

/**
 * fw_poe_ask() - asks for power
 * @port: the port, 1 to 8
 * @milliwatts: how much it wants from now on; 0 for none
 *
 * Context: Thread; sleeps.
 * Return: Whether the port exists and the request was taken; it is granted
 * some time later, or not.
 */
int fw_poe_ask(u32 port, u32 milliwatts);

/**
 * fw_poe_granted() - tells how much power all ports have
 *
 * Context: Thread; may sleep.
 * Return: Milliwatts.
 */
u32 fw_poe_granted(void);

/* The C part, fw_poe_kernel.c: what only the kernel's headers can say. */

/**
 * fw_poe_refused() - tells the log that a request was refused
 * @port: the port
 * @milliwatts: how much it wanted
 *
 * Context: Thread.
 */
void fw_poe_refused(u32 port, u32 milliwatts);

/**
 * fw_poe_wait_for() - waits until a thread has ended
 * @pid: its PID; 0 for none
 *
 * Context: Thread; sleeps.
 */
void fw_poe_wait_for(u32 pid);

#ifdef __cplusplus
}
#endif

#endif
