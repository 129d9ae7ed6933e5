/* SPDX-License-Identifier: GPL-2.0 */
/* The link monitor of fw_link.c as logic that knows nothing of the kernel. */
#ifndef LINK_H
#define LINK_H

#include <zorva/zorva.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What the chip tells of the ports 1 to 32: a bit for each that is up. */
typedef u32 (*link_read_fn)(void);

/* Returns 0, or -1 when there is no memory; then nothing was started. */
int link_start(link_read_fn read);
void link_stop(void);

/* How often the links of a port were lost, and how many ports are up. */
u32 link_losses(u32 port);
u32 link_ports_up(void);

#ifdef __cplusplus
}
#endif

#endif
