// SPDX-License-Identifier: GPL-2.0
/*
 * The module's own data, where it was set apart when the module was linked: put
 * back as it was before the first life, for another one in the same process.
 */
#include "scheduler.h"

extern "C" {
/* Around the module's data, by the linker; none where that was not set apart. */
[[gnu::weak, gnu::visibility("hidden")]] extern char __start_zorva_host_data[];
[[gnu::weak, gnu::visibility("hidden")]] extern char __stop_zorva_host_data[];
[[gnu::weak, gnu::visibility("hidden")]] extern char __start_zorva_host_bss[];
[[gnu::weak, gnu::visibility("hidden")]] extern char __stop_zorva_host_bss[];
}

namespace
{

/* What is copied lies between other objects, which the sanitizer watches. */
__attribute__((no_sanitize("address"))) void
copy(volatile char *to, const volatile char *from, size_t count)
{
	using word = unsigned long;

	for (; count >= sizeof(word); count -= sizeof(word)) {
		*reinterpret_cast<volatile word *>(to) =
			*reinterpret_cast<const volatile word *>(from);
		to += sizeof(word);
		from += sizeof(word);
	}
	while (count--)
		*to++ = *from++;
}

struct section {
	char *begin;
	char *end;
	std::vector<char> first;

	void restore()
	{
		const size_t size = end - begin;

		if (first.size() == size) {
			copy(begin, first.data(), size);
		} else {
			first.resize(size);
			copy(first.data(), begin, size);
		}
	}
};

} // namespace

namespace fake
{

bool restore_module()
{
	static section data = { __start_zorva_host_data,
				__stop_zorva_host_data,
				{} };
	static section bss = { __start_zorva_host_bss,
			       __stop_zorva_host_bss,
			       {} };

	data.restore();
	bss.restore();
	return data.end != data.begin;
}

} // namespace fake
