// SPDX-License-Identifier: GPL-2.0
/*
 * The kernel's printf family. It knows %px, has words for strings that cannot
 * be read, and has neither floating point nor %n; the rest is the host's.
 */
#include "internal.h"

#include <limits.h>
#include <stdio.h>
#include <string.h>

namespace
{

constexpr uintptr_t largest_error = 4095;

/* One conversion: its flags, width and precision as text, and the rest. */
struct conversion {
	std::string options;
	std::string length;
	char type;
};

template <typename T>
std::string by_host(const conversion &how, const char *length, T value)
{
	const std::string fmt = "%" + how.options + length + how.type;
	char text[512];

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
	const int size = snprintf(text, sizeof(text), fmt.c_str(), value);
#pragma GCC diagnostic pop

	if (size < 0 || static_cast<size_t>(size) >= sizeof(text))
		fake::complain("a conversion of more than 511 characters");
	return text;
}

std::string put_string(const conversion &how, const char *text)
{
	const auto address = reinterpret_cast<uintptr_t>(text);
	std::string all;

	if (!text)
		text = "(null)";
	else if (address < ZK_PAGE_SIZE || address >= -largest_error)
		text = "(efault)";
	if (how.options.empty())
		return text;
	return by_host(how, "", text);
}

/* What stands for an address that the kernel does not give away. */
std::string put_hidden(const conversion &how, const void *pointer)
{
	return by_host({ how.options, "", 's' }, "",
		       pointer ? "(ptrval)" : "00000000");
}

std::string put_pointer(conversion how, const void *pointer)
{
	how.type = 'x';
	if (how.options.empty())
		how.options = "08";
	return by_host(how, "l", reinterpret_cast<unsigned long>(pointer));
}

conversion parse(const char *&in, va_list *args)
{
	conversion how;

	while (*in && strchr("-+ #0123456789.*", *in)) {
		if (*in == '*')
			how.options += std::to_string(va_arg(*args, int));
		else
			how.options += *in;
		++in;
	}
	while (*in && strchr("hlzt", *in))
		how.length += *in++;
	how.type = *in;
	if (*in)
		++in;
	return how;
}

std::string put_integer(const conversion &how, va_list *args)
{
	if (how.length == "ll")
		return by_host(how, "ll", va_arg(*args, long long));
	if (how.length == "l" || how.length == "z" || how.length == "t")
		return by_host(how, "l", va_arg(*args, long));
	return by_host(how, how.length.c_str(), va_arg(*args, int));
}

std::string put(const char *&in, va_list *args)
{
	const conversion how = parse(in, args);

	if (how.type == '%')
		return "%";
	if (how.type && strchr("diuxXo", how.type))
		return put_integer(how, args);
	if (how.type == 'c')
		return by_host(how, "", va_arg(*args, int));
	if (how.type == 's')
		return put_string(how, va_arg(*args, const char *));
	if (how.type == 'p' && *in == 'x') {
		++in;
		return put_pointer(how, va_arg(*args, const void *));
	}
	if (how.type == 'p')
		return put_hidden(how, va_arg(*args, const void *));
	fake::complain(std::string("the conversion %") + how.type);
	return "";
}

} // namespace

namespace fake
{

std::string vformat(const char *fmt, va_list args)
{
	std::string text;
	va_list rest;

	va_copy(rest, args);
	while (*fmt) {
		if (*fmt != '%') {
			text += *fmt++;
			continue;
		}
		++fmt;
		text += put(fmt, &rest);
	}
	va_end(rest);
	return text;
}

std::string format(const char *fmt, ...)
{
	va_list args;

	va_start(args, fmt);
	const std::string text = vformat(fmt, args);
	va_end(args);
	return text;
}

} // namespace fake

int kernel_vsnprintf(char *buf, size_t size, const char *fmt, va_list args)
{
	const std::string text = fake::vformat(fmt, args);

	if (size > INT_MAX) {
		fake::complain("vsnprintf with a size above INT_MAX");
		return 0;
	}
	if (size) {
		const size_t kept = text.size() < size ? text.size() : size - 1;

		memcpy(buf, text.data(), kept);
		buf[kept] = '\0';
	}
	return text.size();
}

int kernel_snprintf(char *buf, size_t size, const char *fmt, ...)
{
	va_list args;

	va_start(args, fmt);
	const int length = kernel_vsnprintf(buf, size, fmt, args);
	va_end(args);
	return length;
}
