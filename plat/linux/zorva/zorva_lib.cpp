// SPDX-License-Identifier: GPL-2.0
/*
 * The output of reports: into a sequence file, or into the kernel log by way
 * of a tracked block. It is reentrant: there is no state, and so no lock.
 */
#include "zk.h"
#include "zorva/components.h"
#include "zorva/lib.h"
#include "zorva/mem.h"

void zorva_proc_printf(struct seq_file *seq, const char *format, ...)
{
	va_list args;

	va_start(args, format);
	if (seq) {
		seq_vprintf(seq, format, args);
	} else {
		const u32 size = strlen(format) + 33;
		void *buffer = zorva_malloc(ZORVA_COMPONENT_SELF, size);

		if (buffer) {
			char *continued = static_cast<char *>(buffer);

			snprintf(continued, size, "%s%s", KERN_CONT, format);
			vprintk(continued, args);
		}
		zorva_free_cleanup(&buffer);
	}
	va_end(args);
}
