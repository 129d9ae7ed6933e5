/* SPDX-License-Identifier: GPL-2.0 */
/* Tracked mutexes as their tests see them. */
#ifndef MUTEX_FIXTURE_H
#define MUTEX_FIXTURE_H

#include "lock_fixture.h"

class TrackedMutex : public LockTest {
protected:
	static constexpr const void *registry_lock = &_zorvaMutexDbg.lock;

	static zorva_mutex *create(const char *name = "m")
	{
		const auto call = [&] {
			return zorva_mutex_create_track(owner, name, "caller.c",
							7);
		};

		return reported(call, [](const zorva_mutex *mutex) {
			return said_of_mutex(mutex->name);
		});
	}

	static u32 take(zorva_mutex *mutex, u32 line = 10)
	{
		return silently([&] {
			return zorva_mutex_take_track(owner, mutex, "caller.c",
						      line);
		});
	}

	static u32 give(zorva_mutex *mutex, u32 line = 20)
	{
		return silently([&] {
			return zorva_mutex_give_track(owner, mutex, "caller.c",
						      line);
		});
	}

	static u32 is_locked(zorva_mutex *mutex)
	{
		return zorva_mutex_is_locked_track(owner, mutex);
	}

	void destroy(zorva_mutex *mutex)
	{
		const std::string name = mutex->name;
		const auto call = [&] {
			return zorva_mutex_destroy_track(owner, mutex,
							 "caller.c", 9);
		};

		EXPECT_EQ(reported(call, said_of_mutex(name, "destroyed")), ok);
		new_reports();
	}
};

#endif
