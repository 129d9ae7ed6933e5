// SPDX-License-Identifier: GPL-2.0
/*
 * What the module says: its reports are counted against the model, and its
 * report files are read. The recorder is called in any context; it only
 * changes atomic counters.
 */
#include <linux/string.h>

#include "soak.h"
#include "zorva_kernel.h"

#define REPORT_SIZE (192 * 1024)

struct soak_tally soak_expected, soak_said;

/* What the report files are read with. */
static struct zt_files files;

/* The texts that may come, and where they are counted. */
static const struct {
	const char *start;
	const char *end;
	atomic_t *count;
} known[] = {
	{ "Memory allocation failed: ", "", &soak_said.no_memory },
	{ "invalid parameter", "", &soak_said.invalid_parameter },
	{ "send to queue '", "", &soak_said.send_failed },
	{ "Thread '", "' has been created", &soak_said.threads_created },
	{ "Thread '", "' exit", &soak_said.threads_ended },
	/* These follow one of the above, and are not counted. */
	{ "error 0x7000002a", "", NULL },
	{ "error 0xffffffff", "", NULL },
	{ "allocate memory failed.", "", NULL },
	{ "create mutex failed.", "", NULL },
	{ "create semaphore failed.", "", NULL },
	{ "Create linked-list failed.", "", NULL },
};

static bool ends_with(const char *text, const char *end)
{
	const size_t length = strlen(text), end_length = strlen(end);

	return length >= end_length &&
	       strcmp(text + length - end_length, end) == 0;
}

static void record(u32 comp, s32 unit, u32 level, const char *file,
		   const char *func, s32 line, const char *format, ...)
{
	const char *text;
	va_list args;
	unsigned int i;

	va_start(args, format);
	text = va_arg(args, const char *);
	va_end(args);
	/* Where no module may set a real-time priority. */
	if (!zt_has_sched_setscheduler() && strstarts(text, "Set thread ") &&
	    ends_with(text, " scheduler failed."))
		return;
	for (i = 0; i < ARRAY_SIZE(known); i++)
		if (strstarts(text, known[i].start) &&
		    ends_with(text, known[i].end)) {
			if (known[i].count)
				atomic_inc(known[i].count);
			return;
		}
	SOAK_CHECK(level == ZORVA_LEVEL_INFO, "reported: %s (%s, %s:%d)", text,
		   func, file, line);
}

void soak_register_reports(void)
{
	zorva_debug_pr_fn_register(record);
	SOAK_CHECK(zt_files_init(&files) == 0, "no files can be read");
}

static void compare(const char *what, atomic_t *said, atomic_t *expected)
{
	SOAK_CHECK(atomic_read(said) == atomic_read(expected),
		   "%s: reported %d times, not %d", what, atomic_read(said),
		   atomic_read(expected));
}

void soak_check_reports(void)
{
	compare("no memory", &soak_said.no_memory, &soak_expected.no_memory);
	compare("invalid parameter", &soak_said.invalid_parameter,
		&soak_expected.invalid_parameter);
	compare("send failed", &soak_said.send_failed,
		&soak_expected.send_failed);
	compare("thread created", &soak_said.threads_created,
		&soak_expected.threads_created);
	compare("thread exit", &soak_said.threads_ended,
		&soak_expected.threads_created);
}

/* Opens a file of the module's directory. */
static struct file *open_report(const char *name, int flags)
{
	char path[48];
	struct file *file;

	snprintf(path, sizeof(path), "/proc/zorva/%s", name);
	file = zt_open(&files, path, flags);
	SOAK_CHECK(!IS_ERR(file), "%s cannot be opened: %ld", name,
		   IS_ERR(file) ? PTR_ERR(file) : 0);
	return IS_ERR(file) ? NULL : file;
}

char *soak_read_report(const char *name)
{
	char *const buffer = kvmalloc(REPORT_SIZE, GFP_KERNEL);
	struct file *file;
	ssize_t length;

	/* The board may be short of memory in earnest. */
	if (!buffer)
		return NULL;
	file = open_report(name, O_RDONLY);
	if (!file) {
		kvfree(buffer);
		return NULL;
	}
	length = zt_read_whole(&files, file, buffer, REPORT_SIZE);
	filp_close(file, NULL);
	SOAK_CHECK(length >= 0, "%s cannot be read: %zd", name, length);
	SOAK_CHECK(length < REPORT_SIZE - 1, "%s has no end", name);
	SOAK_CHECK(!strstr(buffer, "memory corruption"),
		   "%s shows a torn block", name);
	return buffer;
}

void soak_write_filter(const char *text)
{
	struct file *const file = open_report("zorva.mem.detail", O_WRONLY);
	const size_t length = strlen(text);
	ssize_t count;

	if (!file)
		return;
	count = zt_write(&files, file, text);
	filp_close(file, NULL);
	SOAK_CHECK(count == length, "the filter cannot be written: %zd", count);
}

struct soak_account soak_account_of(u32 comp)
{
	struct soak_account account = {};
	char *const report = soak_read_report("zorva.mem");
	const char *row = report;
	u32 max, frees;
	char name[16];

	if (!report)
		return account;
	snprintf(name, sizeof(name), "\n%-11s", _componentName[comp]);
	row = strstr(report, name);
	if (row && sscanf(row + 1, "%*s %u %u %u %u", &account.bytes, &max,
			  &account.allocs, &frees) == 4)
		account.blocks = account.allocs - frees;
	kvfree(report);
	return account;
}

int soak_number_in_report(const char *name, const char *text)
{
	char *const report = soak_read_report(name);
	const char *place = report ? strstr(report, text) : NULL;
	int number = -1;

	if (place && sscanf(place + strlen(text), "%d", &number) != 1)
		number = -1;
	kvfree(report);
	return number;
}
