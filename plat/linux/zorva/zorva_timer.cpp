// SPDX-License-Identifier: GPL-2.0
/*
 * One-shot timers of two kinds, tick timers and high-resolution timers: what
 * they share is written once, over a description of each kind.
 *
 * _zorvaTimerLock guards both lists, both counters, the tables, and the
 * running state of every timer. It is taken with interrupts off, since
 * callers and expiries come from any context. Memory is allocated under it,
 * so the memory lock nests inside. A callback is called with the lock given
 * back: it may start its timer again. A report copies what it shows under the
 * lock and prints it outside; when there is no memory for that, it prints the
 * timers under the lock.
 *
 * Of an expiry and a stop on two processors, the one that has the lock first
 * decides. A callback under way is waited for without the lock, which other
 * expiries and the callback itself may want.
 */
#include "zorva_timer.h"
#include "zorva_debug.h"
#include "zorva_guard.h"
#include "zorva_snapshot.h"
#include "zorva_text.h"
#include "zorva/mem.h"

constinit sys_sll_t *_pZorvaTimerList = nullptr;
constinit u32 _timerIndex = 0;
constinit sys_sll_t *_pZorvaHrtTimerList = nullptr;
constinit u32 _hrtTimerIndex = 0;
constinit tick_timer *_zorvaTimerById[timer_limit] = {};
constinit hrt_timer *_zorvaHrtTimerById[hrt_timer_limit] = {};

namespace
{

/*
 * Only a kernel that checks locks wants a class for timers; it warns and then
 * stops checking when there is none. Elsewhere a class has no size.
 */
constinit lock_class_key timer_key = {};
constexpr bool has_classes = ZK_SIZEOF_LOCK_CLASS_KEY > 0;
constexpr const char *class_name = has_classes ? "&timer->timer" : nullptr;
constexpr lock_class_key *class_key = has_classes ? &timer_key : nullptr;

struct tick_kind {
	using record = tick_timer;

	static constexpr u32 limit = timer_limit;
	/* Without memory for its record, a timer leaves no node. */
	static constexpr bool keeps_empty_node = false;
	static constexpr char init_name[] = "zorva_timer_init_track";
	static constexpr char start_name[] = "zorva_timer_start_track";
	static constexpr char stop_name[] = "zorva_timer_stop_track";
	static constexpr char refresh_name[] = "zorva_timer_refresh_track";
	static constexpr auto stop = zorva_timer_stop_track;
	static constexpr auto start = zorva_timer_start_track;
	static constexpr const char *stop_failed = "Stop timer failed. (%s,%u)";
	static constexpr const char *start_failed =
		"Start timer failed. (%s,%u)";

	static constexpr auto &by_id = _zorvaTimerById;
	static constexpr auto &list = _pZorvaTimerList;
	static constexpr auto &last_index = _timerIndex;

	static void prepare(record *timer)
	{
		init_timer_key(&timer->timer, _zorva_timer_wrapper, 0,
			       class_name, class_key);
	}
	/* 100 ticks a second, whatever the kernel's rate; may wrap. */
	static void arm(record *timer, u32 msecs)
	{
		add_timer(&timer->timer, msecs * 100 / 1000);
	}
	static void disarm(record *timer)
	{
		del_timer(&timer->timer);
	}
	/* With several processors. */
	static bool is_armed(record *timer)
	{
		return zk_timer_is_armed(&timer->timer);
	}
	static bool disarm_or_runs(record *timer)
	{
		del_timer(&timer->timer);
		return zk_timer_runs(&timer->timer);
	}
};

struct hrt_kind {
	using record = hrt_timer;

	static constexpr u32 limit = hrt_timer_limit;
	/* Without memory for its record, a timer leaves an empty node. */
	static constexpr bool keeps_empty_node = true;
	static constexpr char init_name[] = "zorva_hrt_timer_init_track";
	static constexpr char start_name[] = "zorva_hrt_timer_start_track";
	static constexpr char stop_name[] = "zorva_hrt_timer_stop_track";
	static constexpr char refresh_name[] = "zorva_hrt_timer_refresh_track";
	static constexpr auto stop = zorva_hrt_timer_stop_track;
	static constexpr auto start = zorva_hrt_timer_start_track;
	static constexpr const char *stop_failed =
		"Stop HRT timer failed. (%s,%u)";
	static constexpr const char *start_failed =
		"Start HRT timer failed. (%s,%u)";

	static constexpr auto &by_id = _zorvaHrtTimerById;
	static constexpr auto &list = _pZorvaHrtTimerList;
	static constexpr auto &last_index = _hrtTimerIndex;

	static void prepare(record *timer)
	{
		hrtimer_init(&timer->timer, CLOCK_MONOTONIC, HRTIMER_MODE_REL);
		zk_hrtimer_set_function(&timer->timer,
					_zorva_hrt_timer_wrapper);
	}
	static void arm(record *timer, u32 msecs)
	{
		hrtimer_start_range_ns(&timer->timer, u64{ msecs } * 1000000, 0,
				       HRTIMER_MODE_REL);
	}
	/*
	 * Waits for a running callback with interrupts off: one that has
	 * started its own timer again must not come here.
	 */
	static void disarm(record *timer)
	{
		hrtimer_cancel(&timer->timer);
	}
	/*
	 * With several processors. One that runs and is armed anew stays armed,
	 * which its expiry finds out.
	 */
	static bool is_armed(record *timer)
	{
		return zk_hrtimer_is_armed(&timer->timer);
	}
	static bool disarm_or_runs(record *timer)
	{
		return zk_hrtimer_cancel_or_runs(&timer->timer);
	}
};

/* The place of an ID in its kind's table. */
template <class Kind>
typename Kind::record *&place_of(u32 timerId)
{
	return Kind::by_id[(timerId - 1) % Kind::limit];
}

/* Looks for a timer in its list. */
template <class Kind>
[[gnu::noinline, gnu::cold]] typename Kind::record *look_for(u32 timerId)
{
	for (sys_sll_node_t *node = sys_sll_node_get_first(Kind::list); node;
	     node = sys_sll_node_get_next(Kind::list, node)) {
		auto *const timer =
			static_cast<typename Kind::record *>(node->pData);

		if (timer && timer->timerId == timerId)
			return timer;
	}
	return nullptr;
}

/*
 * Finds a timer in the table; the lock is held, and there is a list. Null for
 * an ID that does not exist, or that shares its place with a later one, as can
 * be when an insertion has failed and its ID was skipped: then the list
 * decides. A list without its magic has no timers.
 */
template <class Kind>
[[gnu::always_inline]] inline typename Kind::record *find_at_once(u32 timerId)
{
	auto *const timer = place_of<Kind>(timerId);

	return likely(Kind::list->magic == SYS_SLL_MAGIC && timer &&
		      timer->timerId == timerId)
		       ? timer
		       : nullptr;
}

/* Finds any timer; the lock is held, and there is a list. */
template <class Kind>
[[gnu::always_inline]] inline typename Kind::record *find(u32 timerId)
{
	auto *const timer = find_at_once<Kind>(timerId);

	return likely(timer) ? timer : look_for<Kind>(timerId);
}

/* What a start's file is kept in: the field is one byte longer, which is 0. */
template <class Record>
char (&file_of(Record *timer))[file_size]
{
	return reinterpret_cast<char(&)[file_size]>(timer->startFile);
}

/* The lock is held. */
template <class Record>
void clear_start(Record *timer)
{
	timer->period = 0;
	timer->running = 0;
	timer->startLine = 0;

	/* Aligned to a word, it is cleared by a few stores. */
	char *const file = timer->startFile;

	__builtin_memset(__builtin_assume_aligned(file, sizeof(u32)), 0,
			 sizeof(timer->startFile));
}

/* What differs between the kinds when a timer is made. */
struct kind_of_timer {
	const char *init_name;
	sys_sll_t *&list;
	u32 &index;
	u32 limit;
	u32 record_size;
	/* Without memory for its record, a timer leaves an empty node, or none.
	 */
	bool keeps_empty_node;
	void (*set_up)(void *record, u32 timerId, u32 compId,
		       timer_callback callback, u32 data);
	void (*keep)(void *record);
};

template <class Kind>
void set_up(void *record, u32 timerId, u32 compId, timer_callback callback,
	    u32 data)
{
	auto *const timer = static_cast<typename Kind::record *>(record);

	Kind::prepare(timer);
	timer->component = compId;
	timer->timerId = timerId;
	timer->running = 0;
	timer->data = data;
	timer->callback = callback;
}

/* Has a timer that was listed found by its ID. */
template <class Kind>
void keep(void *record)
{
	auto *const timer = static_cast<typename Kind::record *>(record);

	place_of<Kind>(timer->timerId) = timer;
}

template <class Kind>
constexpr kind_of_timer kind = { Kind::init_name,
				 Kind::list,
				 Kind::last_index,
				 Kind::limit,
				 sizeof(typename Kind::record),
				 Kind::keeps_empty_node,
				 set_up<Kind>,
				 keep<Kind> };

#define ADD_ERROR(...)                                                         \
	zorva_debug_print(ZORVA_LEVEL_ERROR, ZORVA_FILE, kind.init_name,       \
			  __LINE__, __VA_ARGS__)

/* Makes a timer and lists it; the lock is held. */
[[gnu::cold, gnu::noinline]] u32 add(const kind_of_timer &kind, u32 compId,
				     u32 *timerId, timer_callback callback,
				     u32 data)
{
	sys_sll_t *&list = kind.list;

	if (!list) {
		/* Others look whether there is one without the lock. */
		write_once(list, sys_sll_create(ZORVA_COMPONENT_SELF));
		if (!list) {
			ADD_ERROR("Create linked-list failed.");
			return ZORVA_RC_FAIL;
		}
	}
	if (list->count >= kind.limit) {
		ADD_ERROR("Maximum timer(=%d) has been reached", kind.limit);
		return ZORVA_RC_FAIL;
	}

	sys_sll_node_t *const node = sys_sll_node_new(ZORVA_COMPONENT_SELF);

	if (!node)
		return ZORVA_RC_FAIL;

	void *const timer =
		zorva_malloc(ZORVA_COMPONENT_SELF, kind.record_size);
	u32 result = ZORVA_RC_FAIL;

	if (timer)
		kind.set_up(timer, ++kind.index, compId, callback, data);
	if (timer || kind.keeps_empty_node) {
		node->pData = timer;
		result = sys_sll_node_add(list, node);
		if (!result && !timer)
			return ZORVA_RC_FAIL;
		if (!result) {
			kind.keep(timer);
			*timerId = kind.index;
			return ZORVA_RC_OK;
		}
		ADD_ERROR("Add timer node failed.");
		if (timer)
			zorva_free(ZORVA_COMPONENT_SELF, timer);
	}
	sys_sll_node_delete(list, node);
	zorva_free(ZORVA_COMPONENT_SELF, node);
	return result;
}

template <class Kind>
u32 init(u32 compId, u32 *timerId, timer_callback callback, u32 data,
	 const char *file)
{
	ZORVA_CHECK_IN(Kind::init_name, compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK_IN(Kind::init_name, compId < ZORVA_COMPONENTS,
		       ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK_IN(Kind::init_name, timerId, ZORVA_RC_NULL_ARG);
	ZORVA_CHECK_IN(Kind::init_name, callback, ZORVA_RC_NULL_ARG);
	ZORVA_CHECK_IN(Kind::init_name, file, ZORVA_RC_NULL_ARG);

	const irq_spin_guard lock(_zorvaTimerLock);

	return add(kind<Kind>, compId, timerId, callback, data);
}

/* The lock is held. Arms last: nothing of the call is needed after it. */
template <class Kind>
void note_and_arm(typename Kind::record *timer, u32 msecs, u32 line)
{
	timer->period = msecs;
	timer->running = 1;
	timer->startLine = line;
	Kind::arm(timer, msecs);
}

/* Starts a timer where something is out of the ordinary. */
template <class Kind>
[[gnu::noinline, gnu::cold]] u32 start_any(u32 timerId, u32 msecs,
					   const char *file, u32 line)
{
	const irq_spin_guard lock(_zorvaTimerLock);
	auto *const timer = find<Kind>(timerId);

	if (!timer)
		return ZORVA_RC_NOT_FOUND;
	if (timer->running)
		return ZORVA_RC_FAIL;
	copy_text(file_of(timer), file, file_size);
	note_and_arm<Kind>(timer, msecs, line);
	return ZORVA_RC_OK;
}

template <class Kind>
[[gnu::always_inline]] inline u32 start(u32 compId, const u32 *timerId,
					u32 msecs, const char *file, u32 line)
{
	if (unlikely(!valid_owner(compId))) {
		ZORVA_CHECK_IN(Kind::start_name, compId != 0,
			       ZORVA_RC_BAD_COMPONENT);
		ZORVA_CHECK_IN(Kind::start_name, compId < ZORVA_COMPONENTS,
			       ZORVA_RC_BAD_COMPONENT);
	}
	ZORVA_CHECK_IN(Kind::start_name, timerId, ZORVA_RC_NULL_ARG);
	ZORVA_CHECK_IN(Kind::start_name, msecs != 0, ZORVA_RC_BAD_VALUE);
	ZORVA_CHECK_IN(Kind::start_name, file, ZORVA_RC_NULL_ARG);
	ZORVA_CHECK_IN(Kind::start_name, read_once(Kind::list), ZORVA_RC_FAIL);

	{
		const irq_spin_guard lock(_zorvaTimerLock);
		auto *const timer = find_at_once<Kind>(*timerId);

		/* No call before the last: no register has to be saved. */
		if (likely(timer && !timer->running && is_in_words(file))) {
			copy_words(file_of(timer), file);
			note_and_arm<Kind>(timer, msecs, line);
			return ZORVA_RC_OK;
		}
	}
	return start_any<Kind>(*timerId, msecs, file, line);
}

/*
 * Stops a timer whose callback another processor may be calling. That is waited
 * for, unless interrupts or bottom halves are off: the caller may then hold
 * what the callback wants, or be that callback. A start in the meantime is
 * stopped as well.
 */
template <class Kind>
[[gnu::noinline, gnu::cold]] u32 stop_everywhere(u32 timerId)
{
	const bool may_wait = zk_may_wait();

	for (;;) {
		{
			const irq_spin_guard lock(_zorvaTimerLock);
			auto *const timer = find<Kind>(timerId);

			if (!timer)
				return ZORVA_RC_NOT_FOUND;

			const bool runs = Kind::disarm_or_runs(timer);

			clear_start(timer);
			if (!runs || !may_wait)
				return ZORVA_RC_OK;
		}
		zk_cpu_relax();
	}
}

template <class Kind>
[[gnu::always_inline]] inline u32 stop(u32 compId, const u32 *timerId,
				       const char *file)
{
	if (unlikely(!valid_owner(compId))) {
		ZORVA_CHECK_IN(Kind::stop_name, compId != 0,
			       ZORVA_RC_BAD_COMPONENT);
		ZORVA_CHECK_IN(Kind::stop_name, compId < ZORVA_COMPONENTS,
			       ZORVA_RC_BAD_COMPONENT);
	}
	ZORVA_CHECK_IN(Kind::stop_name, timerId, ZORVA_RC_NULL_ARG);
	ZORVA_CHECK_IN(Kind::stop_name, file, ZORVA_RC_NULL_ARG);
	ZORVA_CHECK_IN(Kind::stop_name, read_once(Kind::list), ZORVA_RC_FAIL);
	if (zk_is_smp())
		return stop_everywhere<Kind>(*timerId);

	{
		const irq_spin_guard lock(_zorvaTimerLock);
		auto *const timer = find<Kind>(*timerId);

		if (unlikely(!timer))
			return ZORVA_RC_NOT_FOUND;
		if (likely(timer->running))
			Kind::disarm(timer);
		clear_start(timer);
	}
	return ZORVA_RC_OK;
}

/* Never holds the lock from the stop to the start. */
template <class Kind>
[[gnu::cold]] u32 refresh(u32 compId, const u32 *timerId, u32 msecs,
			  const char *file, u32 line)
{
	ZORVA_CHECK_IN(Kind::refresh_name, compId != 0, ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK_IN(Kind::refresh_name, compId < ZORVA_COMPONENTS,
		       ZORVA_RC_BAD_COMPONENT);
	ZORVA_CHECK_IN(Kind::refresh_name, timerId, ZORVA_RC_NULL_ARG);
	ZORVA_CHECK_IN(Kind::refresh_name, msecs != 0, ZORVA_RC_BAD_VALUE);
	ZORVA_CHECK_IN(Kind::refresh_name, file, ZORVA_RC_NULL_ARG);

	u32 error = Kind::stop(compId, timerId, file, line);

	if (error) {
		ZORVA_ERROR_IN(Kind::refresh_name, Kind::stop_failed, file,
			       line);
		return error;
	}
	error = Kind::start(compId, timerId, msecs, file, line);
	if (error) {
		ZORVA_ERROR_IN(Kind::refresh_name, Kind::start_failed, file,
			       line);
		return error;
	}
	return ZORVA_RC_OK;
}

/*
 * Marks a timer as expired, and calls its callback without the lock; but not
 * when another processor has stopped it, or stopped and started it anew, since
 * the kernel took it for expired.
 */
template <class Kind>
void expire(typename Kind::record *timer)
{
	{
		const irq_spin_guard lock(_zorvaTimerLock);

		if (zk_is_smp() && (!timer->running || Kind::is_armed(timer)))
			return;
		clear_start(timer);
	}
	timer->callback(timer->data);
}

/* What the report shows of a timer. */
struct timer_view {
	u32 component;
	u32 timerId;
	u32 data;
	u32 period;
	u32 running;
	u32 startLine;
	char startFile[file_size];
};

bool print_timer(struct seq_file *seq, const void *copy)
{
	const auto &view = *static_cast<const timer_view *>(copy);

	zorva_proc_printf(seq, "%-11s%-9u%-6lu%-9u%-9u",
			  _componentName[view.component], view.timerId,
			  (unsigned long){ view.data }, view.period,
			  view.running);
	if (view.running)
		zorva_proc_printf(seq, "%.16s, %u\n", view.startFile,
				  view.startLine);
	else
		zorva_proc_printf(seq, "--\n");
	return true;
}

unsigned long lock_timers()
{
	return lock_irqsave(_zorvaTimerLock);
}

void unlock_timers(unsigned long flags)
{
	unlock_irqrestore(_zorvaTimerLock, flags);
}

/* The next node that has a timer; the lock is held. */
template <class Kind>
void *next_timer(void *last)
{
	const sys_sll_t *const list = Kind::list;
	auto *node = static_cast<sys_sll_node_t *>(last);

	do
		node = sys_sll_node_get_next(list, node);
	while (node && !node->pData);
	return node;
}

/* The lock is held. */
template <class Kind>
void copy_timer(void *copy, void *node)
{
	auto &view = *static_cast<timer_view *>(copy);
	const auto *const timer = static_cast<const typename Kind::record *>(
		static_cast<const sys_sll_node_t *>(node)->pData);

	view.component = timer->component;
	view.timerId = timer->timerId;
	view.data = timer->data;
	view.period = timer->period;
	view.running = timer->running;
	view.startLine = timer->startLine;
	copy_words(view.startFile, timer->startFile);
}

template <class Kind>
constexpr report_source timers = {
	sizeof(timer_view), lock_timers, unlock_timers, next_timer<Kind>,
	copy_timer<Kind>,   print_timer, nullptr
};

void dump(struct seq_file *seq, const report_source &source)
{
	zorva_proc_printf(seq,
			  "Component  Timer    Data  Msec     Running  StartBy  \n");
	zorva_proc_printf(seq,
			  "============================================================\n");
	show_all(seq, source);
}

} // namespace

[[gnu::cold]] u32 zorva_timer_init_track(u32 compId, u32 *timerId,
					 timer_callback callback, u32 data,
					 const char *file, u32)
{
	return init<tick_kind>(compId, timerId, callback, data, file);
}

u32 zorva_timer_start_track(u32 compId, const u32 *timerId, u32 msecs,
			    const char *file, u32 line)
{
	return start<tick_kind>(compId, timerId, msecs, file, line);
}

u32 zorva_timer_stop_track(u32 compId, const u32 *timerId, const char *file,
			   u32)
{
	return stop<tick_kind>(compId, timerId, file);
}

u32 zorva_timer_refresh_track(u32 compId, const u32 *timerId, u32 msecs,
			      const char *file, u32 line)
{
	return refresh<tick_kind>(compId, timerId, msecs, file, line);
}

[[gnu::cold]] u32 zorva_hrt_timer_init_track(u32 compId, u32 *timerId,
					     timer_callback callback, u32 data,
					     const char *file, u32)
{
	return init<hrt_kind>(compId, timerId, callback, data, file);
}

u32 zorva_hrt_timer_start_track(u32 compId, const u32 *timerId, u32 msecs,
				const char *file, u32 line)
{
	return start<hrt_kind>(compId, timerId, msecs, file, line);
}

u32 zorva_hrt_timer_stop_track(u32 compId, const u32 *timerId, const char *file,
			       u32)
{
	return stop<hrt_kind>(compId, timerId, file);
}

u32 zorva_hrt_timer_refresh_track(u32 compId, const u32 *timerId, u32 msecs,
				  const char *file, u32 line)
{
	return refresh<hrt_kind>(compId, timerId, msecs, file, line);
}

void _zorva_timer_wrapper(struct timer_list *timer)
{
	auto *const record = container_of(timer, tick_timer, timer);

	if (!record)
		return;
	expire<tick_kind>(record);
}

enum hrtimer_restart _zorva_hrt_timer_wrapper(struct hrtimer *timer)
{
	auto *const record = container_of(timer, hrt_timer, timer);

	if (!record || !record->callback)
		return HRTIMER_NORESTART;
	expire<hrt_kind>(record);
	return HRTIMER_NORESTART;
}

int zorva_timer_dump(struct seq_file *seq)
{
	dump(seq, timers<tick_kind>);
	return 0;
}

int zorva_hrt_timer_dump(struct seq_file *seq)
{
	dump(seq, timers<hrt_kind>);
	return 0;
}
