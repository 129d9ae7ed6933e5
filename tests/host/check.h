/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What the tests of the host's library have in common: tests in plain C, each
 * of which has to fail, or to pass, with the text of its failure compared.
 */
#ifndef HOST_CHECK_H
#define HOST_CHECK_H

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <zorva/host.h>
#include <zorva/zorva.h>

static char told[8192];
static int wrong;

static void remember(const char *text, const char *file, u32 line)
{
	size_t used = strlen(told);

	snprintf(told + used, sizeof(told) - used, "[%s:%u] %s\n", file, line,
		 text);
}

static void expect(const char *what, int ok)
{
	printf("%s %s\n", ok ? "ok" : "FAILED", what);
	if (!ok) {
		printf("%s", told);
		wrong++;
	}
	told[0] = '\0';
}

#endif
