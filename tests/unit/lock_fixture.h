/* SPDX-License-Identifier: GPL-2.0 */
/* Tracked mutexes and semaphores as their tests see them. */
#ifndef LOCK_FIXTURE_H
#define LOCK_FIXTURE_H

#include "service_fixture.h"
#include "zorva/mutex.h"
#include "zorva/sem.h"
#include "zorva/thread.h"

class LockTest : public ServiceTest {
protected:
	/* The objects of a registry, newest first, along their next links. */
	template <class Record>
	static std::vector<Record *>
	listed(const lock_registry<Record> &registry)
	{
		std::vector<Record *> found;

		for (Record *each = registry.head; each; each = each->next)
			found.push_back(each);
		return found;
	}

	/* The same from the oldest on, along their previous links. */
	template <class Record>
	static std::vector<Record *>
	listed_backwards(const lock_registry<Record> &registry)
	{
		std::vector<Record *> found = listed(registry);
		Record *each = found.empty() ? nullptr : found.back();

		for (found.clear(); each; each = each->previous)
			found.push_back(each);
		return found;
	}

	/* "0 f.c:7 at 3": action, file, line, time; then a take's limit. */
	static std::string describe(const mutex_entry &entry)
	{
		return fake::format("%u %s:%u at %u", entry.action, entry.file,
				    entry.line, entry.time);
	}

	static std::string describe(const sem_entry &entry)
	{
		return fake::format("%u %s:%u at %u (%u)", entry.action,
				    entry.file, entry.line, entry.time,
				    entry.timeout);
	}

	/* The reports of what becomes of a mutex, and of a semaphore. */
	static std::string said_of_mutex(const std::string &name,
					 const std::string &done = "created")
	{
		const std::string call = done == "created" ? "create"
							   : "destroy";

		return "3 zorva_sem.cpp zorva_mutex_" + call +
		       "_track: Mutex '" + name + "' has been " + done + "\n";
	}

	static std::string said_of_sem(const std::string &name,
				       const std::string &done = "created")
	{
		const std::string call = done == "created" ? "create"
							   : "destroy";

		return "3 zorva_sem.cpp zorva_sem_" + call +
		       "_track: Semaphore '" + name + "' has been " + done +
		       "\n";
	}

	/* All entries that were written, newest first. */
	template <class Record>
	static texts history(const Record *record)
	{
		texts found;

		for (int i = 0; i < 8; ++i) {
			const auto &entry =
				record->history[(record->historyHead - i) & 7];

			if (entry.line)
				found.push_back(describe(entry));
		}
		return found;
	}

	template <class Record>
	static std::string bytes_of(const Record *record)
	{
		return { reinterpret_cast<const char *>(record),
			 sizeof(*record) };
	}

	/* A record as a call takes a lock, and as it gives it. */
	template <class Record>
	static std::pair<std::string, std::string>
	bytes_at(const void *lock, const Record *record,
		 const std::function<void()> &call)
	{
		std::string at_down;
		std::string at_up;

		fake::on_call([&](const fake::call &made) {
			if (made.object != lock)
				return;
			if (made.text == "down")
				at_down = bytes_of(record);
			if (made.text == "up")
				at_up = bytes_of(record);
		});
		call();
		fake::on_call(nullptr);
		return { at_down, at_up };
	}

	/* What the log says whenever a lock is about to be taken. */
	static void keep_log_at_down(const void *lock, std::string &log)
	{
		fake::on_call([lock, &log](const fake::call &made) {
			if (made.object == lock && made.text == "down")
				log = fake::log_text();
		});
	}

	/*
	 * In whose name a tracked thread of the owner's ends, as torn_frees()
	 * tells it, that is told to end while it makes a call: as it calls the
	 * kernel for a lock.
	 */
	texts ends_in_the_name_of(const std::function<void()> &call,
				  const std::string &at, const void *lock)
	{
		static std::function<void()> body;
		bool ended = true;
		body = [&] {
			call();
			ended = false;
		};
		fake::on_call([&](const fake::call &made) {
			if (made.text == at && made.object == lock)
				fake::send_signal(made.by, SIGKILL);
		});
		fake::before_spin_unlock([](const void *held) {
			if (held == &_zorvaThreadLock)
				tear(_pZorvaMallocMemList + 1);
		});
		new_reports();

		const auto run_body = [](void *) {
			body();
		};
		zorva_thread_create_track(owner, "victim", 0, 0, run_body,
					  nullptr, "caller.c", 7);
		fake::run_others();

		fake::on_call(nullptr);
		fake::before_spin_unlock(nullptr);
		EXPECT_TRUE(ended);
		return torn_frees();
	}

	/* Runs a function in a task of its own, until it blocks or ends. */
	static pid_t in_task(const char *comm, std::function<void()> body)
	{
		const pid_t pid = fake::start_task(comm, std::move(body));

		fake::run_others();
		return pid;
	}
};

#endif
