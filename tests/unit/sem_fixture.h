/* SPDX-License-Identifier: GPL-2.0 */
/* Tracked semaphores as their tests see them. */
#ifndef SEM_FIXTURE_H
#define SEM_FIXTURE_H

#include "lock_fixture.h"

class TrackedSemaphore : public LockTest {
protected:
	static constexpr u32 forever = 0xFFFFFFFF;
	static constexpr const void *registry_lock = &_zorvaSemDbg.lock;

	static zorva_sem *create(u32 count, const char *name = "s")
	{
		const auto call = [&] {
			return zorva_sem_create_track(owner, name, count,
						      "caller.c", 7);
		};

		return reported(call, [](const zorva_sem *sem) {
			return said_of_sem(sem->name);
		});
	}

	static u32 take(zorva_sem *sem, u32 timeout, u32 line = 10)
	{
		return silently([&] {
			return zorva_sem_take_track(owner, sem, timeout,
						    "caller.c", line);
		});
	}

	static u32 give(zorva_sem *sem, u32 line = 20)
	{
		return silently([&] {
			return zorva_sem_give_track(owner, sem, "caller.c",
						    line);
		});
	}

	static u32 count(const zorva_sem *sem)
	{
		return zk_sema_count(&sem->semaphore);
	}

	void destroy(zorva_sem *sem)
	{
		const std::string name = sem->name;
		const auto call = [&] {
			return zorva_sem_destroy_track(owner, sem, "caller.c",
						       9);
		};

		EXPECT_EQ(reported(call, said_of_sem(name, "destroyed")), ok);
		new_reports();
	}
};

#endif
