// SPDX-License-Identifier: GPL-2.0
/*
 * Bounded copies, and the names of objects. All of it is reentrant: there is
 * no state, and so no lock.
 */
#include "zorva_text.h"
#include "zorva/components.h"

namespace
{

/*
 * Copies a text, its end included, to an output position that moves only
 * while there is room: with none left, it stays on the last byte, which every
 * later character overwrites. Returns the text's length.
 */
u32 copy_while_room(char *out, const char *text, u32 room)
{
	const char *in = text;

	while ((*out = *in) != '\0') {
		++in;
		if (room) {
			--room;
			++out;
		}
	}
	return in - text;
}

} // namespace

void copy_text(char *dst, const char *text, u32 size)
{
	if (unlikely(!is_text(text))) {
		snprintf(dst, size, "%s", text);
		return;
	}
	while (--size && *text)
		*dst++ = *text++;
	*dst = '\0';
}

void name_object(char (&name)[name_size], const char *given, u32 compId,
		 u32 line)
{
	if (given)
		copy_text(name, given, name_size);
	else
		snprintf(name, name_size, "%s-%u", _componentName[compId],
			 line);
}

u32 zorva_strlcpy(char *dst, const char *src, u32 size)
{
	char scratch;

	if (!size)
		return copy_while_room(&scratch, src, 0);
	return copy_while_room(dst, src, size - 1);
}

u32 strlcat(char *dst, const char *src, u32 size)
{
	u32 length = 0;
	char scratch;

	while (length < size && dst[length])
		++length;
	if (length == size)
		return length + copy_while_room(&scratch, src, 0);
	return length + copy_while_room(dst + length, src, size - length - 1);
}
