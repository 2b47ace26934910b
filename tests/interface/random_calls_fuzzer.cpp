// The driver of the random calls behind a coverage-guided fuzzer, with an address sanitizer. It
// wants the LSAN_OPTIONS and ASAN_OPTIONS of the tests, and -max_len=2000 for sequences of some
// length.
#include "random_calls.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  return MPI_Init(argc, argv) == MPI_SUCCESS ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count) {
  VesTest::RandomCalls sequence([](const std::string& what) {
    std::fprintf(stderr, "%s\n", what.c_str());
    std::abort();
  });
  sequence.Feed(bytes, count);
  return 0;
}
