// SPDX-License-Identifier: GPL-2.0
/* The link monitor on the developer's machine, in plain C. */
#include "link.h"

#include <stddef.h>
#include <stdio.h>

#include <zorva/host.h>

static u32 chip;

static u32 read_chip(void)
{
	return chip;
}

static void counts_losses(void *unused)
{
	(void)unused;
	chip = 0;
	ZORVA_HOST_CHECK(!link_start(read_chip));
	chip = 1u << 4 | 1u << 6;
	zorva_host_sleep(200000);
	ZORVA_HOST_CHECK(link_ports_up() == 2);
	chip = 1u << 6;
	zorva_host_sleep(200000);
	ZORVA_HOST_CHECK(link_ports_up() == 1);
	ZORVA_HOST_CHECK(link_losses(5) == 1);
	ZORVA_HOST_CHECK(link_losses(7) == 0);
	link_stop();
}

/* A reader of its own, beside the two threads. */
static void asks(void *done)
{
	u32 i;

	for (i = 0; i < 4; i++) {
		link_ports_up();
		link_losses(1);
		zorva_time_usleep(30000);
	}
	zorva_atomic_set(done, 1);
}

static void is_asked_meanwhile(void *unused)
{
	zorva_atomic_t done = { 0 };

	(void)unused;
	chip = 0;
	ZORVA_HOST_CHECK(!link_start(read_chip));
	zorva_thread_create(ZORVA_COMP_CLI, "reader", 0, 100, asks, &done);
	chip = 1;
	zorva_host_sleep(70000);
	chip = 0;
	while (!zorva_atomic_read(&done))
		zorva_host_sleep(100000);
	link_stop();
}

static void bears_lack_of_memory(void *unused)
{
	(void)unused;
	chip = 0;
	if (!link_start(read_chip))
		link_stop();
}

int main(void)
{
	u32 failed = 0;

	failed += zorva_host_run(counts_losses, NULL);
	failed += zorva_host_explore(is_asked_meanwhile, NULL, 1000,
				     ZORVA_HOST_CALLS | ZORVA_HOST_SLOWLY);
	failed += zorva_host_explore(counts_losses, NULL, 200,
				     ZORVA_HOST_KERNEL_CALLS);
	failed += zorva_host_sweep(bears_lack_of_memory, NULL);
	printf("link: %u of 4 tests failed\n", failed);
	return failed != 0;
}
