// SPDX-License-Identifier: GPL-2.0
/*
 * What the suites share. This is a module of its own because the first
 * debug-print function stays registered for as long as zorva is loaded: its
 * code must not go away with a suite.
 *
 * The recorder is called in any context, also with the module's memory lock
 * held. The records are guarded by a spin lock taken with interrupts off.
 */
#include <linux/completion.h>
#include <linux/interrupt.h>
#include <linux/module.h>
#include <linux/sched.h>
#include <linux/slab.h>
#include <linux/stop_machine.h>
#include <linux/string.h>
#include <linux/timekeeping.h>
#include <linux/vmalloc.h>

#include "zorva_test.h"

#define RECORDS 32u
#define FILE_SIZE (256 * 1024)

/* Guards the records and their number, which goes on beyond RECORDS. */
static DEFINE_SPINLOCK(records_lock);
static struct zt_report records[RECORDS];
static unsigned int recorded;

struct zt_registration zt_registration;
EXPORT_SYMBOL_GPL(zt_registration);

static void record(u32 comp, s32 unit, u32 level, const char *file,
		   const char *func, s32 line, const char *format, ...)
{
	const bool irqs_off = irqs_disabled();
	unsigned long flags;
	va_list args;

	spin_lock_irqsave(&records_lock, flags);
	if (recorded < RECORDS) {
		struct zt_report *report = &records[recorded];

		report->comp = comp;
		report->unit = unit;
		report->level = level;
		report->line = line;
		report->irqs_off = irqs_off;
		strscpy(report->file, file, sizeof(report->file));
		strscpy(report->func, func, sizeof(report->func));
		strscpy(report->format, format, sizeof(report->format));
		va_start(args, format);
		vsnprintf(report->text, sizeof(report->text), format, args);
		va_end(args);
	}
	recorded++;
	spin_unlock_irqrestore(&records_lock, flags);
}

static void record_nothing(u32 comp, s32 unit, u32 level, const char *file,
			   const char *func, s32 line, const char *format, ...)
{
	zt_registration.second_calls++;
}

void zt_forget_reports(void)
{
	unsigned long flags;

	spin_lock_irqsave(&records_lock, flags);
	memset(records, 0, sizeof(records));
	recorded = 0;
	spin_unlock_irqrestore(&records_lock, flags);
}
EXPORT_SYMBOL_GPL(zt_forget_reports);

unsigned int zt_report_count(void)
{
	return READ_ONCE(recorded);
}
EXPORT_SYMBOL_GPL(zt_report_count);

const struct zt_report *zt_report(struct kunit *test, unsigned int index)
{
	KUNIT_ASSERT_LT(test, index, min_t(u32, zt_report_count(), RECORDS));
	return &records[index];
}
EXPORT_SYMBOL_GPL(zt_report);

const char *zt_text(struct kunit *test, const char *format, ...)
{
	va_list args, again;
	char *text;
	int length;

	va_start(args, format);
	va_copy(again, args);
	length = vsnprintf(NULL, 0, format, args);
	text = kunit_kmalloc(test, length + 1, GFP_KERNEL);
	KUNIT_ASSERT_NOT_ERR_OR_NULL(test, text);
	vsnprintf(text, length + 1, format, again);
	va_end(again);
	va_end(args);
	return text;
}
EXPORT_SYMBOL_GPL(zt_text);

const char *zt_reports(struct kunit *test)
{
	const unsigned int count = zt_report_count();
	const char *all = "";
	unsigned int i;

	for (i = 0; i < min_t(u32, count, RECORDS); i++) {
		const struct zt_report *report = &records[i];

		all = zt_text(test,
			      "%scomponent %u, unit %d, level %u, %s, %s: %s%s\n",
			      all, report->comp, report->unit, report->level,
			      report->file, report->func,
			      strcmp(report->format, "%s") == 0
				      ? ""
				      : "(another format) ",
			      report->text);
	}
	if (count > RECORDS)
		all = zt_text(test, "%s%u more\n", all, count - RECORDS);
	return all;
}
EXPORT_SYMBOL_GPL(zt_reports);

/* The text of one line, for a message. */
static const char *line_at(struct kunit *test, const char *text)
{
	const int length = strchrnul(text, '\n') - text;

	if (!*text)
		return "(the end)";
	return zt_text(test, "\"%.*s%s\"", min_t(int, length, 300), text,
		       text[length] ? "\\n" : "");
}

const char *zt_difference(struct kunit *test, const char *got, const char *want)
{
	unsigned int line = 1;
	size_t i, start = 0;

	if (strcmp(got, want) == 0)
		return NULL;
	for (i = 0; got[i] == want[i]; i++)
		if (got[i] == '\n') {
			line++;
			start = i + 1;
		}
	return zt_text(test, "line %u, column %zu: got %s, expected %s", line,
		       i - start + 1, line_at(test, got + start),
		       line_at(test, want + start));
}
EXPORT_SYMBOL_GPL(zt_difference);

struct zt_files zt_files;
EXPORT_SYMBOL_GPL(zt_files);

static struct file *open_report(struct kunit *test, const char *name, int flags)
{
	struct file *file;

	file = zt_open(&zt_files, zt_text(test, "/proc/zorva/%s", name), flags);
	KUNIT_ASSERT_FALSE_MSG(test, IS_ERR(file), "no report file %s", name);
	return file;
}

const char *zt_file(struct kunit *test, const char *name)
{
	struct file *file = open_report(test, name, O_RDONLY);
	char *buffer = vmalloc(FILE_SIZE);
	char *text = NULL;
	ssize_t length = -ENOMEM;

	if (buffer)
		length = zt_read_whole(&zt_files, file, buffer, FILE_SIZE);
	filp_close(file, NULL);
	if (length >= 0)
		text = kunit_kmalloc(test, length + 1, GFP_KERNEL);
	if (text)
		memcpy(text, buffer, length + 1);
	vfree(buffer);
	KUNIT_ASSERT_NOT_ERR_OR_NULL_MSG(test, text, "%s cannot be read: %zd",
					 name, length);
	return text;
}
EXPORT_SYMBOL_GPL(zt_file);

ssize_t zt_write_file(struct kunit *test, const char *name, const char *text)
{
	struct file *file = open_report(test, name, O_WRONLY);
	const ssize_t count = zt_write(&zt_files, file, text);

	filp_close(file, NULL);
	return count;
}
EXPORT_SYMBOL_GPL(zt_write_file);

const char *zt_mem_row(struct kunit *test, u32 comp)
{
	const char *name = zt_text(test, "%-11s", _componentName[comp]);
	const char *line = zt_file(test, "zorva.mem");

	for (; *line; line = strchrnul(line, '\n') + 1)
		if (strncmp(line, name, strlen(name)) == 0)
			return zt_text(test, "%.*s\n",
				       (int)(strchrnul(line, '\n') - line),
				       line);
	return "";
}
EXPORT_SYMBOL_GPL(zt_mem_row);

u32 zt_uptime_secs(void)
{
	struct timespec64 now;

	ktime_get_coarse_boottime_ts64(&now);
	return now.tv_sec;
}
EXPORT_SYMBOL_GPL(zt_uptime_secs);

/* Where the log was marked, and the line that is looked at. */
static struct zt_log_place marked = ZT_LOG_PLACE_INIT;
static char log_line[1200];

void zt_mark_log(void)
{
	kmsg_dump_rewind(&marked);
	marked.cur_seq = marked.next_seq;
}
EXPORT_SYMBOL_GPL(zt_mark_log);

/* What the kernel says of itself at any time, whoever runs. */
static bool is_of_the_kernel(const char *text)
{
	static const char *const begins[] = {
		"clocksource: ", "hrtimer: interrupt took ", "random: ",
		"sched_clock: ", "spurious 8259A interrupt", "tsc: ",
	};
	unsigned int i;

	for (i = 0; i < ARRAY_SIZE(begins); i++)
		if (strncmp(text, begins[i], strlen(begins[i])) == 0)
			return true;
	return false;
}

/*
 * The next line of the log that is neither KUnit's nor the kernel's own,
 * without its time stamp.
 */
static const char *next_log_line(struct zt_log_place *place)
{
	size_t length;

	while (kmsg_dump_get_line(place, false, log_line, sizeof(log_line) - 1,
				  &length)) {
		const char *text;

		log_line[length] = '\0';
		text = strstr(log_line, "] ");
		text = text ? text + 2 : log_line;
		if (strncmp(text, KUNIT_SUBTEST_INDENT,
			    strlen(KUNIT_SUBTEST_INDENT)) != 0 &&
		    !is_of_the_kernel(text))
			return text;
	}
	return NULL;
}

const char *zt_log(struct kunit *test)
{
	struct zt_log_place place = marked;
	const char *all = "", *line;

	while ((line = next_log_line(&place)))
		all = zt_text(test, "%s%s", all, line);
	return all;
}
EXPORT_SYMBOL_GPL(zt_log);

static unsigned int log_lines(const char *with)
{
	struct zt_log_place place = marked;
	unsigned int count = 0;
	const char *line;

	while ((line = next_log_line(&place)))
		if (strstr(line, with))
			count++;
	return count;
}

unsigned int zt_stack_dumps(void)
{
	return log_lines(ZT_STACK_TITLE) - log_lines("[ cut here ]");
}
EXPORT_SYMBOL_GPL(zt_stack_dumps);

void zt_fail_allocation(unsigned int n)
{
	current->fail_nth = n;
}
EXPORT_SYMBOL_GPL(zt_fail_allocation);

bool zt_end_failing(void)
{
	const bool failed = current->fail_nth == 0;

	current->fail_nth = 0;
	return failed;
}
EXPORT_SYMBOL_GPL(zt_end_failing);

/* A call that another context makes, and its end. */
struct errand {
	void (*fn)(void *arg);
	void *arg;
	struct completion done;
	union {
		struct hrtimer hrtimer;
		struct timer_list timer;
		struct tasklet_struct tasklet;
	};
};

static void begin(struct errand *errand, void (*fn)(void *arg), void *arg)
{
	errand->fn = fn;
	errand->arg = arg;
	init_completion(&errand->done);
}

static void run_directly(void (*fn)(void *arg), void *arg)
{
	fn(arg);
}

static void run_with_irqs_off(void (*fn)(void *arg), void *arg)
{
	unsigned long flags;

	local_irq_save(flags);
	fn(arg);
	local_irq_restore(flags);
}

struct lone_call {
	void (*fn)(void *arg);
	void *arg;
};

static int call_alone(void *data)
{
	struct lone_call *const call = data;

	call->fn(call->arg);
	return 0;
}

void zt_alone(void (*fn)(void *arg), void *arg)
{
	struct lone_call call = { fn, arg };

	stop_machine(call_alone, &call, NULL);
}
EXPORT_SYMBOL_GPL(zt_alone);

static void run_under_spin_lock(void (*fn)(void *arg), void *arg)
{
	static DEFINE_SPINLOCK(lock);

	spin_lock(&lock);
	fn(arg);
	spin_unlock(&lock);
}

static void timer_expired(struct timer_list *timer)
{
	struct errand *errand = container_of(timer, struct errand, timer);

	errand->fn(errand->arg);
	complete(&errand->done);
}

static void run_in_timer(void (*fn)(void *arg), void *arg)
{
	struct errand errand;

	begin(&errand, fn, arg);
	timer_setup_on_stack(&errand.timer, timer_expired, 0);
	mod_timer(&errand.timer, jiffies + 1);
	wait_for_completion(&errand.done);
	timer_delete_sync(&errand.timer);
	timer_destroy_on_stack(&errand.timer);
}

static void tasklet_runs(struct tasklet_struct *tasklet)
{
	struct errand *errand = container_of(tasklet, struct errand, tasklet);

	errand->fn(errand->arg);
	complete(&errand->done);
}

static void run_in_tasklet(void (*fn)(void *arg), void *arg)
{
	struct errand errand;

	begin(&errand, fn, arg);
	tasklet_setup(&errand.tasklet, tasklet_runs);
	tasklet_schedule(&errand.tasklet);
	wait_for_completion(&errand.done);
	tasklet_kill(&errand.tasklet);
}

static enum hrtimer_restart hrtimer_expired(struct hrtimer *hrtimer)
{
	struct errand *errand = container_of(hrtimer, struct errand, hrtimer);

	errand->fn(errand->arg);
	complete(&errand->done);
	return HRTIMER_NORESTART;
}

static void run_in_hrtimer(void (*fn)(void *arg), void *arg)
{
	struct errand errand;

	begin(&errand, fn, arg);
	hrtimer_setup_on_stack(&errand.hrtimer, hrtimer_expired,
			       CLOCK_MONOTONIC, HRTIMER_MODE_REL);
	hrtimer_start(&errand.hrtimer, ns_to_ktime(200000), HRTIMER_MODE_REL);
	wait_for_completion(&errand.done);
	hrtimer_cancel(&errand.hrtimer);
	destroy_hrtimer_on_stack(&errand.hrtimer);
}

static bool in_a_thread(void)
{
	return in_task() && !irqs_disabled();
}

static bool in_a_thread_with_irqs_off(void)
{
	return in_task() && irqs_disabled();
}

static bool in_a_soft_interrupt(void)
{
	return in_serving_softirq() && !in_hardirq();
}

static bool in_a_hard_interrupt(void)
{
	return in_hardirq() && irqs_disabled();
}

const struct zt_call_context zt_contexts[] = {
	{ "thread", run_directly, in_a_thread, false },
	{ "spin lock held", run_under_spin_lock, in_a_thread, false },
	{ "interrupts off", run_with_irqs_off, in_a_thread_with_irqs_off,
	  true },
	{ "timer", run_in_timer, in_a_soft_interrupt, false },
	{ "tasklet", run_in_tasklet, in_a_soft_interrupt, false },
	{ "high-resolution timer", run_in_hrtimer, in_a_hard_interrupt, true },
};
EXPORT_SYMBOL_GPL(zt_contexts);

const unsigned int zt_context_count = ARRAY_SIZE(zt_contexts);
EXPORT_SYMBOL_GPL(zt_context_count);

/* Accesses that the kernel had to mend so far, anywhere; 0 if not counted. */
static u32 unaligned_accesses(void)
{
	struct file *file;
	char text[16];
	u32 count = 0;

	file = zt_open(&zt_files,
		       "/sys/kernel/debug/mips/unaligned_instructions",
		       O_RDONLY);
	if (IS_ERR(file))
		return 0;
	if (zt_read_whole(&zt_files, file, text, sizeof(text)) > 0)
		count = simple_strtoul(text, NULL, 10);
	filp_close(file, NULL);
	return count;
}

/* How things stood before the test. */
struct before {
	struct zt_block *newest;
	u32 unaligned;
};

/* Looks at the head of the list of live blocks by way of a block of its own. */
static struct zt_block *newest_block(struct kunit *test)
{
	void *probe = zorva_malloc(ZT_PROBE_COMPONENT, 1);
	struct zt_block *newest;

	if (!probe) {
		KUNIT_FAIL(test, "no block can be allocated");
		return NULL;
	}
	newest = zt_block_of(probe)->older;
	zorva_free(ZT_PROBE_COMPONENT, probe);
	return newest;
}

int zt_init(struct kunit *test)
{
	struct before *before;

	before = kunit_kzalloc(test, sizeof(*before), GFP_KERNEL);
	if (!before)
		return -ENOMEM;
	before->newest = newest_block(test);
	before->unaligned = unaligned_accesses();
	test->priv = before;
	zt_forget_reports();
	zt_mark_log();
	return 0;
}
EXPORT_SYMBOL_GPL(zt_init);

/* What the test has left is freed, so that the next one does not fail too. */
static void expect_no_new_blocks(struct kunit *test, struct zt_block *old)
{
	struct zt_block *block = newest_block(test);
	unsigned int left = 0;

	while (block != old && virt_addr_valid(block) && left < 10000) {
		struct zt_block *older = block->older;

		zorva_free(ZT_PROBE_COMPONENT, block + 1);
		block = older;
		left++;
	}
	KUNIT_EXPECT_PTR_EQ_MSG(test, block, old, "the list of blocks is torn");
	KUNIT_EXPECT_EQ_MSG(test, left, 0u, "blocks are left behind");
}

void zt_keep_blocks(struct kunit *test)
{
	struct before *before = test->priv;

	if (before)
		before->newest = newest_block(test);
}
EXPORT_SYMBOL_GPL(zt_keep_blocks);

void zt_exit(struct kunit *test)
{
	const struct before *before = test->priv;

	KUNIT_EXPECT_FALSE_MSG(test, irqs_disabled(), "interrupts are off");
	local_irq_enable();
	KUNIT_EXPECT_EQ_MSG(test, preempt_count(), 0, "a spin lock is held");
	zt_end_failing();
	if (!before)
		return;
	expect_no_new_blocks(test, before->newest);
	KUNIT_EXPECT_EQ_MSG(test, unaligned_accesses(), before->unaligned,
			    "there were unaligned accesses");
}
EXPORT_SYMBOL_GPL(zt_exit);

static int __init support_init(void)
{
	const int error = zt_files_init(&zt_files);

	if (error)
		return error;
	zt_mark_log();
	zorva_malloc(0, 1);
	zt_registration.null_result = zorva_debug_pr_fn_register(NULL);
	zorva_malloc(0, 1);
	zt_registration.silent_before = log_lines("") == 0;

	zt_registration.first_result = zorva_debug_pr_fn_register(record);
	zt_registration.second_result =
		zorva_debug_pr_fn_register(record_nothing);
	zt_registration.null_again_result = zorva_debug_pr_fn_register(NULL);
	return 0;
}

static void __exit support_exit(void)
{
	zt_files_exit(&zt_files);
}

module_init(support_init);
module_exit(support_exit);
MODULE_LICENSE("GPL");
MODULE_DESCRIPTION("What the suites for ZORVA share");
