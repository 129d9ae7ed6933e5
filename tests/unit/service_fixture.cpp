// SPDX-License-Identifier: GPL-2.0
/* What the tests of all services that block, wait or expire have in common. */
#include "service_fixture.h"
#include "fake/internal.h"

#include <gtest/gtest-spi.h>

texts complaints_of(const std::function<void()> &call)
{
	::testing::TestPartResultArray failures;
	texts found;

	{
		const ::testing::ScopedFakeTestPartResultReporter
			catcher(::testing::ScopedFakeTestPartResultReporter::
					INTERCEPT_ALL_THREADS,
				&failures);
		call();
	}
	for (int i = 0; i < failures.size(); ++i)
		found.push_back(failures.GetTestPartResult(i).message());
	return found;
}

size_t tracked_blocks()
{
	size_t count = 0;

	for (const auto *block = _pZorvaMallocMemList; block;
	     block = block->next)
		++count;
	return count;
}

void tear(void *block)
{
	*guard_of(static_cast<zorva_mem_block_hdr_t *>(block) - 1) = 0;
}

void tear_all()
{
	for (auto *block = _pZorvaMallocMemList; block; block = block->next)
		tear(block + 1);
}

void leave(const void *block)
{
	fake::leave_allocated(
		static_cast<const zorva_mem_block_hdr_t *>(block) - 1);
}

report_run run_report(int (*dump)(struct seq_file *seq), size_t size)
{
	const size_t before = fake::seq_prints().size();
	struct file file = {};
	report_run run = {};

	single_open_size(&file, nullptr, nullptr, size);
	run.result = dump(zk_seq_of(&file));
	run.overflowed = zk_seq_has_overflowed(zk_seq_of(&file));
	single_release(nullptr, &file);

	const auto &prints = fake::seq_prints();

	run.prints.assign(prints.begin() + before, prints.end());
	for (const fake::seq_print &each : run.prints)
		run.text += each.text;
	return run;
}

report_run run_report_without_copy(int (*dump)(struct seq_file *seq),
				   size_t size)
{
	/* The file takes three allocations, and the copy is the next one. */
	fake::fail_allocation(4);

	const report_run run = run_report(dump, size);

	bool refused = false;
	for (const fake::heap_call &call : fake::heap_calls())
		refused |= call.what == fake::heap_call::kvrefused;
	EXPECT_TRUE(refused);
	return run;
}

std::string file_text(const std::string &entry)
{
	if (!_zorvaProcDir)
		zorva_init();
	return fake::read_report("zorva/" + entry);
}

void ServiceTest::refuses_once(const std::string &file, const std::string &func,
			       u32 result, const std::function<u32()> &call,
			       s32 &line)
{
	const size_t reported = reports().size();
	const size_t called = fake::calls().size();
	const size_t heap_called = fake::heap_calls().size();
	const size_t locks_taken = fake::spin_locks_taken();
	const size_t logged = fake::log_size();

	EXPECT_EQ(call(), result);

	EXPECT_EQ(fake::calls().size(), called);
	EXPECT_EQ(fake::heap_calls().size(), heap_called);
	EXPECT_EQ(fake::spin_locks_taken(), locks_taken);
	EXPECT_EQ(fake::log_size(), logged);
	ASSERT_EQ(reports().size(), reported + 1);
	const report &said = reports().back();
	EXPECT_EQ(said.level, 1u);
	EXPECT_EQ(said.file, file);
	EXPECT_EQ(said.func, func);
	EXPECT_EQ(said.text, "invalid parameter");
	line = said.line;
	looked_at_ = reports().size();
}

void ServiceTest::refuses(const std::string &file, const std::string &func,
			  const std::vector<bad_argument> &arguments)
{
	s32 last = 0;
	size_t number = 0;

	for (const bad_argument &each : arguments) {
		SCOPED_TRACE("argument " + std::to_string(++number));
		s32 alone = 0;
		s32 and_later = 0;

		refuses_once(file, func, each.result, each.alone, alone);
		refuses_once(file, func, each.result, each.and_later,
			     and_later);
		EXPECT_GT(alone, last);
		EXPECT_EQ(alone, and_later);
		last = alone;
	}
}

std::string ServiceTest::new_reports()
{
	std::string text;

	for (; looked_at_ < reports().size(); ++looked_at_) {
		const report &each = reports()[looked_at_];

		text += std::to_string(each.level) + " " + each.file + " " +
			each.func + ": " + each.text + "\n";
	}
	return text;
}

std::string ServiceTest::own_reports()
{
	std::string text = new_reports();
	size_t at;

	while ((at = text.find("1 zorva_mem.cpp zorva_malloc_track: "
			       "Memory allocation failed")) !=
	       std::string::npos)
		text.erase(at, text.find('\n', at) - at + 1);
	return text;
}

unsigned int ServiceTest::fail_each_allocation(
	const std::function<void(unsigned int nth)> &call)
{
	for (unsigned int nth = 1;; ++nth) {
		const size_t before = fake::heap_calls().size();
		bool refused = false;

		fake::fail_allocation(nth);
		call(nth);
		for (size_t i = before; i < fake::heap_calls().size(); ++i)
			refused |= fake::heap_calls()[i].what ==
				   fake::heap_call::refused;
		if (!refused) {
			fake::fail_allocation(0);
			return nth - 1;
		}
	}
}

void ServiceTest::expect_torn_free(const std::string &component,
				   const std::string &file)
{
	EXPECT_TRUE(last_report().starts_with(
		"1 zorva_mem.cpp zorva_free_track: Memory corruption: guard "
		"overwritten (" +
		component + ", " + file + ":"))
		<< last_report();
	EXPECT_EQ(fake::kernel_log().back().text, "<stack>\n");
}

texts ServiceTest::torn_frees()
{
	const std::string torn = "Memory corruption: guard overwritten (";
	texts found;

	for (; looked_at_ < reports().size(); ++looked_at_) {
		const std::string &text = reports()[looked_at_].text;

		if (text.starts_with(torn))
			found.push_back(
				text.substr(torn.size(),
					    text.rfind(':') - torn.size()));
	}
	EXPECT_NE(fake::log_text(), "");
	return found;
}

/*
 * Whoever may have to wait holds neither a registry of locks nor the list of
 * queues; so no two of them are ever held together.
 */
static void expect_lock_order()
{
	for (const fake::call &each :
	     fake::calls_to({ "down", "down_timeout", "mutex_lock", "schedule",
			      "schedule_timeout", "usleep_range", "yield" })) {
		EXPECT_FALSE(each.at.has_taken(&_zorvaMutexDbg.lock))
			<< each.text;
		EXPECT_FALSE(each.at.has_taken(&_zorvaSemDbg.lock))
			<< each.text;
		EXPECT_FALSE(each.at.has_taken(&zorva_msgq_list_lock))
			<< each.text;
	}
}

void ServiceTest::TearDown()
{
	fake::on_call(nullptr);
	on_report(nullptr);
	expect_lock_order();
	if (_zorvaMutexDbg.initialised) {
		EXPECT_EQ(zk_sema_count(&_zorvaMutexDbg.lock), 1u);
	}
	if (_zorvaSemDbg.initialised) {
		EXPECT_EQ(zk_sema_count(&_zorvaSemDbg.lock), 1u);
	}
	EXPECT_FALSE(mutex_is_locked(&zorva_msgq_list_lock));
	ModuleTest::TearDown();
}
