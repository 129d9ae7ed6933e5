// SPDX-License-Identifier: GPL-2.0
/* Calls for tasks: sleeps, network events, reports, text. */
#include "calls.h"
#include "zorva/time.h"

#include <string.h>

namespace calls
{

void call_sleep(actor &self, input &in)
{
	static constexpr u32 lengths[] = { 0,	      1,	99,
					   9999,      10000,	1000000,
					   42949673,  21474836, 21474837,
					   0xffffffff };
	const u32 what = in.below(4);
	const u32 length = in.one_of(lengths);

	self.sleeps = true;
	switch (what) {
	case 0:
		zorva_time_sleep(length);
		break;
	case 1:
		zorva_time_usleep(length);
		break;
	case 2:
		zorva_time_udelay(length % 100000);
		break;
	default:
		zorva_time_mdelay(length % 500);
		break;
	}
	self.sleeps = false;
}

/* Network events. */

namespace
{

int on_event(struct notifier_block *, unsigned long event, void *)
{
	return event % 2 ? 0x8000 : 0;
}

} // namespace

void call_netevent(input &in)
{
	const u32 what = in.below(3);
	const u32 compId = pick_component(in.byte());
	struct notifier_block *&handle = all->notifiers[in.below(objects_max)];
	const bool has_function = in.byte() >= 32;
	const bool is_refused = in.byte() < 32;

	switch (what) {
	case 0:
		if (handle)
			return;
		fake::refuse_netevents(is_refused ? -12 : 0);
		all->had_failures |= is_refused;
		handle = expect_object(!is_wrong(compId) && has_function,
				       zorva_netevent_ntfy_register, compId,
				       has_function ? on_event : nullptr);
		fake::refuse_netevents(0);
		return;
	case 1:
		if (!expect_one_of({ component(compId), not_null(handle) },
				   { ZORVA_RC_OK },
				   zorva_netevent_ntfy_unregister, compId,
				   handle))
			handle = nullptr;
		return;
	default:
		fake::raise_netevent(in.byte(), nullptr);
		return;
	}
}

/* Reports. */

void call_report(input &in)
{
	static constexpr const char *names[] = {
		"mutex", "mutex.detail", "sem",	   "sem.detail",
		"mem",	 "mem.detail",	 "thread", "timer",
		"hrt",	 "msgq",	 "none",
	};
	const u32 what = in.below(4);
	const u32 count = in.word() % 100000;
	char part[100];

	if (what == 0 || !all->file || all->file->error()) {
		all->file = std::make_unique<
			fake::proc_file>(std::string("zorva/zorva.") +
						 in.one_of(names),
					 fake::access::writing);
		if (all->file->error())
			all->file.reset();
		return;
	}
	switch (what) {
	case 1:
		EXPECT_LE(all->file->read(part, count % sizeof(part)),
			  static_cast<ssize_t>(count % sizeof(part)));
		return;
	case 2:
		all->file->seek(count, in.below(3));
		return;
	default: {
		const std::string text = in.text(step_size);

		all->file->write(text.data(), text.size());
		return;
	}
	}
}

/* Text. */

void call_text(input &in)
{
	const u32 size = in.below(40);
	const u8 choice = in.byte();
	const std::string text = in.text(step_size);
	std::unique_ptr<char[]> copy(new char[size]);

	EXPECT_EQ(zorva_strlcpy(copy.get(), text.c_str(), size),
		  strlen(text.c_str()));
	if (size) {
		EXPECT_EQ(std::string(copy.get()),
			  std::string(text.c_str()).substr(0, size - 1));
	}
	zorva_proc_printf(nullptr, "%s %d %08x\n", pick_text(choice), choice,
			  size);
}

} // namespace calls
