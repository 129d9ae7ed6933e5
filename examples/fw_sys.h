/* SPDX-License-Identifier: GPL-2.0 */
/* System services of the example firmware. */
#ifndef FW_SYS_H
#define FW_SYS_H

#include <zorva/zorva.h>

/**
 * fw_flash() - the right to write into the flash
 *
 * Context: Any.
 * Return: A semaphore of one unit, which a writer takes and gives back; it
 * stays while a module that uses it is loaded.
 */
zorva_sem_t *fw_flash(void);

#endif
