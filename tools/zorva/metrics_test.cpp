// SPDX-License-Identifier: GPL-2.0
#include "metrics.h"

#include <gtest/gtest.h>

namespace zorva
{
namespace
{

bool has(const std::string &text, std::string_view line)
{
	return ("\n" + text).find("\n" + std::string(line) + "\n") !=
	       std::string::npos;
}

constexpr char table[] =
	"zorva-snapshot 1 m\n==> m /proc/uptime\n75.23 10.00\n"
	"==> m /proc/zorva/zorva.mem\n"
	"           Curr        Max         Alloc       Free\n"
	"Component  Usage       Usage       Count       Count       Delta\n"
	"===================================================================\n"
	"PORT       3834        4000        30          4           +26\n";

TEST(Metrics, OfMemoryAreWholeAndEndAsTheyShould)
{
	const reading from = read_text("a", table);

	EXPECT_EQ(metrics_text(from, false),
		  "# TYPE zorva_uptime_seconds gauge\n"
		  "# UNIT zorva_uptime_seconds seconds\n"
		  "# HELP zorva_uptime_seconds Time since the switch was started.\n"
		  "zorva_uptime_seconds 75\n"
		  "# TYPE zorva_component_used_bytes gauge\n"
		  "# UNIT zorva_component_used_bytes bytes\n"
		  "# HELP zorva_component_used_bytes What the live blocks of a component were asked with.\n"
		  "zorva_component_used_bytes{component=\"PORT\"} 3834\n"
		  "# TYPE zorva_component_peak_bytes gauge\n"
		  "# UNIT zorva_component_peak_bytes bytes\n"
		  "# HELP zorva_component_peak_bytes The most that the component has ever used.\n"
		  "zorva_component_peak_bytes{component=\"PORT\"} 4000\n"
		  "# TYPE zorva_component_blocks gauge\n"
		  "# HELP zorva_component_blocks Live blocks of a component.\n"
		  "zorva_component_blocks{component=\"PORT\"} 26\n"
		  "# TYPE zorva_component_allocations counter\n"
		  "# HELP zorva_component_allocations Allocations of a component since the module was loaded.\n"
		  "zorva_component_allocations_total{component=\"PORT\"} 30\n"
		  "# TYPE zorva_component_frees counter\n"
		  "# HELP zorva_component_frees Frees of a component since the module was loaded.\n"
		  "zorva_component_frees_total{component=\"PORT\"} 4\n"
		  "# TYPE zorva_unreadable_lines gauge\n"
		  "# HELP zorva_unreadable_lines Lines of the reports that could not be read.\n"
		  "zorva_unreadable_lines 0\n"
		  "# EOF\n");
}

/* A mutex that is held since 70, and waited for since 90. */
constexpr char mutexes[] =
	"\n----------------\nDump all ACTIVE & LOCKED mutex(s)\n"
	"Current Time : 100\n----------------\n\n"
	"Index     : 3\nName      : fdb\nComponent : FDB (17)\n"
	"Status    : Take\nLocker    : 46 (fdb-save)\n"
	"---------------------------------\n"
	"  [0000000000000090] Take @fw_fdb.c, 192\n"
	"  [0000000000000070] Take @fw_fdb.c, 270\n"
	"  [0000000000000060] Give @fw_fdb.c, 227\n\n\n"
	"Number of Mutex: 1\n";

TEST(Metrics, OfAMutexSayForHowLongItIsHeldAndHowManyWait)
{
	const std::string text = metrics_text(read_text("a", mutexes), false);

	EXPECT_TRUE(
		has(text,
		    "zorva_mutex_held_seconds{component=\"FDB\",mutex=\"fdb\",index=\"3\",holder=\"fdb-save\",taken_at=\"fw_fdb.c:270\"} 30"));
	EXPECT_TRUE(
		has(text,
		    "zorva_mutex_waiting{component=\"FDB\",mutex=\"fdb\",index=\"3\"} 1"));
	EXPECT_TRUE(has(text, "zorva_deadlocks 0"));
}

/* Two threads, each with a mutex that the other wants. */
constexpr char deadlock_text[] =
	"==> zorva.thread <==\n"
	"Component : STP\nName      : stp-update\nPID       : 51\n"
	"State     : 2\nPriority  : 128\n\n"
	"Component : LAG\nName      : lag-update\nPID       : 52\n"
	"State     : 2\nPriority  : 128\n\n"
	"==> zorva.mutex <==\n"
	"\n----------------\nDump all ACTIVE & LOCKED mutex(s)\n"
	"Current Time : 100\n----------------\n\n"
	"Index     : 9\nName      : lag\nComponent : LAG (20)\n"
	"Status    : Take\nLocker    : 52 (lag-update)\n"
	"---------------------------------\n"
	"  [0000000000000090] Take @fw_stp.c, 136\n"
	"  [0000000000000080] Take @fw_lag.c, 143\n\n"
	"Index     : 8\nName      : stp\nComponent : STP (19)\n"
	"Status    : Take\nLocker    : 51 (stp-update)\n"
	"---------------------------------\n"
	"  [0000000000000090] Take @fw_lag.c, 146\n"
	"  [0000000000000080] Take @fw_stp.c, 133\n\n\n"
	"Number of Mutex: 2\n";

TEST(Metrics, CountADeadlockByTheHistoriesAlone)
{
	EXPECT_TRUE(has(metrics_text(read_text("a", deadlock_text), false),
			"zorva_deadlocks 1"));
}

std::string queue_text(const std::string &name, int depth)
{
	return "Queue Name   : " + name +
	       "\nComponent ID : 17 (FDB)\nMsg Size     : 16 bytes\n"
	       "Max Depth    : 8\nCurr Depth   : " +
	       std::to_string(depth) + "\nMax Seen     : 8\n\n";
}

TEST(Metrics, OfQueuesThatHaveOneNameAreToldApart)
{
	const std::string text =
		metrics_text(read_text("a", "==> zorva.msgq <==\n" +
						    queue_text("q", 1) +
						    queue_text("q", 2)),
			     false);

	EXPECT_TRUE(
		has(text,
		    "zorva_queue_messages{component=\"FDB\",queue=\"q\"} 1"));
	EXPECT_TRUE(
		has(text,
		    "zorva_queue_messages{component=\"FDB\",queue=\"q\",copy=\"2\"} 2"));
	EXPECT_TRUE(
		has(text,
		    "zorva_queue_capacity_messages{component=\"FDB\",queue=\"q\",copy=\"2\"} 8"));
}

TEST(Metrics, KeepAHostileNameInItsOwnLabel)
{
	const std::string text =
		metrics_text(read_text("a",
				       "==> zorva.msgq <==\n" +
					       queue_text("a\"} 1\t\x1b[2J\\n\xff<script>",
							  3)),
			     false);

	EXPECT_TRUE(
		has(text,
		    R"(zorva_queue_messages{component="FDB",queue="a\"} 1\\x09\\x1b[2J\\\\n\\xff<script>"} 3)"));
	for (const char c : text)
		EXPECT_TRUE(c == '\n' || (c >= ' ' && c < 0x7f)) << +c;
}

constexpr char blocks[] =
	"==> zorva.mem.detail <==\n\n----------------\nCurrent Time : 40\n"
	"----------------\n\nComponent   : VLAN\nCurr Usage  : 22\n"
	"Max Usage   : 22\nAlloc Count : 4\nFree Count  : 0\n"
	"----------------\n"
	"<memory corruption 0x81000080 invalid end 0x00000000 (expected 0xbbbbbbbb) (fw_fault.c, 54)>\n"
	"  [0000000007] 81000034 - 6 bytes (fw_vlan.c, 76)\n\n"
	"Component   : IP\nCurr Usage  : 12\nMax Usage   : 12\n"
	"Alloc Count : 1\nFree Count  : 0\n----------------\n"
	"  [0000000007] 81000334 - 12 bytes (fw_ip.c, 7)\n\n";

TEST(Metrics, OfDamageComeOnlyWhenAskedFor)
{
	const reading from = read_text("a", blocks);
	const std::string text = metrics_text(from, true);

	EXPECT_EQ(metrics_text(from, false).find("torn"), std::string::npos);
	EXPECT_TRUE(
		has(text,
		    "zorva_torn_blocks{component=\"VLAN\",allocated_at=\"fw_fault.c:54\"} 1"));
	EXPECT_TRUE(has(text, "zorva_miscounted_blocks{component=\"VLAN\"} 2"));
	EXPECT_TRUE(has(text, "zorva_checked_blocks 3"));
}

TEST(Metrics, SayHowManyLinesCouldNotBeRead)
{
	EXPECT_TRUE(has(metrics_text(read_text("a", "==> zorva.msgq <==\n"
						    "Queue Name   : q\n"
						    "Max Depth    : many\n"),
				     false),
			"zorva_unreadable_lines 2"));
}

} // namespace
} // namespace zorva
