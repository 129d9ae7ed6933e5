/* SPDX-License-Identifier: GPL-2.0 */
/* The bytes of one input, and what the targets make of them. */
#ifndef FUZZ_INPUT_H
#define FUZZ_INPUT_H

#include "fake/kernel.h"

#include <algorithm>

/* Takes values from the front; they are 0 when the bytes are used up. */
class input {
public:
	input(const u8 *bytes, size_t size) : next_(bytes), end_(bytes + size)
	{
	}

	bool empty() const
	{
		return next_ == end_;
	}
	u8 byte()
	{
		return empty() ? 0 : *next_++;
	}
	u32 word()
	{
		u32 value = 0;

		for (int i = 0; i < 4; ++i)
			value = value << 8 | byte();
		return value;
	}
	/* One of the values from 0 to limit - 1; the limit is at most 256. */
	u32 below(u32 limit)
	{
		return byte() % limit;
	}
	template <class T, size_t count>
	const T &one_of(const T (&values)[count])
	{
		return values[below(count)];
	}
	/* At most so many of the bytes, as an input of their own. */
	input part(size_t size)
	{
		const u8 *const first = next_;

		next_ += std::min<size_t>(size, end_ - next_);
		return input(first, next_ - first);
	}
	std::string text(size_t size)
	{
		const input bytes = part(size);

		return std::string(bytes.next_, bytes.end_);
	}

private:
	const u8 *next_;
	const u8 *end_;
};

/*
 * The targets. Each runs one life of the module, from load until all that it
 * made is gone, and fails the running test when anything is not as it should
 * be.
 */
void fuzz_calls(const u8 *bytes, size_t size);
void fuzz_memory(const u8 *bytes, size_t size);
void fuzz_filter(const u8 *bytes, size_t size);
void fuzz_list(const u8 *bytes, size_t size);

#endif
