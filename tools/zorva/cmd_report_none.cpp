// SPDX-License-Identifier: GPL-2.0
/* zorva report, where there is no room for it: on the board. */
#include "command.h"
#include "print.h"

namespace zorva
{
namespace
{

int run(const common_options & /*common*/)
{
	complain(
		"this program makes no pages: take a snapshot here, and have zorva report make one of it at the desk");
	return exit_usage;
}

} // namespace

const command report_command = {
	"report",
	"a page that shows all of it: at the desk, of a snapshot",
	"This program, the board's, makes no pages.\n\n"
	"Examples:\n"
	"  zorva snapshot -o board.txt                  here\n"
	"  zorva report --html page.html board.txt      at the desk",
	0,
	1000,
	nullptr,
	run,
};

} // namespace zorva
