// SPDX-License-Identifier: GPL-2.0
/* What the board's program has in place of the C++ library's own. */
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <new>

/*
 * The library's names the type of an exception that nobody has caught, which
 * takes what reads mangled names: 50 KiB. main() catches all there are.
 */
void __gnu_cxx::__verbose_terminate_handler()
{
	abort();
}

/*
 * Memory for the many small things that a command keeps. The C library's looks
 * at the thread's own data at each call, and the board's processor has no
 * register for these: the kernel has to say where they are. Here is one thread.
 *
 * Blocks come in steps, a list of free ones for each. In front of each block
 * stands which list it belongs to; 0 is the C library's.
 */
namespace
{

constexpr size_t step = 16, lists = 33, piece = 4096;

struct free_block {
	free_block *next;
};

struct alignas(std::max_align_t) block_head {
	uint32_t list;
};

static_assert(step % alignof(std::max_align_t) == 0);

free_block *free_blocks[lists];
char *unused;
size_t unused_bytes;

void *take(size_t bytes)
{
	void *const memory = malloc(bytes);

	if (!memory)
		throw std::bad_alloc();
	return memory;
}

void *put_head(void *memory, size_t list)
{
	auto *const head = static_cast<block_head *>(memory);

	head->list = static_cast<uint32_t>(list);
	return head + 1;
}

void *carve(size_t list)
{
	const size_t bytes = sizeof(block_head) + list * step;
	void *memory;

	if (unused_bytes < bytes) {
		unused = static_cast<char *>(take(piece));
		unused_bytes = piece;
	}
	memory = unused;
	unused += bytes;
	unused_bytes -= bytes;
	return put_head(memory, list);
}

} // namespace

void *operator new(size_t bytes)
{
	const size_t list = bytes ? (bytes - 1) / step + 1 : 1;

	if (list >= lists) {
		if (bytes > SIZE_MAX - sizeof(block_head))
			throw std::bad_alloc();
		return put_head(take(sizeof(block_head) + bytes), 0);
	}

	free_block *const first = free_blocks[list];

	if (!first)
		return carve(list);
	free_blocks[list] = first->next;
	return first;
}

void operator delete(void *memory) noexcept
{
	if (!memory)
		return;

	block_head *const head = static_cast<block_head *>(memory) - 1;
	auto *const block = static_cast<free_block *>(memory);

	if (!head->list) {
		free(head);
		return;
	}
	block->next = free_blocks[head->list];
	free_blocks[head->list] = block;
}

void operator delete(void *memory, size_t) noexcept
{
	operator delete(memory);
}
