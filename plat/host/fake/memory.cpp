// SPDX-License-Identifier: GPL-2.0
/* Memory that may not be there: single words, and user space. */
#include "internal.h"

#include <limits.h>
#include <map>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

std::map<const void *, u32> set_words;
std::vector<const void *> read_words;
size_t copy_limit = SIZE_MAX;

const fake::at_restart forget_all([] {
	set_words.clear();
	read_words.clear();
	copy_limit = SIZE_MAX;
});

/* The sanitizers' shadow would refuse what the module may well read here. */
__attribute__((no_sanitize("address", "undefined"))) u32
load(const void *address)
{
	const auto *const byte = static_cast<const volatile u8 *>(address);
	u8 bytes[4] = { byte[0], byte[1], byte[2], byte[3] };
	u32 word;

	__builtin_memcpy(&word, bytes, sizeof(word));
	return word;
}

} // namespace

namespace fake
{

/* The kernel beneath tells: it fails a write of what cannot be read. */
bool readable(const void *address, size_t size)
{
	int ends[2];
	long written;

	if (pipe(ends))
		return false;
	written = syscall(SYS_write, ends[1], address, size);
	close(ends[0]);
	close(ends[1]);
	return written == static_cast<long>(size);
}

void set_word(const void *address, u32 value)
{
	set_words[address] = value;
}

const std::vector<const void *> &words_read()
{
	return read_words;
}

void fail_user_copy_after(size_t bytes)
{
	copy_limit = bytes;
}

} // namespace fake

u32 zk_peek(const void *address)
{
	const auto set = set_words.find(address);

	read_words.push_back(address);
	if (set != set_words.end())
		return set->second;
	return fake::readable(address, sizeof(u32)) ? load(address) : 0;
}

/* Tells, once for each page, whether user space has the next byte. */
static bool user_has(const char *byte, bool first)
{
	if (!first && reinterpret_cast<uintptr_t>(byte) % ZK_PAGE_SIZE)
		return true;
	return fake::readable(byte, 1);
}

/* As the kernel's: what could not be copied is cleared, and counted. */
unsigned long zk_copy_from_user(void *to, const void *from, unsigned long count)
{
	static bool warned;
	auto *out = static_cast<char *>(to);
	const auto *in = static_cast<const char *>(from);
	unsigned long left = count;

	if (count > INT_MAX) {
		fake::warn_once(warned, "copy of more than INT_MAX bytes\n");
		return count;
	}

	fake::might_sleep("copy_from_user");
	while (left && count - left < copy_limit &&
	       user_has(in, left == count)) {
		*out++ = *in++;
		--left;
	}
	memset(out, 0, left);
	return left;
}

int zk_iscntrl(int c)
{
	const auto byte = static_cast<unsigned char>(c);

	return byte < 0x20 || byte == 0x7f;
}
