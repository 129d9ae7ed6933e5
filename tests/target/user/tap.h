/* SPDX-License-Identifier: GPL-2.0 */
/*
 * Tests in a program: each TEST() is run in the order of the source, and the
 * results are printed in the form that the kernel's suites have. The suite's
 * name is the program's. Every line goes out by one write, whole.
 */
#ifndef ZORVA_TESTS_TAP_H
#define ZORVA_TESTS_TAP_H

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <sstream>
#include <string>
#include <vector>

namespace tap
{

struct test {
	const char *name;
	void (*run)();
};

inline std::vector<test> tests;
inline const test *current;
inline bool current_failed;
inline std::string current_skipped; /* why, or empty */

struct registration {
	registration(const char *name, void (*run)())
	{
		tests.push_back({ name, run });
	}
};

inline void print(const std::string &line)
{
	const std::string text = line + "\n";

	if (write(STDOUT_FILENO, text.data(), text.size()) < 0)
		_exit(3);
}

/* A remark about the running test; several lines become several remarks. */
inline void note(const std::string &text)
{
	std::istringstream lines(text);

	for (std::string line; std::getline(lines, line);)
		print(std::string("    # ") + current->name + ": " + line);
}

/* The running test returns after this. */
inline void skip(const std::string &why)
{
	current_skipped = why;
}

inline void fail(const char *file, int line, const std::string &why)
{
	current_failed = true;
	note(std::string("EXPECTATION FAILED at ") + file + ":" +
	     std::to_string(line) + "\n" + why);
}

/* Texts in a message are quoted, with what cannot be printed spelt out. */
inline std::string shown(const std::string &text)
{
	std::string quoted = "\"";
	char code[8];

	for (const unsigned char c : text.substr(0, 2000))
		if (c == '\n') {
			quoted += "\\n";
		} else if (c < ' ' || c >= 127 || c == '"') {
			snprintf(code, sizeof(code), "\\x%02x", c);
			quoted += code;
		} else {
			quoted += c;
		}
	return quoted + "\"";
}

inline std::string shown(const char *text)
{
	return shown(std::string(text));
}

template <typename T>
std::string shown(const T &value)
{
	std::ostringstream text;

	text << value;
	return text.str();
}

template <typename A, typename B>
void expect_equal(const char *file, int line, const char *what, const A &got,
		  const B &want)
{
	if (got == want)
		return;
	fail(file, line,
	     std::string(what) + "\n  got      " + shown(got) +
		     "\n  expected " + shown(want));
}

inline int run_all()
{
	bool all_passed = true;
	size_t number = 0;

	print(std::string("    # Subtest: ") + program_invocation_short_name);
	print("    1.." + std::to_string(tests.size()));
	for (const test &each : tests) {
		current = &each;
		current_failed = false;
		current_skipped.clear();
		each.run();
		all_passed = all_passed && !current_failed;
		print(std::string("    ") + (current_failed ? "not " : "") +
		      "ok " + std::to_string(++number) + " - " + each.name +
		      (current_skipped.empty() ? ""
					       : " # SKIP " + current_skipped));
	}
	print(std::string(all_passed ? "" : "not ") + "ok 1 - " +
	      program_invocation_short_name);
	return all_passed ? 0 : 1;
}

} // namespace tap

#define TEST(name)                                                             \
	static void name();                                                    \
	static const tap::registration name##_registration(#name, name);       \
	static void name()

#define EXPECT_EQ(got, want)                                                   \
	tap::expect_equal(__FILE__, __LINE__, #got, got, want)

#define EXPECT(condition)                                                      \
	do {                                                                   \
		if (!(condition))                                              \
			tap::fail(__FILE__, __LINE__, #condition);             \
	} while (0)

/* A call that fails, with the error that it fails with. */
#define EXPECT_ERROR(call, error)                                              \
	do {                                                                   \
		errno = 0;                                                     \
		const long long result_ = (call);                              \
		const int error_ = errno;                                      \
                                                                               \
		tap::expect_equal(__FILE__, __LINE__, #call, result_, -1);     \
		tap::expect_equal(__FILE__, __LINE__, "error of " #call,       \
				  std::string(strerror(error_)),               \
				  std::string(strerror(error)));               \
	} while (0)

/* Ends the test at once: what follows would make no sense. */
#define REQUIRE(condition)                                                     \
	do {                                                                   \
		if (!(condition)) {                                            \
			tap::fail(__FILE__, __LINE__,                          \
				  std::string(#condition) + " (" +             \
					  strerror(errno) + ")");              \
			return;                                                \
		}                                                              \
	} while (0)

int main()
{
	return tap::run_all();
}

#endif
