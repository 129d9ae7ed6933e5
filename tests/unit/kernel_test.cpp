// SPDX-License-Identifier: GPL-2.0
/* The fixtures, the recorder of reports, and the program's entry. */
#include "kernel_test.h"
#include "each.h"
#include "fake/scheduler.h"

#include <stdarg.h>
#include <stdlib.h>
#include <string.h>

namespace
{

std::vector<report> recorded;
size_t seen;
std::function<void(const report &)> hook;

std::string as_text(const report &each)
{
	return std::to_string(each.level) + " " + each.file + " " + each.func +
	       ": " + each.text;
}

bool used;	/* a test was run in this process */
bool is_bound;	/* ... which has set its scene by who runs first */
u64 order_seed; /* 0: the order in which tasks became ready */

/*
 * With odd seeds a task may also have to give way between any two calls into
 * the kernel.
 */
void choose_order()
{
	if (order_seed)
		fake::set_order(order_seed, 1u << order_seed / 2 % 5,
				order_seed % 2);
}

void begin_anew()
{
	fake::forsake();
	fake::restart();
	fake::forget_proc_entries();
	used = !fake::restore_module();
	is_bound = false;
	recorded.clear();
	seen = 0;
	hook = nullptr;
}

} // namespace

void record_report(u32 compId, s32 unit, u32 level, const char *file,
		   const char *func, s32 line, const char *format, ...)
{
	va_list args;

	va_start(args, format);
	const char *const text = va_arg(args, const char *);
	va_end(args);

	EXPECT_EQ(compId, 9u);
	EXPECT_EQ(unit, -1);
	EXPECT_TRUE(level == 1 || level == 3) << "level " << level;
	EXPECT_STREQ(format, "%s");
	EXPECT_EQ(strchr(file, '/'), nullptr) << file;
	EXPECT_GT(line, 0);
	EXPECT_LE(strlen(text), 256u);
	EXPECT_FALSE(std::string(text).ends_with("\n")) << text;

	recorded.push_back({ level, file, func, line, text,
			     fake::current_context(), fake::log_size(),
			     zk_current_pid() });
	if (hook)
		hook(report(recorded.back()));
}

void on_report(std::function<void(const report &made)> function)
{
	hook = std::move(function);
}

const std::vector<report> &reports()
{
	seen = recorded.size();
	return recorded;
}

std::string reports_during(const std::function<void()> &call)
{
	const size_t before = recorded.size();
	const pid_t self = zk_current_pid();
	const bool in_interrupt = fake::current_context().in_interrupt;
	std::string text;

	call();
	for (size_t i = before; i < recorded.size(); ++i)
		if (recorded[i].by == self &&
		    recorded[i].at.in_interrupt == in_interrupt)
			text += as_text(recorded[i]) + "\n";
	return text;
}

std::string last_report()
{
	return reports().empty() ? "" : as_text(recorded.back());
}

std::string all_reports()
{
	std::string text;

	for (const report &each : reports())
		text += as_text(each) + "\n";
	return text;
}

void begin_with_order(u64 seed)
{
	begin_anew();
	order_seed = seed;
}

bool order_matters()
{
	return !is_bound && fake::choices() > 0;
}

void needs_arrival_order()
{
	is_bound = true;
	fake::set_order(0, 0, false);
}

void KernelTest::SetUp()
{
	ASSERT_FALSE(used)
		<< "the module is loaded once in a process: run the tests "
		   "with --run, or name one with --gtest_filter";
	used = true;
	choose_order();
}

void KernelTest::TearDown()
{
	const fake::context now = fake::current_context();

	EXPECT_TRUE(now.locks.empty()) << "a lock is held";
	EXPECT_FALSE(now.interrupts_off) << "interrupts are off";
	EXPECT_FALSE(now.in_interrupt) << "an interrupt has not ended";
	EXPECT_EQ(fake::live_blocks(), 0u) << "blocks are allocated";
	EXPECT_EQ(fake::open_files(), 0u) << "files are open";
	EXPECT_EQ(fake::tasks_left(), "");
	EXPECT_EQ(seen, recorded.size())
		<< "not expected: " << as_text(recorded.back());
	EXPECT_FALSE(fake::log_has_unseen())
		<< "not expected in the log: " << fake::log_text();
}

void ModuleTest::SetUp()
{
	KernelTest::SetUp();
	zorva_debug_pr_fn_register(record_report);
}

/* Leaks are counted by the fixture, block by block. */
extern "C" const char *__asan_default_options()
{
	return "detect_leaks=0:detect_stack_use_after_return=1";
}

extern "C" const char *__ubsan_default_options()
{
	return "print_stacktrace=1";
}

int main(int argc, char **argv)
{
	::testing::InitGoogleTest(&argc, argv);
	fake::on_failure([](const std::string &what) {
		ADD_FAILURE() << what;
	});
	if (const char *const text = getenv("ZORVA_SEED"))
		order_seed = strtoull(text, nullptr, 0);
	if (argc == 1)
		return RUN_ALL_TESTS();

	const std::string option = argv[1];
	const char *const pattern = argc > 2 ? argv[2] : "*";

	if (option == "--each" || option == "--each=all")
		return run_each(option == "--each=all");
	if (option == "--run")
		return run_all(0, pattern);
	if (option.starts_with("--orders="))
		return run_all(atoi(option.c_str() + strlen("--orders=")),
			       pattern);
	fprintf(stderr, "%s: what is %s?\n", argv[0], argv[1]);
	return 2;
}
