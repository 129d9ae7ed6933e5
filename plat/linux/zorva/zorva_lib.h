/* SPDX-License-Identifier: GPL-2.0 */
/* Text helpers of the module beyond the exported ones. */
#ifndef ZORVA_LIB_PRIVATE_H
#define ZORVA_LIB_PRIVATE_H

#include "zk.h"
#include "zorva/lib.h"

extern "C" {

/*
 * Appends a text to one in a buffer of limited size. Returns the length that
 * the whole would have, or size + strlen(src) when dst has no end.
 */
u32 strlcat(char *dst, const char *src, u32 size);
}

/*
 * Writes the bytes that snprintf(dst, size, "%s", text) would write, without
 * its cost. The size is at least 1.
 */
void copy_text(char *dst, const char *text, u32 size);

/*
 * Writes an object's name: the given one, or the owner's short name, a dash
 * and the caller's line.
 */
inline constexpr u32 name_size = 32;
void name_object(char (&name)[name_size], const char *given, u32 compId,
		 u32 line);

#endif
