/* SPDX-License-Identifier: GPL-2.0 */
/* Component IDs: which part of the firmware owns an object. */
#ifndef ZORVA_COMPONENTS_H
#define ZORVA_COMPONENTS_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The list of components. A firmware's build replaces it with its own by
 * defining this macro for the module and for every user of the headers alike.
 */
#ifndef ZORVA_COMPONENT_LIST
#define ZORVA_COMPONENT_LIST <zorva/components.def>
#endif

/* Every row of the list as an ID: ZORVA_COMP_PORT and so on. */
enum zorva_component {
#define ZORVA_COMPONENT(id, name, ...) ZORVA_COMP_##name = (id),
#include ZORVA_COMPONENT_LIST
#undef ZORVA_COMPONENT
};

/*
 * Valid owners are the IDs 1 to ZORVA_COMPONENTS - 1. 0 and ZORVA_COMPONENTS
 * are the rows "FIRST" and "LAST", which own nothing and are refused.
 */
#define ZORVA_COMPONENTS 57u
/* The ID of this module itself. */
#define ZORVA_COMPONENT_SELF 9u

/* The short name of every row, by component ID, both ends included. */
extern const char *const _componentName[ZORVA_COMPONENTS + 1];

#ifdef __cplusplus
}
#endif

#endif
