// Random sequences of flat calls: every code is one that its function documents, and what a run
// leaves is sane. VES_RANDOM_CALLS and VES_RANDOM_SEED choose their number and the sequence.
#include "random_calls.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <random>

namespace {

long FromEnvironment(const char* name, long otherwise) {
  const char* const text = std::getenv(name);
  return text != nullptr ? std::atol(text) : otherwise;
}

TEST(RandomCalls, EveryAnswerIsDocumented) {
  const long wanted = FromEnvironment("VES_RANDOM_CALLS", 100000);
  const long seed = FromEnvironment("VES_RANDOM_SEED", 1);
  SCOPED_TRACE(testing::Message() << "VES_RANDOM_SEED " << seed);
  std::mt19937 generator(static_cast<unsigned>(seed));
  long calls = 0, runs = 0, refusedRuns = 0;
  while (calls < wanted && !HasFailure()) {
    VesTest::RandomCalls sequence([](const std::string& what) { ADD_FAILURE() << what; });
    SCOPED_TRACE(testing::Message() << "after " << calls << " calls");
    std::vector<std::uint8_t> bytes(20000);
    for (std::uint8_t& byte : bytes)
      byte = static_cast<std::uint8_t>(generator() >> 24);
    sequence.Feed(bytes.data(), bytes.size());
    calls += sequence.calls;
    runs += sequence.runs;
    refusedRuns += sequence.refusedRuns;
  }
  std::printf("%ld calls in random order, %ld runs among them\n", calls, runs);
  // The sequences reach what they are for.
  EXPECT_GT(runs, wanted / 200) << "of " << calls << " calls";
  EXPECT_GT(refusedRuns, wanted / 200) << "of " << calls << " calls";
}

} // namespace
