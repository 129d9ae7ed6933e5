/* SPDX-License-Identifier: GPL-2.0 */
/* Bounded copies, names and files: what every service uses. */
#ifndef ZORVA_TEXT_H
#define ZORVA_TEXT_H

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

inline constexpr u32 file_size = 16;

/* False for null and error pointers: the kernel has words for those. */
inline bool is_text(const char *text)
{
	return reinterpret_cast<uintptr_t>(text) - ZK_PAGE_SIZE <
	       -static_cast<uintptr_t>(2 * ZK_PAGE_SIZE);
}

/*
 * True where the name of a file can be copied by words, as many as fit the
 * field: what lies behind its end may be anything, but not another page.
 */
inline bool is_wordwise(const char *file)
{
	const u32 in_page = reinterpret_cast<uintptr_t>(file) % ZK_PAGE_SIZE;

	/* As a number of words; what is between two is more than all. */
	return (in_page >> 2 | in_page << 30) <=
	       (ZK_PAGE_SIZE - file_size) / sizeof(u32);
}

/* What lies behind the text is copied, and never looked at. */
__attribute__((no_sanitize_address)) inline void copy_words(u32 *to,
							    const u32 *from)
{
	const u32 first = from[0], second = from[1];
	const u32 third = from[2], fourth = from[3];

	to[0] = first;
	to[1] = second;
	to[2] = third;
	to[3] = fourth;
}

/*
 * Keeps the name of a caller's file, cut to 15 characters. The field is
 * aligned to a word; its bytes behind the end are of no meaning.
 */
[[gnu::always_inline]] inline void copy_file(char (&dst)[file_size],
					     const char *file)
{
	if (unlikely(!is_text(file) || !is_wordwise(file))) {
		copy_text(dst, file, file_size);
		return;
	}
	copy_words(reinterpret_cast<u32 *>(dst),
		   reinterpret_cast<const u32 *>(file));
	dst[file_size - 1] = '\0';
}

inline constexpr u32 name_size = 32;

/*
 * Writes an object's name: the given one, or the owner's short name, a dash
 * and the caller's line.
 */
void name_object(char (&name)[name_size], const char *given, u32 compId,
		 u32 line);

#endif
