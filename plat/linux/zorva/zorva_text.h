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

constexpr bool has_zero_byte(u32 word)
{
	return (word - 0x01010101) & ~word & 0x80808080;
}

/*
 * Copies the words of a file's name up to the one with its end. That one may
 * reach beyond the text, but not into another page; what lies there is copied
 * and never looked at.
 */
__attribute__((no_sanitize_address)) inline void copy_words(u32 *to,
							    const u32 *from)
{
#pragma GCC unroll 4
	for (u32 i = 0; i < file_size / sizeof(u32); ++i) {
		const u32 word = from[i];

		to[i] = word;
		if (has_zero_byte(word))
			break;
	}
}

/*
 * Keeps the name of a caller's file, cut to 15 characters. The field is
 * aligned to a word; its bytes behind the end are of no meaning.
 */
[[gnu::always_inline]] inline void copy_file(char (&dst)[file_size],
					     const char *file)
{
	if (unlikely(!is_text(file) ||
		     reinterpret_cast<uintptr_t>(file) % sizeof(u32) != 0)) {
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
