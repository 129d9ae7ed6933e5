// SPDX-License-Identifier: GPL-2.0
/*
 * The component tables, made from the list of components and checked while
 * they are compiled. They are constant: nothing guards them.
 */
#include "zorva_comp.h"

namespace
{

struct component {
	u32 id;
	const char *name;
	const char *desc;
	const char *sub[sub_components];
};

constexpr component components[] = {
#define ZORVA_COMPONENT(id, name, desc, ...)                                   \
	{ id, #name, desc, { __VA_ARGS__ } },
#include ZORVA_COMPONENT_LIST
#undef ZORVA_COMPONENT
};

constexpr u32 rows = sizeof(components) / sizeof(components[0]);

static_assert(rows == ZORVA_COMPONENTS + 1,
	      "the list of components must have 58 rows, 0 to 57");

constexpr bool same_text(const char *a, const char *b)
{
	while (*a && *a == *b) {
		++a;
		++b;
	}
	return *a == *b;
}

constexpr bool rows_in_order()
{
	for (u32 i = 0; i < rows; ++i)
		if (components[i].id != i)
			return false;
	return true;
}

/* At most 7 characters, so that a column of 8 keeps its gap. */
constexpr bool short_names_fit()
{
	for (const component &row : components) {
		u32 length = 0;

		for (const char *c = row.name; *c; ++c, ++length)
			if (!(*c >= 'A' && *c <= 'Z') &&
			    !(*c >= '0' && *c <= '9'))
				return false;
		if (length == 0 || length > 7)
			return false;
	}
	return true;
}

constexpr bool has_no_parts(const component &row)
{
	return !row.sub[0];
}

static_assert(rows_in_order(),
	      "the rows of the list must be in the order of their IDs");
static_assert(short_names_fit(),
	      "short names have 1 to 7 upper-case letters or digits");
static_assert(same_text(components[0].name, "FIRST") &&
		      same_text(components[0].desc, "First") &&
		      has_no_parts(components[0]),
	      "row 0 is FIRST, \"First\", without sub-components");
static_assert(same_text(components[ZORVA_COMPONENT_SELF].name, "ZORVA") &&
		      same_text(components[ZORVA_COMPONENT_SELF].desc,
				"ZORVA") &&
		      has_no_parts(components[ZORVA_COMPONENT_SELF]),
	      "row 9 is ZORVA, \"ZORVA\", without sub-components");
static_assert(same_text(components[ZORVA_COMPONENTS].name, "LAST") &&
		      same_text(components[ZORVA_COMPONENTS].desc, "LAST") &&
		      has_no_parts(components[ZORVA_COMPONENTS]),
	      "row 57 is LAST, \"LAST\", without sub-components");

constexpr sub_component_table sub_component_names()
{
	sub_component_table table = {};

	for (u32 i = 0; i < ZORVA_COMPONENTS; ++i)
		for (u32 j = 0; j < sub_components; ++j)
			table.names[i][j] = components[i].sub[j];
	return table;
}

} // namespace

const char *const _componentName[] = {
#define ZORVA_COMPONENT(id, name, ...) #name,
#include ZORVA_COMPONENT_LIST
#undef ZORVA_COMPONENT
};

const char *const _componentDesc[] = {
#define ZORVA_COMPONENT(id, name, desc, ...) desc,
#include ZORVA_COMPONENT_LIST
#undef ZORVA_COMPONENT
};

const u32 _numOfCompName = rows;
const u32 _numOfCompDesc = rows;

constinit const sub_component_table _subComponentName = sub_component_names();
