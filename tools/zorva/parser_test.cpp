// SPDX-License-Identifier: GPL-2.0
/*
 * What is read of inputs that are not as the module prints them: cut off,
 * mixed with other things, hostile. That what the module does print is read
 * back as it is, the unit tests of the module prove.
 */
#include "crc.h"
#include "parser.h"
#include "snapshot.h"

#include <gtest/gtest.h>

namespace zorva
{
namespace
{

constexpr char detail[] =
	"\n"
	"----------------\n"
	"Current Time : 12\n"
	"----------------\n"
	"\n"
	"Component   : PORT\n"
	"Curr Usage  : 48\n"
	"Max Usage   : 48\n"
	"Alloc Count : 2\n"
	"Free Count  : 0\n"
	"----------------\n"
	"  [0000000012] 8158c7b4 - 32 bytes (fw_port.c, 153)\n"
	"  [0000000002] 8158c734 - 16 bytes (fw_port.c, 15)\n"
	"\n";

constexpr char mutexes[] = "\n"
			   "----------------\n"
			   "Dump all ACTIVE & LOCKED mutex(s)\n"
			   "Current Time : 6\n"
			   "----------------\n"
			   "\n"
			   "Index     : 3\n"
			   "Name      : fdb\n"
			   "Component : FDB (17)\n"
			   "Status    : Take\n"
			   "Locker    : 40 (fdb-save)\n"
			   "---------------------------------\n"
			   "  [0000000000000005] Take @fw_fdb.c, 192\n"
			   "\n"
			   "\n"
			   "Number of Mutex: 1\n"
			   "\n";

constexpr char threads[] = "Component : FDB\n"
			   "Name      : fdb-learn\n"
			   "PID       : 39\n"
			   "State     : 2\n"
			   "Priority  : 128\n"
			   "\n";

/* The first diagnostic, with its line. */
std::string said(const reading &from)
{
	if (from.diagnostics.empty())
		return "";
	return std::to_string(from.diagnostics[0].at.line) + ": " +
	       from.diagnostics[0].text;
}

reading read_file_text(const char *path, std::string_view text)
{
	reading from;

	parse_file(from, path, text);
	complete_last_moment(from);
	return from;
}

std::string replaced(std::string text, std::string_view what,
		     std::string_view with)
{
	const size_t at = text.find(what);

	EXPECT_NE(at, text.npos) << what;
	return text.replace(at, what.size(), with);
}

std::string snapshot_of(const std::string &body)
{
	checksum sum;

	sum.add(body);
	return "zorva-snapshot 1 m4rk\n" + body + "zorva-snapshot end m4rk " +
	       std::to_string(sum.value()) + " " + std::to_string(body.size()) +
	       "\n";
}

std::string snapshot_body()
{
	return std::string("==> m4rk /proc/uptime\n12.34 10.50\n"
			   "==> m4rk /proc/zorva/zorva.mem.detail\n") +
	       detail + "==> m4rk /proc/zorva/zorva.mutex\n" + mutexes +
	       "==> m4rk /proc/39/task/39/stat\n"
	       "39 (fdb) (x) D 2 0 0\n"
	       "==> m4rk /proc/39/task/39/stack\n"
	       "[<0>] zorva_mutex_take_track+0x12c/0x2b4 [zorva]\n"
	       "[<0>] kthread+0x100/0x120\n"
	       "==> m4rk /proc/meminfo\n"
	       "MemTotal:         123456 kB\n"
	       "MemAvailable:      98123 kB\n"
	       "HugePages_Total:       0\n"
	       "==> m4rk /proc/modules\n"
	       "zorva 45056 3 fw_port,fw_sys, Live 0xc0028000 (O)\n";
}

/* Text that is no report at all. */

TEST(Parser, FindsNothingInNothing)
{
	const reading from = read_text("empty", "");

	EXPECT_EQ(from.moments.size(), 1u);
	EXPECT_TRUE(is_empty(from.last()));
	EXPECT_EQ(from.errors + from.warnings, 0u);
}

TEST(Parser, CountsWhatIsInNoReport)
{
	const reading from = read_text("log", "hello\nboard:~# ls\nx\n");

	EXPECT_EQ(from.other_lines, 3u);
	EXPECT_EQ(from.errors, 0u);
}

/* A text that changes. */

TEST(Parser, NamesALineThatItDoesNotKnow)
{
	const reading from = read_file_text("zorva.mem.detail",
					    replaced(detail, "Max Usage   : 48",
						     "Most Usage  : 48"));

	EXPECT_EQ(from.errors, 1u);
	EXPECT_EQ(said(from), "8: not understood: 'Most Usage  : 48'");
	EXPECT_EQ(from.last().blocks.blocks.size(), 2u);
}

TEST(Parser, KnowsEachTextExactly)
{
	const std::pair<const char *, const char *> changes[] = {
		{ "Current Time : 12", "Current Time: 12" },
		{ "Component   : PORT", "Component  : PORT" },
		{ "Curr Usage  : 48", "Curr Usage  : 48 bytes" },
		{ "Alloc Count : 2", "Allocations : 2" },
		{ "32 bytes", "32 Bytes" },
		{ "  [0000000012]", " [0000000012]" },
		{ "fw_port.c, 153)", "fw_port.c:153)" },
	};

	for (const auto &[old, changed] : changes)
		EXPECT_GE(read_file_text("zorva.mem.detail",
					 replaced(detail, old, changed))
				  .errors,
			  1u)
			<< changed;
}

/* Numbers. */

TEST(Parser, LosesOnlyTheRowWhoseNumberOverflows)
{
	const reading from =
		read_file_text("zorva.mem.detail",
			       replaced(detail, "- 32 bytes",
					"- 99999999999999999999 bytes"));

	EXPECT_EQ(from.errors, 1u);
	EXPECT_EQ(from.diagnostics[0].at.line, 12u);
	ASSERT_EQ(from.last().blocks.blocks.size(), 1u);
	EXPECT_EQ(from.last().blocks.blocks[0].size, 16u);
}

TEST(Parser, TakesThePeriodFromADataWordThatRunsIntoIt)
{
	const reading from =
		read_file_text("zorva.timer",
			       "Component  Timer    Data  Msec     Running  StartBy  \n"
			       "============================================================\n"
			       "PORT       1        0     50       1        fw_link.c, 52\n"
			       "PORT       2        429496729550       1        a, b.c, 7\n"
			       "PORT       3        1234560        0        --\n"
			       "PORT       4        4294967295123456789"
			       "1        x.c, 1\n");

	EXPECT_EQ(from.errors, 0u) << said(from);
	ASSERT_EQ(from.last().timers.timers.size(), 4u);

	const auto &timers = from.last().timers.timers;

	EXPECT_EQ(timers[1].data, 4294967295u);
	EXPECT_EQ(timers[1].period_ms, 50u);
	EXPECT_EQ(timers[1].started_by->file, "a, b.c");
	EXPECT_EQ(timers[2].data, 123456u);
	EXPECT_EQ(timers[2].period_ms, 0u);
	EXPECT_FALSE(timers[2].running);
	EXPECT_FALSE(timers[2].started_by);
	EXPECT_EQ(timers[3].data, 4294967295u);
	EXPECT_EQ(timers[3].period_ms, 123456789u);
	EXPECT_TRUE(timers[3].running);
}

/* Names. */

TEST(Parser, TakesANameForWhatItIs)
{
	const std::string name = "x\033[2J\x01\xff Take @ (3), 7)";
	const reading from = read_file_text("zorva.mutex",
					    replaced(mutexes, "Name      : fdb",
						     "Name      : " + name));

	EXPECT_EQ(from.errors, 0u) << said(from);
	ASSERT_EQ(from.last().locks[0].locks.size(), 1u);
	EXPECT_EQ(from.last().locks[0].locks[0].name, name);
}

TEST(Parser, ReadsALineOfAMebibyte)
{
	const std::string name(1 << 20, 'n');
	const reading from =
		read_file_text("zorva.thread",
			       replaced(threads, "fdb-learn", name) + threads);

	EXPECT_EQ(from.errors, 0u);
	ASSERT_EQ(from.last().threads.threads.size(), 2u);
	EXPECT_EQ(from.last().threads.threads[0].name, name);
	EXPECT_EQ(from.last().threads.threads[1].pid, 39);
}

TEST(Parser, ShowsOnlyTheBeginningOfALongLineThatItDoesNotKnow)
{
	const reading from = read_file_text("zorva.thread",
					    std::string(1 << 20, 'x') + "\n");

	EXPECT_EQ(from.errors, 1u);
	EXPECT_LT(said(from).size(), 100u);
}

TEST(Parser, KeepsOnlySoManyDiagnosticsAndCountsAll)
{
	std::string text;

	for (int i = 0; i < 5000; ++i)
		text += "what?\n";

	const reading from = read_file_text("zorva.sem", text);

	EXPECT_EQ(from.errors, 5000u);
	EXPECT_EQ(from.diagnostics.size(), max_diagnostics);
}

/* A log. */

TEST(Parser, ReadsALogWithItsPromptsAndMessages)
{
	const reading from =
		read_text("log",
			  std::string(
				  "[    0.000000] Linux version 5.10\r\n"
				  "board:~# cat /proc/zorva/zorva.thread\r\n"
				  "Component : FDB\r\n"
				  "[    1.000000] eth0: link up\r\n"
				  "Name      : fdb-learn\r\n"
				  "PID       : 3[    1.000001] eth0: down\r\n"
				  "9\r\n"
				  "[    1.000002] [U] State     : 2\r\n"
				  "\033[0mPriority  : 128\r\n"
				  "board:~# ls\r\n"));

	EXPECT_EQ(from.errors + from.warnings, 0u) << said(from);
	ASSERT_EQ(from.last().threads.threads.size(), 1u);
	EXPECT_EQ(from.last().threads.threads[0].pid, 39);
	EXPECT_EQ(from.last().threads.threads[0].state, 2);
	EXPECT_EQ(from.last().threads.threads[0].priority, 128);
}

TEST(Parser, TellsTheTimersApartByWhatWasTyped)
{
	const std::string head =
		"Component  Timer    Data  Msec     Running  StartBy  \n";
	const reading from =
		read_text("log",
			  "# cat /proc/zorva/zorva.hrt\n" + head +
				  "TIME       1        0     0        0        --\n"
				  "# cat /proc/zorva/zorva.timer\n" +
				  head +
				  "PORT       1        0     0        0        --\n");

	ASSERT_EQ(from.last().hr_timers.timers.size(), 1u);
	EXPECT_EQ(from.last().hr_timers.timers[0].component, "TIME");
	ASSERT_EQ(from.last().timers.timers.size(), 1u);
	EXPECT_EQ(from.last().timers.timers[0].component, "PORT");
}

TEST(Parser, IgnoresNamesThatWerePickedOutOfAReport)
{
	const reading from =
		read_text("log",
			  std::string("# cat /proc/zorva/zorva.mutex\n") +
				  mutexes +
				  "# grep Name /proc/zorva/zorva.mutex\n"
				  "Name      : other\n");

	ASSERT_EQ(from.last().locks[0].locks.size(), 1u);
	EXPECT_EQ(from.last().locks[0].locks[0].name, "fdb");
}

TEST(Parser, BringsAWholeReportUpToDateWithAPartThatCameLater)
{
	const std::string queue = "Queue Name   : q\n"
				  "Component ID : 17 (FDB)\n"
				  "Msg Size     : 16 bytes\n"
				  "Max Depth    : 8\n"
				  "Curr Depth   : 0\n"
				  "Max Seen     : 1\n\n";
	const reading from =
		read_text("log",
			  "# cat /proc/zorva/zorva.msgq\n" + queue +
				  replaced(queue, ": q\n", ": other\n") +
				  "# sed -n '/: q$/,/^$/p' /proc/zorva/zorva.msgq\n" +
				  replaced(queue, "Curr Depth   : 0",
					   "Curr Depth   : 8"));

	ASSERT_EQ(from.last().queues.queues.size(), 2u);
	EXPECT_EQ(from.last().queues.queues[0].depth, 8);
	EXPECT_EQ(from.last().queues.queues[1].depth, 0);
	EXPECT_TRUE(from.last().queues.state.whole);
}

TEST(Parser, UsesAPartWhenThereIsNothingBetter)
{
	const reading from =
		read_text("log",
			  "# sed -n '/: fdb$/,/^$/p' /proc/zorva/zorva.mutex\n"
			  "Name      : fdb\n"
			  "Component : FDB (17)\n"
			  "Status    : Take\n"
			  "Locker    : 40 (fdb-save)\n");

	ASSERT_EQ(from.last().locks[0].locks.size(), 1u);
	EXPECT_FALSE(from.last().locks[0].state.whole);
	EXPECT_EQ(from.last().locks[0].locks[0].locker_pid, 40);
}

TEST(Parser, TakesAReportThatComesAgainForAnotherMoment)
{
	const reading from =
		read_text("log", std::string(detail) +
					 replaced(detail, "Current Time : 12",
						  "Current Time : 99"));

	ASSERT_EQ(from.moments.size(), 2u);
	EXPECT_EQ(from.moments[0].blocks.state.now, 12u);
	EXPECT_EQ(from.moments[1].blocks.state.now, 99u);
}

/* Input that ends too early. */

TEST(Parser, SaysWhereALogIsCutOff)
{
	const std::string text = detail;

	for (size_t length = text.find("  [") + 1; length + 1 < text.size();
	     ++length) {
		const reading from =
			read_text("log",
				  std::string_view(text).substr(0, length));

		EXPECT_GE(from.warnings + from.errors, 1u) << length;
		EXPECT_TRUE(from.last().blocks.state.cut) << length;
	}
}

TEST(Parser, MissesTheLastLineOfALockReport)
{
	const std::string text = mutexes;
	const reading from =
		read_file_text("zorva.mutex",
			       text.substr(0, text.find("\nNumber")));

	EXPECT_TRUE(from.last().locks[0].state.cut);
	EXPECT_EQ(from.warnings, 1u);
}

TEST(Parser, NamesARecordOfWhichLinesAreMissing)
{
	const reading from =
		read_file_text("zorva.thread",
			       replaced(threads, "PID       : 39\n", ""));

	EXPECT_EQ(from.errors, 1u);
	EXPECT_EQ(said(from), "1: lines of thread 'fdb-learn' are missing");
}

TEST(Parser, NoticesALockThatIsMissing)
{
	const reading from =
		read_file_text("zorva.mutex",
			       replaced(mutexes, "Number of Mutex: 1",
					"Number of Mutex: 2"));

	EXPECT_EQ(from.errors, 1u);
}

/* Snapshots. */

TEST(Parser, ReadsASnapshot)
{
	const reading from = read_text("s", snapshot_of(snapshot_body()));
	const model &now = from.last();

	EXPECT_EQ(from.errors + from.warnings + from.notes, 0u) << said(from);
	ASSERT_EQ(from.moments.size(), 1u);
	EXPECT_EQ(now.uptime_ms, 12340u);
	EXPECT_EQ(now.blocks.blocks.size(), 2u);
	EXPECT_EQ(now.locks[0].locks.size(), 1u);
	ASSERT_EQ(now.tasks.size(), 1u);
	EXPECT_EQ(now.tasks[0].name, "fdb) (x");
	EXPECT_EQ(now.tasks[0].state, 'D');
	ASSERT_EQ(now.tasks[0].stack.size(), 2u);
	EXPECT_EQ(now.tasks[0].stack[0].symbol, "zorva_mutex_take_track");
	EXPECT_EQ(now.tasks[0].stack[0].offset, 0x12cu);
	EXPECT_EQ(now.tasks[0].stack[0].module, "zorva");
	ASSERT_EQ(now.kernel_memory.size(), 3u);
	EXPECT_EQ(now.kernel_memory[1].bytes, 98123u * 1024);
	ASSERT_EQ(now.modules.size(), 1u);
	EXPECT_EQ(now.modules[0].address, 0xc0028000u);
}

TEST(Parser, ReadsASnapshotWithCarriageReturns)
{
	std::string text;

	for (const char c : snapshot_of(snapshot_body()))
		text += c == '\n' ? "\r\n" : std::string(1, c);

	const reading from = read_text("s", text);

	EXPECT_EQ(from.errors + from.warnings, 0u) << said(from);
	EXPECT_EQ(from.last().blocks.blocks.size(), 2u);
}

TEST(Parser, NoticesASnapshotThatWasChanged)
{
	const reading from =
		read_text("s", replaced(snapshot_of(snapshot_body()),
					"- 32 bytes", "- 33 bytes"));

	EXPECT_EQ(from.warnings, 1u);
}

TEST(Parser, NoticesASnapshotThatIsCutAnywhere)
{
	const std::string text = snapshot_of(snapshot_body());

	for (size_t length = 30; length + 1 < text.size(); ++length) {
		const reading from =
			read_text("s",
				  std::string_view(text).substr(0, length));

		EXPECT_GE(from.warnings + from.errors, 1u) << length;
	}
}

TEST(Parser, LetsNoNamePassForASectionOfASnapshot)
{
	const std::string body = snapshot_body();
	const reading from =
		read_text("s",
			  snapshot_of(
				  replaced(body, "Name      : fdb",
					   "Name      : fdb\n==> /proc/zorva/zorva.mem <==\n"
					   "zorva-snapshot end other 1 2")));

	EXPECT_EQ(from.errors, 2u);
	EXPECT_EQ(from.last().locks[0].locks.size(), 1u);
	EXPECT_FALSE(from.last().memory.state.present);
	EXPECT_EQ(from.last().tasks.size(), 1u);
}

TEST(Parser, ReadsTwoSnapshotsAsTwoMoments)
{
	const reading from =
		read_text("s", snapshot_of(snapshot_body()) +
				       snapshot_of(snapshot_body()));

	EXPECT_EQ(from.moments.size(), 2u);
	EXPECT_EQ(from.errors + from.warnings, 0u) << said(from);
}

TEST(Checksum, IsThatOfCksum)
{
	checksum sum;

	EXPECT_EQ(sum.value(), 4294967295u);
	sum.add("123456789");
	EXPECT_EQ(sum.value(), 930766865u);
}

} // namespace
} // namespace zorva
