// SPDX-License-Identifier: GPL-2.0
/* What libFuzzer calls: one target, whose failed expectations are crashes. */
#include "input.h"

#include <gtest/gtest.h>

#include <stdlib.h>

namespace
{

class end_at_failure : public testing::EmptyTestEventListener {
	void OnTestPartResult(const testing::TestPartResult &result) override
	{
		if (result.failed())
			abort();
	}
};

} // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
	testing::InitGoogleTest(argc, *argv);
	testing::UnitTest::GetInstance()->listeners().Append(
		new end_at_failure);
	fake::on_failure([](const std::string &what) {
		ADD_FAILURE() << what;
	});
	return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const u8 *bytes, size_t size)
{
	FUZZ_TARGET(bytes, size);
	return 0;
}

/* Blocks that are left are counted at the end of each life. */
extern "C" const char *__asan_default_options()
{
	return "detect_leaks=0:quarantine_size_mb=16";
}

extern "C" const char *__ubsan_default_options()
{
	return "print_stacktrace=1";
}
