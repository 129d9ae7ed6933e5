/* SPDX-License-Identifier: GPL-2.0 */
/* The component tables that only the firmware itself reads. */
#ifndef ZORVA_COMP_H
#define ZORVA_COMP_H

#include "zk.h"
#include "zorva/components.h"

inline constexpr u32 sub_components = 32;

/* One row for each component ID from 0 to 56; an empty slot is null. */
struct sub_component_table {
	const char *names[ZORVA_COMPONENTS][sub_components];
};

extern "C" {
extern const char *const _componentDesc[ZORVA_COMPONENTS + 1];
extern const u32 _numOfCompName;
extern const u32 _numOfCompDesc;
extern const sub_component_table _subComponentName;
}

#endif
