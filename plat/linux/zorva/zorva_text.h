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

/* A text that can be read by words. */
inline bool is_in_words(const char *text)
{
	return is_text(text) &&
	       reinterpret_cast<uintptr_t>(text) % sizeof(u32) == 0;
}

/* Has the compiler keep a constant, which it would else make anew each time. */
[[gnu::always_inline]] inline u32 kept_constant(u32 value)
{
	__asm__ inline("" : "+r"(value));
	return value;
}

/*
 * Copies the words of a file's name up to the one with its end, and no more
 * characters than are kept. What lies behind the end in its word is copied and
 * never looked at.
 */
template <u32 kept = file_size - 1>
[[gnu::no_sanitize_address]] inline void copy_words(char (&dst)[file_size],
						    const char *file)
{
	u32 *const to = reinterpret_cast<u32 *>(dst);
	const u32 *const from = reinterpret_cast<const u32 *>(file);
	constexpr u32 last = file_size / sizeof(u32) - 1;
	const u32 ones = kept_constant(0x01010101);
	const u32 tops = kept_constant(0x80808080);

#pragma GCC unroll 4
	for (u32 i = 0; i < last; ++i) {
		const u32 word = from[i];
		/* Set for a zero byte, and for some beyond 0x80. */
		const u32 marks = (word - ones) & tops;

		to[i] = word;
		if (unlikely(marks) && (marks & ~word))
			return;
	}
	to[last] = from[last];
	for (u32 i = kept; i < file_size; ++i)
		dst[i] = '\0';
}

/*
 * Keeps the name of a caller's file, cut to 15 characters or to fewer. The
 * field is aligned to a word; its bytes behind the end are of no meaning.
 */
template <u32 kept = file_size - 1>
[[gnu::always_inline]] inline void copy_file(char (&dst)[file_size],
					     const char *file)
{
	if (likely(is_in_words(file)))
		copy_words<kept>(dst, file);
	else
		copy_text(dst, file, kept + 1);
}

inline constexpr u32 name_size = 32;

/*
 * Writes an object's name: the given one, or the owner's short name, a dash
 * and the caller's line.
 */
void name_object(char (&name)[name_size], const char *given, u32 compId,
		 u32 line);

#endif
