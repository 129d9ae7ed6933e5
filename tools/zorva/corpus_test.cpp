// SPDX-License-Identifier: GPL-2.0
/* What the fuzzers have found is run with the tests. */
#include "source.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>

extern "C" {
int fuzz_parser(const uint8_t *data, size_t size);
int fuzz_symbols(const uint8_t *data, size_t size);
}

namespace zorva
{
namespace
{

void read_all_of(const char *directory,
		 int (*fuzz)(const uint8_t *data, size_t size))
{
	size_t count = 0;

	for (const auto &entry :
	     std::filesystem::directory_iterator(directory)) {
		std::string text;

		ASSERT_TRUE(read_file(entry.path(), text)) << entry.path();
		fuzz(reinterpret_cast<const uint8_t *>(text.data()),
		     text.size());
		++count;
	}
	EXPECT_GT(count, 10u);
}

} // namespace

TEST(Corpus, OfTheParserIsReadWithoutHarm)
{
	read_all_of(ZORVA_CORPUS_DIR "/inspector", fuzz_parser);
}

TEST(Corpus, OfTheLinesIsReadWithoutHarm)
{
	read_all_of(ZORVA_CORPUS_DIR "/inspector-lines", fuzz_symbols);
}

} // namespace zorva
