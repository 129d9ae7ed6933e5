// SPDX-License-Identifier: GPL-2.0
/* The inputs that the fuzzers keep, one life of the module for each. */
#include "../fuzz/input.h"
#include "kernel_test.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace
{

class Corpus : public KernelTest {
protected:
	static void replay(const std::string &target,
			   void (*run)(const u8 *bytes, size_t size))
	{
		const std::string directory = ZORVA_CORPUS_DIR "/" + target;
		size_t count = 0;

		needs_arrival_order();
		for (const auto &entry :
		     std::filesystem::directory_iterator(directory)) {
			SCOPED_TRACE(entry.path().string());
			std::ifstream file(entry.path(), std::ios::binary);
			const std::vector<u8>
				bytes((std::istreambuf_iterator<char>(file)),
				      std::istreambuf_iterator<char>());

			run(bytes.data(), bytes.size());
			++count;
		}
		EXPECT_GT(count, 0u) << "there is nothing in " << directory;
	}
};

} // namespace

TEST_F(Corpus, OfCalls)
{
	replay("calls", fuzz_calls);
}

TEST_F(Corpus, OfMemory)
{
	replay("memory", fuzz_memory);
}

TEST_F(Corpus, OfFilter)
{
	replay("filter", fuzz_filter);
}

TEST_F(Corpus, OfList)
{
	replay("list", fuzz_list);
}
