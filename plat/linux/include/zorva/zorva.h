/* SPDX-License-Identifier: GPL-2.0 */
/* Everything that the module offers to the firmware's other modules. */
#ifndef ZORVA_ZORVA_H
#define ZORVA_ZORVA_H

#include "types.h"
#include "components.h"
#include "debug.h"
#include "lib.h"
#include "mem.h"
#include "time.h"

#endif
