/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What was read of a switch, as plain data. Whoever parses fills it, whoever
 * answers a question looks at it, and neither knows the other.
 *
 * Texts are as they were read: they may hold any byte, and go through
 * print.h's escaping before anybody sees them. Times are seconds since boot.
 */
#ifndef ZORVA_TOOL_MODEL_H
#define ZORVA_TOOL_MODEL_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zorva
{

/* The ten report files, in the order of the module's own list. */
enum class report_kind : uint8_t {
	mutex,
	mutex_detail,
	sem,
	sem_detail,
	mem,
	mem_detail,
	thread,
	timer,
	hrt,
	msgq,
};

constexpr size_t report_kinds = 10;

/* Where in the input something stands. */
struct place {
	uint32_t input = 0; /* index into reading::inputs */
	uint32_t line = 0;  /* from 1; 0 when there is none */
};

/* A place in the firmware's source, as a report names it. */
struct site {
	std::string file; /* its first 13 to 16 characters */
	int64_t line = 0;
};

/* What is known of one report as a whole. */
struct report_state {
	bool present = false; /* any part of it was read */
	bool whole = false;   /* not a part that somebody picked out of it */
	bool cut = false;     /* it ends too early */
	place begin;
	place end;
	std::optional<uint64_t> now; /* "Current Time" */
};

/* zorva.mem: a row. */
struct component_usage {
	std::string name;
	uint32_t current = 0; /* bytes */
	uint32_t max = 0;     /* bytes */
	uint32_t allocs = 0;
	uint32_t frees = 0;
	uint32_t delta = 0; /* blocks; only the table has it */
	place at;
};

struct memory_table {
	report_state state;
	std::vector<component_usage> components;
};

/* zorva.mem.detail: a block whose marks are whole. */
struct block {
	uint64_t address = 0; /* as its owner has it */
	uint64_t time = 0;    /* when it was allocated */
	uint32_t size = 0;    /* bytes */
	uint32_t site = 0;    /* index into memory_detail::sites */
	uint32_t line = 0; /* of the input memory_detail::state.begin.input */
	uint16_t component = 0; /* index into memory_detail::components */
};

/* A damaged one. */
struct torn_block {
	uint64_t header = 0; /* the caller's bytes start user_offset later */
	uint32_t invalid_end = 0;
	uint32_t expected = 0;
	uint32_t site = 0;
	uint16_t component = 0;
	place at;
};

/* From a block's header to the bytes that its owner has, and its guard. */
constexpr uint64_t user_offset = 52;
constexpr uint64_t guard_size = 4;

struct memory_detail {
	report_state state;
	std::vector<component_usage> components;
	std::vector<site> sites;   /* each once */
	std::vector<block> blocks; /* in the report's order */
	std::vector<torn_block> torn;
};

/* zorva.thread: a thread made through the module. */
struct thread {
	std::string component;
	std::string name;
	int64_t pid = 0;
	int64_t state = 0;
	int64_t priority = 0;
	place at;
};

struct thread_report {
	report_state state;
	std::vector<thread> threads; /* newest first */
};

/* A call in a lock's history. */
struct lock_call {
	uint64_t time = 0;
	bool give = false;
	site from;
	/* Takes of semaphores only: */
	bool forever = false;
	std::optional<uint64_t> timeout_ms;
	bool timeout_cut = false; /* the report had no room for all digits */
	place at;
};

/* A mutex or a semaphore. */
struct lock {
	bool mutex = false; /* else a semaphore */
	std::optional<int64_t> index;
	std::string name;
	std::string component;
	int64_t component_id = 0;
	bool taken = false; /* locked, or no unit free */
	std::optional<int64_t> locker_pid;
	std::string locker_name;
	std::vector<lock_call> history; /* newest first, at most 8 */
	place at;
};

struct lock_report {
	report_state state;
	std::vector<lock> locks;       /* newest first */
	std::optional<uint64_t> total; /* with those that were never used */
	std::optional<uint64_t> shown; /* as its last line says */
};

/* zorva.msgq */
struct queue {
	std::string name;
	std::string component;
	uint32_t component_id = 0;
	uint32_t message_size = 0; /* bytes */
	uint32_t max_depth = 0;
	int64_t depth = 0;
	int64_t max_seen = 0;
	place at;
};

struct queue_report {
	report_state state;
	std::vector<queue> queues; /* oldest first */
};

/* zorva.timer, zorva.hrt */
struct timer {
	std::string component;
	uint32_t id = 0;
	uint64_t data = 0;
	uint32_t period_ms = 0; /* 0 when not running */
	bool running = false;
	std::optional<site> started_by;
	place at;
};

struct timer_report {
	report_state state;
	std::vector<timer> timers;
};

/* A return address of a kernel stack, innermost first. */
struct stack_frame {
	std::optional<uint64_t> address; /* most kernels hide it */
	std::string symbol;
	uint64_t offset = 0;
	uint64_t size = 0;
	std::string module; /* empty: the kernel itself */
	place at;
};

/* What the kernel says of a task, of this module or not. */
struct task {
	int64_t pid = 0;
	std::string name; /* at most 15 characters */
	char state = '?'; /* R, S, D, T, Z, I, ... */
	std::vector<stack_frame> stack;
	bool has_stack = false; /* it could be read */
	place at;
};

/* /proc/modules: a row. */
struct kernel_module {
	std::string name;
	uint64_t size = 0; /* bytes */
	int64_t users = 0;
	uint64_t address = 0; /* 0 when hidden */
	place at;
};

/* /proc/meminfo: a row. */
struct memory_figure {
	std::string name;
	uint64_t bytes = 0;
	place at;
};

/* All that was read of one switch at about one moment. */
struct model {
	memory_table memory;
	memory_detail blocks;
	thread_report threads;
	/* As the report_kinds mutex to sem_detail. */
	std::array<lock_report, 4> locks;
	queue_report queues;
	timer_report timers;
	timer_report hr_timers;

	std::vector<task> tasks;
	std::vector<kernel_module> modules;
	std::vector<memory_figure> kernel_memory;
	std::optional<uint64_t> uptime_ms;
	std::string kernel_version;
};

/* The lock reports by what they are about. */
inline const lock_report &locks_of(const model &from, report_kind kind)
{
	return from.locks[static_cast<size_t>(kind)];
}

/*
 * The most that is known of the mutexes, or of the semaphores: the detailed
 * report, or without it the plain one.
 */
inline const lock_report &best_locks(const model &from, bool mutexes)
{
	const lock_report &plain = from.locks[mutexes ? 0 : 2];
	const lock_report &detail = from.locks[mutexes ? 1 : 3];

	if (detail.state.whole || !plain.state.present)
		return detail;
	if (plain.state.whole || !detail.state.present)
		return plain;
	return detail;
}

} // namespace zorva

#endif
