// SPDX-License-Identifier: GPL-2.0
/* Atomic counters, and the MD5 entry. */
#include "service_fixture.h"
#include "zorva/atomic.h"

#include <limits.h>

namespace
{

class AtomicCounter : public ServiceTest {
protected:
	zorva_atomic_t counter = { 2 };
};

class Md5Hash : public ServiceTest {};

} // namespace

TEST_F(AtomicCounter, IsOneSignedWord)
{
	EXPECT_EQ(sizeof(zorva_atomic_t), 4u);
	EXPECT_LT(static_cast<decltype(counter.counter)>(-1), 0);
}

TEST_F(AtomicCounter, IsIncrementedByOne)
{
	EXPECT_EQ(zorva_atomic_inc(&counter), ok);

	EXPECT_EQ(counter.counter, 3);
}

TEST_F(AtomicCounter, WrapsWhenIncrementedPastItsEnd)
{
	counter.counter = INT_MAX;

	EXPECT_EQ(zorva_atomic_inc(&counter), ok);

	EXPECT_EQ(counter.counter, INT_MIN);
}

TEST_F(AtomicCounter, ReturnsWhatItHoldsAfterAnAddition)
{
	EXPECT_EQ(zorva_atomic_add_return(5, &counter), 7);
	EXPECT_EQ(counter.counter, 7);

	EXPECT_EQ(zorva_atomic_add_return(-10, &counter), -3);
	EXPECT_EQ(counter.counter, -3);
}

TEST_F(AtomicCounter, ReturnsWhatItHoldsAfterASubtraction)
{
	EXPECT_EQ(zorva_atomic_sub_return(5, &counter), -3);
	EXPECT_EQ(counter.counter, -3);

	EXPECT_EQ(zorva_atomic_sub_return(-10, &counter), 7);
	EXPECT_EQ(counter.counter, 7);
}

TEST_F(AtomicCounter, WrapsWhenTheLowestNumberIsSubtracted)
{
	EXPECT_EQ(zorva_atomic_sub_return(INT_MIN, &counter), INT_MIN + 2);
	EXPECT_EQ(counter.counter, INT_MIN + 2);
}

TEST_F(AtomicCounter, ReturnsWhatItHoldsAfterADecrement)
{
	counter.counter = 1;

	EXPECT_EQ(zorva_atomic_dec_return(&counter), 0);
	EXPECT_EQ(static_cast<u32>(zorva_atomic_dec_return(&counter)),
		  0xFFFFFFFFu);
	EXPECT_EQ(counter.counter, -1);
}

TEST_F(AtomicCounter, IsSetToAnyValue)
{
	EXPECT_EQ(zorva_atomic_set(&counter, -77), ok);

	EXPECT_EQ(counter.counter, -77);
}

TEST_F(AtomicCounter, IsReadWithoutAChange)
{
	counter.counter = -77;

	EXPECT_EQ(zorva_atomic_read(&counter), -77);
	EXPECT_EQ(counter.counter, -77);
}

TEST_F(AtomicCounter, IsRefusedWhenNull)
{
	const std::string file = "zorva_atomic.cpp";
	const auto all = [&](const char *func, auto call) {
		refuses(file, func, { { null_argument, call, call } });
	};

	all("zorva_atomic_inc", [] {
		return zorva_atomic_inc(nullptr);
	});
	all("zorva_atomic_add_return", [] {
		return zorva_atomic_add_return(1, nullptr);
	});
	all("zorva_atomic_set", [] {
		return zorva_atomic_set(nullptr, 1);
	});
	all("zorva_atomic_dec_return", [] {
		return zorva_atomic_dec_return(nullptr);
	});
	all("zorva_atomic_sub_return", [] {
		return zorva_atomic_sub_return(1, nullptr);
	});
	all("zorva_atomic_read", [] {
		return zorva_atomic_read(nullptr);
	});
}

TEST_F(AtomicCounter, MayHoldWhatANullCounterReturns)
{
	counter.counter = null_argument;

	EXPECT_EQ(static_cast<u32>(zorva_atomic_read(&counter)), null_argument);
}

TEST_F(AtomicCounter, IsChangedInAHardInterruptWithoutALock)
{
	const fake::hard_interrupt interrupt;

	zorva_atomic_inc(&counter);
	zorva_atomic_add_return(3, &counter);
	zorva_atomic_sub_return(1, &counter);
	zorva_atomic_dec_return(&counter);

	EXPECT_EQ(zorva_atomic_read(&counter), 4);
	EXPECT_EQ(fake::spin_locks_taken(), 0u);
	EXPECT_TRUE(fake::calls().empty());
	EXPECT_TRUE(fake::heap_calls().empty());
}

TEST_F(Md5Hash, FailsAndWritesNothing)
{
	u8 digest[16] = { 1, 2, 3 };
	const u8 before[16] = { 1, 2, 3 };

	EXPECT_EQ(zorva_md5_hash("abc", 3, digest), failed);
	EXPECT_EQ(zorva_md5_hash(nullptr, 0, nullptr), failed);
	EXPECT_EQ(zorva_md5_hash(reinterpret_cast<void *>(1), 0xFFFFFFFF,
				 digest),
		  failed);

	EXPECT_EQ(memcmp(digest, before, sizeof(digest)), 0);
	EXPECT_EQ(all_reports(), "");
}
