/* SPDX-License-Identifier: GPL-2.0 */
/*
 * What comes in between any two instructions of the module: the processor is
 * told to stop after each, and those of the module that touch memory which
 * others see are counted.
 */
#ifndef INTERLEAVE_H
#define INTERLEAVE_H

#include "fake/kernel.h"

#include <type_traits>

namespace interleave
{

/* Who is let in: other tasks, to which this one is preempted, or processors. */
enum class others {
	tasks,
	processors
};

void arm(unsigned int number, others who);

/* They are let in only while the call holds that lock, or always without one. */
void only_while_held(const void *lock);

/* The processor stops after each instruction from here to there. */
[[gnu::always_inline]] inline void begin_steps()
{
	__asm__ volatile("pushfl\n\torl $0x100, (%%esp)\n\tpopfl"
			 :
			 :
			 : "memory", "cc");
}

[[gnu::always_inline]] inline void end_steps()
{
	__asm__ volatile("pushfl\n\tandl $~0x100, (%%esp)\n\tpopfl"
			 :
			 :
			 : "memory", "cc");
}

} // namespace interleave

/*
 * Makes a call of the module, which may block, and lets others in once: before
 * an instruction of the module in it, if it has so many at which they may come.
 */
class interrupted_call {
public:
	interrupted_call(unsigned int number, interleave::others who)
		: number_(number), who_(who)
	{
	}
	template <class Result, class... Types, class... Values>
	[[gnu::optimize("O1"), gnu::no_sanitize("address", "undefined")]] Result
	operator()(Result (*function)(Types...), Values... values) const
	{
		interleave::arm(number_, who_);
		interleave::begin_steps();
		if constexpr (std::is_void_v<Result>) {
			function(values...);
			interleave::end_steps();
		} else {
			const Result result = function(values...);

			interleave::end_steps();
			return result;
		}
	}

private:
	unsigned int number_;
	interleave::others who_;
};

/*
 * Makes a round for each such instruction of a call, which others come in
 * before; of a very great number only for some, evenly spread. A round in which
 * nobody comes in is the first. Returns how many there were.
 */
unsigned int
interrupt_anywhere(interleave::others who,
		   const std::function<void(const interrupted_call &)> &round);

#endif
