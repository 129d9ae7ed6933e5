/* SPDX-License-Identifier: GPL-2.0 */
/* Text: report output and the bounded copy. */
#ifndef ZORVA_LIB_H
#define ZORVA_LIB_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

struct seq_file;

/**
 * zorva_proc_printf() - prints into a report file or into the kernel log
 * @seq: the report file; null for the kernel log
 * @format: a format of the kernel's printf family
 *
 * What does not fit the report file's buffer is dropped by the sequence file,
 * which then runs the whole report again with a larger one. Towards the kernel
 * log the text goes out as a continuation, with no level of its own; when
 * there is no memory for that, nothing is printed.
 *
 * Context: Any, also with interrupts off; does not sleep. The debug-print
 * function must not print towards the kernel log so: the text takes a tracked
 * block, and the lock of those may be held then.
 */
void zorva_proc_printf(struct seq_file *seq, const char *format, ...)
	__attribute__((format(printf, 2, 3)));

/**
 * zorva_strlcpy() - copies a text into a buffer of limited size
 * @dst: the buffer; untouched when @size is 0
 * @src: the text, terminated by a zero
 * @size: bytes at @dst
 *
 * At most @size - 1 characters are copied, and always terminated.
 *
 * Context: Any.
 * Return: The length of @src: @size or more means that the copy was cut.
 */
u32 zorva_strlcpy(char *dst, const char *src, u32 size);

#ifdef __cplusplus
}
#endif

#endif
