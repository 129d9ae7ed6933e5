/* SPDX-License-Identifier: GPL-2.0 */
/* What the tests of all services that block, wait or expire have in common. */
#ifndef SERVICE_FIXTURE_H
#define SERVICE_FIXTURE_H

#include "kernel_test.h"
#include "zorva_lkm.h"
#include "zorva_mem.h"
#include "zorva_sem.h"

inline constexpr u32 ok = 0;
inline constexpr u32 bad_component = 0x70000002;
inline constexpr u32 not_found = 0x7000000E;
inline constexpr u32 bad_value = 0x70000015;
inline constexpr u32 timed_out = 0x7000002A;
inline constexpr u32 null_argument = 0x7E000015;
inline constexpr u32 failed = 0xFFFFFFFF;

inline constexpr s64 usec = 1000;
inline constexpr s64 msec = 1000000;
inline constexpr s64 sec = 1000000000;

using texts = std::vector<std::string>;

/* What the fake kernel forbids of a call, one text each. */
texts complaints_of(const std::function<void()> &call);

/* The blocks that the module has, and has not left for good. */
size_t tracked_blocks();
/* What calls return when they succeed. */
inline bool is_success(u32 result)
{
	return result == ok;
}

inline bool is_success(s32 count)
{
	return count >= 0;
}

inline bool is_success(const void *object)
{
	return object;
}

/*
 * Makes a call, and proves that one that succeeds makes those reports and no
 * others: a text, or what a function makes of the result. Others may make
 * theirs meanwhile. Returns the result.
 */
template <class Call, class Text>
auto reported(Call call, const Text &text)
{
	decltype(call()) result = {};
	const std::string said = reports_during([&] {
		result = call();
	});

	if (!is_success(result))
		return result;
	if constexpr (std::is_invocable_v<Text, decltype(result)>)
		EXPECT_EQ(said, text(result));
	else
		EXPECT_EQ(said, text);
	return result;
}

/* The same of a call that is not to be reported when it succeeds. */
template <class Call>
auto silently(Call call)
{
	return reported(call, "");
}

/* Overwrites a tracked block's guard: its free is reported then. */
void tear(void *block);
/* The same of all that there are. */
void tear_all();
/* Accepts that a tracked block is not freed when the test ends. */
void leave(const void *block);

/* One run of a report into a buffer of that many bytes. */
struct report_run {
	int result;
	bool overflowed;
	std::string text; /* what was printed, fitting or not */
	std::vector<fake::seq_print> prints;
};
report_run run_report(int (*dump)(struct seq_file *seq), size_t size);

/* The same without memory for a copy of what it shows. */
report_run run_report_without_copy(int (*dump)(struct seq_file *seq),
				   size_t size);

/* The text of a report as its file has it. */
std::string file_text(const std::string &entry);

class ServiceTest : public ModuleTest {
protected:
	static constexpr u32 owner = ZORVA_COMP_PORT;
	static constexpr u32 other = ZORVA_COMP_VLAN;

	/* An argument that a function refuses. */
	struct bad_argument {
		u32 result;
		/* A call with this one argument wrong. */
		std::function<u32()> alone;
		/* The same with all that are tested later wrong, too. */
		std::function<u32()> and_later;
	};

	/*
	 * Proves that a function refuses each argument with one report from a
	 * line of its own, in that order, and does nothing else.
	 */
	void refuses(const std::string &file, const std::string &func,
		     const std::vector<bad_argument> &arguments);

	/* The reports since the last look, as all_reports() has them. */
	std::string new_reports();
	/* The same without those of the allocator, whose lines vary. */
	std::string own_reports();

	/*
	 * Calls a function that allocates, with each of its allocations failing
	 * in turn, and then with none. Returns how many it made.
	 */
	static unsigned int
	fail_each_allocation(const std::function<void(unsigned int nth)> &call);

	/*
	 * Proves that the last report is of a torn block, which was freed from
	 * that file in the component's name.
	 */
	static void expect_torn_free(const std::string &component,
				     const std::string &file);

	/*
	 * The torn blocks among the reports since the last look, in the order
	 * in which they were freed: "PORT, zorva_sem.cpp" each, for the
	 * component in whose name that was, and the file from where.
	 */
	texts torn_frees();

	/* Also that locks were taken in order, and no registry is left locked. */
	void TearDown() override;

private:
	void refuses_once(const std::string &file, const std::string &func,
			  u32 result, const std::function<u32()> &call,
			  s32 &line);

	size_t looked_at_ = 0;
};

/* A pointer as the result of a call that may be refused. */
inline u32 as_word(const void *pointer)
{
	return reinterpret_cast<uintptr_t>(pointer);
}

#endif
