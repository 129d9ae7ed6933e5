/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Flows of control with stacks of their own, of which one runs at any time.
 * Only the one that runs says who goes on, so a test has as many orders as the
 * scheduler chooses, and a switch costs no more than a call.
 */
#ifndef FAKE_FIBER_H
#define FAKE_FIBER_H

#include <stddef.h>

namespace fake
{

class fiber {
public:
	/* The flow that runs already, on the host's stack. */
	fiber() = default;
	/* One that will run a function, which must not return. */
	fiber(void (*run)(void *argument), void *argument);
	~fiber();
	fiber(const fiber &) = delete;
	fiber &operator=(const fiber &) = delete;

	/* Lets another one go on; comes back when that is done to this one. */
	void switch_to(fiber &next);
	/* The same for one that ends. Its stack goes with the object. */
	[[noreturn]] void end_for(fiber &next);

private:
	static void begin();
	void arrive();

	void *sp_ = nullptr;
	void (*run_)(void *argument) = nullptr;
	void *argument_ = nullptr;
	char *stack_ = nullptr; /* null for the host's */

	/* What the address sanitizer knows of the stack. */
	void *shadow_ = nullptr;
	const void *bottom_ = nullptr;
	size_t size_ = 0;
};

} // namespace fake

#endif
