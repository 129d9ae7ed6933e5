/* SPDX-License-Identifier: GPL-2.0 */
/*
 * The host's functions for tests with GoogleTest: any callable is a test, and
 * what fails is a failure of GoogleTest's, at the firmware's file and line.
 */
#ifndef ZORVA_HOST_GTEST_H
#define ZORVA_HOST_GTEST_H

#include <gtest/gtest.h>

#include <zorva/host.h>

namespace zorva
{
namespace host
{
namespace detail
{

inline void fail(const char *text, const char *file, u32 line)
{
	GTEST_MESSAGE_AT_(line ? file : nullptr, line ? int(line) : -1, text,
			  ::testing::TestPartResult::kNonFatalFailure);
}

inline int has_failed()
{
	return ::testing::Test::HasFailure();
}

inline void prepare()
{
	zorva_host_on_failure(fail);
	zorva_host_on_check(has_failed);
}

template <class Test>
void call(void *test)
{
	(*static_cast<Test *>(test))();
}

} // namespace detail

/* zorva_host_run() */
template <class Test>
bool run(Test test)
{
	detail::prepare();
	return !zorva_host_run(detail::call<Test>, &test);
}

/* zorva_host_explore() */
template <class Test>
bool explore(u32 orders, Test test, u32 places = ZORVA_HOST_CALLS)
{
	detail::prepare();
	return !zorva_host_explore(detail::call<Test>, &test, orders, places);
}

/* zorva_host_repeat() */
template <class Test>
bool repeat(u64 seed, Test test, u32 places = ZORVA_HOST_CALLS)
{
	detail::prepare();
	return !zorva_host_repeat(detail::call<Test>, &test, seed, places);
}

/* zorva_host_sweep() */
template <class Test>
bool sweep(Test test)
{
	detail::prepare();
	return !zorva_host_sweep(detail::call<Test>, &test);
}

} // namespace host
} // namespace zorva

#endif
