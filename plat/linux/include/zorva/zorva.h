/* SPDX-License-Identifier: GPL-2.0 */
/* Everything that the module offers to the firmware's other modules. */
#ifndef ZORVA_ZORVA_H
#define ZORVA_ZORVA_H

#include "types.h"
#include "atomic.h"
#include "components.h"
#include "debug.h"
#include "event.h"
#include "lib.h"
#include "mem.h"
#include "msgq.h"
#include "mutex.h"
#include "netevent.h"
#include "sem.h"
#include "thread.h"
#include "thread_wait.h"
#include "time.h"
#include "timer.h"
#include "wait.h"

#endif
