// SPDX-License-Identifier: GPL-2.0
/* What the fuzzer has found is run with the tests. */
#include "source.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace zorva
{

TEST(Corpus, IsReadWithoutHarm)
{
	size_t count = 0;

	for (const auto &entry :
	     std::filesystem::directory_iterator(ZORVA_CORPUS_DIR)) {
		std::string text;

		ASSERT_TRUE(read_file(entry.path(), text)) << entry.path();
		LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(
					       text.data()),
				       text.size());
		++count;
	}
	EXPECT_GT(count, 10u);
}

} // namespace zorva
