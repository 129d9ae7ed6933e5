// SPDX-License-Identifier: GPL-2.0
/*
 * Where a call stands in the firmware's sources. Some calls are told so; for
 * the others the debugging information is asked, by the sanitizers' own means
 * or by addr2line, and only once something has gone wrong.
 */
#include "host.h"

#include "zorva_event.h"
#include "zorva_msgq.h"
#include "zorva_sem.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <stdio.h>
#include <string.h>

extern "C" [[gnu::weak]] void
__sanitizer_symbolize_pc(void *pc, const char *format, char *out, size_t size);

namespace
{

std::string base_name(const std::string &path)
{
	return path.substr(path.rfind('/') + 1);
}

std::string by_sanitizer(const char *address)
{
	char text[512] = "";

	__sanitizer_symbolize_pc(const_cast<char *>(address), "%s:%l", text,
				 sizeof(text));
	return base_name(text);
}

std::string by_addr2line(const char *address)
{
	Dl_info object;
	char text[512] = "";

	if (!dladdr(address, &object) || !object.dli_fname)
		return "";

	const auto *const header =
		static_cast<const ElfW(Ehdr) *>(object.dli_fbase);
	const auto base = reinterpret_cast<uintptr_t>(object.dli_fbase);
	const auto offset = reinterpret_cast<uintptr_t>(address) -
			    (header->e_type == ET_DYN ? base : 0);
	const std::string command =
		fake::format("addr2line -s -e '%s' 0x%lx 2>/dev/null",
			     strchr(object.dli_fname, '/') ? object.dli_fname
							   : "/proc/self/exe",
			     static_cast<unsigned long>(offset));
	FILE *const out = popen(command.c_str(), "r");

	if (!out)
		return "";
	if (!fgets(text, sizeof(text), out))
		text[0] = '\0';
	pclose(out);
	text[strcspn(text, " \n")] = '\0';
	return text;
}

std::string quoted(const char *kind, const char *name)
{
	return fake::format("%s '%s'", kind, name);
}

} // namespace

namespace host
{

std::string place_of(const fake::firmware_call &call)
{
	if (call.file)
		return fake::format("%s:%u", call.file, call.line);
	if (!call.from)
		return "somewhere";

	const char *const before = static_cast<const char *>(call.from) - 1;
	std::string place = __sanitizer_symbolize_pc ? by_sanitizer(before)
						     : by_addr2line(before);

	if (place.empty() || place.find('?') != std::string::npos)
		place = fake::format("%lx", reinterpret_cast<unsigned long>(
						    call.from));
	return place;
}

std::string text_of(const fake::firmware_call &call)
{
	if (!call.function)
		return "the test";

	std::string name = call.function;

	if (name.ends_with("_track"))
		name.resize(name.size() - strlen("_track"));
	return name + " at " + place_of(call);
}

std::string name_of(const fake::firmware_call &call)
{
	fake::firmware_call made;
	fake::firmware_call freed;
	const std::string function = call.function ? call.function : "";

	if (!call.object || fake::was_freed(call.object, &made, &freed))
		return "";
	if (function.starts_with("zorva_mutex_"))
		return quoted("mutex",
			      static_cast<const zorva_mutex *>(call.object)
				      ->name);
	if (function.starts_with("zorva_sem_"))
		return quoted("semaphore",
			      static_cast<const zorva_sem *>(call.object)->name);
	if (function.starts_with("zorva_event_"))
		return quoted("event",
			      static_cast<const zorva_event *>(call.object)
				      ->name);
	if (function.starts_with("zorva_msg_queue_"))
		return quoted("queue",
			      static_cast<const zorva_msg_queue *>(call.object)
				      ->name);
	if (function.starts_with("zorva_wa"))
		return fake::format("wait module %u",
				    static_cast<u32>(
					    reinterpret_cast<uintptr_t>(
						    call.object) -
					    1));
	return "";
}

} // namespace host
