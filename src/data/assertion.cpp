#include "assertion.h"

#include <cstdio>
#include <cstdlib>

namespace Ves {

void AssertionFailed(const char* expression, const char* file, int line, const char* function) {
  std::fprintf(stderr, "libves: assertion %s failed in %s:%d, %s\n", expression, file, line,
               function);
  std::fflush(stderr);
  std::abort();
}

} // namespace Ves
