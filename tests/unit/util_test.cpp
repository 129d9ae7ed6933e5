// SPDX-License-Identifier: GPL-2.0
/* The path of the reports. */
#include "kernel_test.h"

#include <stdarg.h>
#include <string.h>

namespace
{

class DebugPrint : public KernelTest {};

/* What a call of the registered function was given, and how often. */
struct {
	unsigned int calls;
	u32 compId;
	s32 unit;
	u32 level;
	const char *file;
	const char *func;
	s32 line;
	std::string format;
	std::string buffer; /* all 257 bytes */
	std::string text;
} got;

void print_into_got(u32 compId, s32 unit, u32 level, const char *file,
		    const char *func, s32 line, const char *format, ...)
{
	va_list args;

	va_start(args, format);
	const char *const text = va_arg(args, const char *);
	va_end(args);
	got = { got.calls + 1, compId, unit,
		level,	       file,   func,
		line,	       format, std::string(text, 257),
		text };
}

unsigned int others;

void print_other(u32, s32, u32, const char *, const char *, s32, const char *,
		 ...)
{
	++others;
}

} // namespace

TEST_F(DebugPrint, HandsItsEightArgumentsToTheRegisteredFunction)
{
	const char *const file = "caller.c";
	const char *const func = "caller";

	zorva_debug_pr_fn_register(print_into_got);
	zorva_debug_print(3, file, func, 42, "%s-%u", "text", 7u);

	EXPECT_EQ(got.calls, 1u);
	EXPECT_EQ(got.compId, 9u);
	EXPECT_EQ(got.unit, -1);
	EXPECT_EQ(got.level, 3u);
	EXPECT_EQ(got.file, file);
	EXPECT_EQ(got.func, func);
	EXPECT_EQ(got.line, 42);
	EXPECT_EQ(got.format, "%s");
	EXPECT_EQ(got.text, "text-7");
}

TEST_F(DebugPrint, PassesEveryLevelAndEveryLineOn)
{
	zorva_debug_pr_fn_register(print_into_got);
	zorva_debug_print(1, "caller.c", "caller", -5, "x");

	EXPECT_EQ(got.level, 1u);
	EXPECT_EQ(got.line, -5);
}

TEST_F(DebugPrint, IsLostWithoutAFunction)
{
	zorva_debug_print(1, "caller.c", "caller", 42, "lost");

	EXPECT_EQ(_sys_dbg_pr_fn, nullptr);
	EXPECT_EQ(fake::log_text(), "");
}

TEST_F(DebugPrint, KeepsTheFirstFunction)
{
	const u32 first = zorva_debug_pr_fn_register(print_into_got);
	const u32 second = zorva_debug_pr_fn_register(print_other);
	const u32 third = zorva_debug_pr_fn_register(nullptr);

	zorva_debug_print(1, "caller.c", "caller", 42, "x");

	EXPECT_EQ(first, 0u);
	EXPECT_EQ(second, 0u);
	EXPECT_EQ(third, 0u);
	EXPECT_EQ(got.calls, 1u);
	EXPECT_EQ(others, 0u);
}

TEST_F(DebugPrint, LeavesThePlaceFreeForANullFunction)
{
	const u32 first = zorva_debug_pr_fn_register(nullptr);

	zorva_debug_pr_fn_register(print_into_got);
	zorva_debug_print(1, "caller.c", "caller", 42, "x");

	EXPECT_EQ(first, 0u);
	EXPECT_EQ(got.calls, 1u);
}

TEST_F(DebugPrint, KeepsATextOf256Characters)
{
	const std::string text = std::string(255, 'a') + "z";

	zorva_debug_pr_fn_register(print_into_got);
	zorva_debug_print(1, "caller.c", "caller", 42, "%s", text.c_str());

	EXPECT_EQ(got.text, text);
}

TEST_F(DebugPrint, CutsALongerTextToItsFirst256Characters)
{
	const std::string text = std::string(255, 'a') + "zyx";

	zorva_debug_pr_fn_register(print_into_got);
	zorva_debug_print(1, "caller.c", "caller", 42, "%s", text.c_str());

	EXPECT_EQ(got.text, std::string(255, 'a') + "z");
}

TEST_F(DebugPrint, ClearsTheBytesBehindTheText)
{
	const std::string text(256, 'a');

	zorva_debug_pr_fn_register(print_into_got);
	/* So often that any place on the stack has been used before. */
	for (u32 i = 0; i < 1000; ++i)
		zorva_debug_print(1, "caller.c", "caller", 42, "%s",
				  text.c_str());
	zorva_debug_print(1, "caller.c", "caller", 42, "x");

	EXPECT_EQ(got.buffer, "x" + std::string(256, '\0'));
}

TEST_F(DebugPrint, DoesNotReadAPercentSignOfTheTextAgain)
{
	zorva_debug_pr_fn_register(print_into_got);
	zorva_debug_print(1, "caller.c", "caller", 42, "%s%%", "%d%n%s");

	EXPECT_EQ(got.format, "%s");
	EXPECT_EQ(got.text, "%d%n%s%");
}

TEST_F(DebugPrint, MayBeCalledInAHardInterrupt)
{
	const fake::hard_interrupt interrupt;

	zorva_debug_pr_fn_register(print_into_got);
	zorva_debug_print(1, "caller.c", "caller", 42, "x");

	EXPECT_EQ(got.text, "x");
	EXPECT_TRUE(fake::heap_calls().empty());
}
