#include "provider_threads.h"

#include <dlfcn.h>

namespace Ves {
namespace {

using Get = int (*)();
using Set = void (*)(int);

template <typename Function>
Function Find(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, name));
}

} // namespace

int ProviderThreads::Change(int count) {
  static const auto get = Find<Get>("openblas_get_num_threads");
  static const auto set = Find<Set>("openblas_set_num_threads");
  if (get == nullptr || set == nullptr) return 0;
  const int before = get();
  if (count >= 1 && count != before) set(count);
  return before;
}

} // namespace Ves
