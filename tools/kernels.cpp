#include "kernels.h"
#include "products.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>
#include <system_error>
#include <thread>

namespace VesTools {
namespace {

const char* const coreType = "OPENBLAS_CORETYPE";

// What the program tells itself: in a child that it has to check products, after a start anew which
// kernels it tried, the last of which are in use. Where it is set there is no other start.
const char* const memory = "VES_KERNELS";
const char* const checkOnly = "check";

std::string KernelsInUse() {
  const auto name = reinterpret_cast<char* (*)()>(dlsym(RTLD_DEFAULT, "openblas_get_corename"));
  return name != nullptr ? name() : "";
}

// Newest first. What OpenBLAS has under other names is as new, or for processors that do not run
// these; an OpenBLAS for one processor alone writes its name in capitals.
std::vector<std::string> NewerKernels(const std::string& inUse) {
  std::vector<std::string> newer;
#if defined(__x86_64__)
  static const std::set<std::string> avx2{"Haswell", "Zen"};
  static const std::set<std::string> older{
      "Katmai",    "Coppermine", "Northwood",  "Prescott",    "Banias",      "Atom",
      "Core2",     "Penryn",     "Dunnington", "Nehalem",     "Athlon",      "Opteron",
      "Barcelona", "Bobcat",     "Nano",       "Sandybridge", "Opteron_SSE3"};
  // These ask the operating system, too.
  const bool hasAvx2 = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma");
  const bool hasAvx512 = hasAvx2 && __builtin_cpu_supports("avx512f") &&
                         __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512bw") &&
                         __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512cd");
  const bool isOlder = older.count(inUse) > 0;
  if (hasAvx512 && (isOlder || avx2.count(inUse) > 0)) newer.emplace_back("SkylakeX");
  if (hasAvx2 && isOlder) newer.emplace_back("Haswell");
#endif
  return newer;
}

std::string ProgramFile() {
  std::error_code error;
  return std::filesystem::read_symlink("/proc/self/exe", error).string();
}

void SetVariables(const std::string& kernels, const std::string& remembered) {
  setenv(coreType, kernels.c_str(), 1);
  setenv(memory, remembered.c_str(), 1);
}

void UnsetVariables() {
  unsetenv(coreType);
  unsetenv(memory);
}

// A kernel that never returns fails, too.
bool EndsWell(pid_t child) {
  using Clock = std::chrono::steady_clock;
  int status = 0;
  pid_t ended = 0;
  for (const auto end = Clock::now() + std::chrono::seconds(20);
       ended == 0 && Clock::now() < end;) {
    ended = waitpid(child, &status, WNOHANG);
    if (ended == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  if (ended == 0) {
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
  }
  return ended == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Runs the program with the kernels as a child that checks them, for they may crash.
bool PassCheck(std::string program, const std::string& kernels) {
  posix_spawn_file_actions_t silence;
  posix_spawn_file_actions_init(&silence);
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    posix_spawn_file_actions_addopen(&silence, descriptor, "/dev/null", O_RDWR, 0);
  char* const arguments[] = {program.data(), nullptr};
  pid_t child = 0;
  // A parent of this program may have set that nobody waits for children.
  const auto former = std::signal(SIGCHLD, SIG_DFL);
  SetVariables(kernels, checkOnly);
  const bool passed =
      posix_spawn(&child, program.c_str(), &silence, nullptr, arguments, environ) == 0 &&
      EndsWell(child);
  UnsetVariables();
  std::signal(SIGCHLD, former);
  posix_spawn_file_actions_destroy(&silence);
  return passed;
}

// Comes back only where the program cannot be started.
void StartAnew(const std::string& program, char** argv, const Kernels& kernels) {
  std::string tried;
  for (const std::string& each : kernels.refused)
    tried += each + " ";
  SetVariables(kernels.better, tried + kernels.better);
  execv(program.c_str(), argv);
  UnsetVariables();
}

void Recall(const std::string& tried, Kernels& kernels) {
  std::istringstream words(tried);
  std::vector<std::string> all;
  for (std::string each; words >> each;)
    all.push_back(each);
  kernels.isChosen = !all.empty() && all.back() == kernels.inUse;
  if (kernels.isChosen) kernels.refused.assign(all.begin(), all.end() - 1);
}

// An OpenBLAS that lacks kernels takes others.
[[noreturn]] void EndWithVerdict(const std::string& inUse) {
  const char* asked = std::getenv(coreType);
  const bool isGood = asked != nullptr && inUse == asked && AreProductsRight();
  std::_Exit(isGood ? EXIT_SUCCESS : EXIT_FAILURE);
}

} // namespace

Kernels ChooseKernels(char** argv) {
  Kernels kernels;
  kernels.inUse = KernelsInUse();
  const char* remembered = std::getenv(memory);
  if (remembered != nullptr && std::string(remembered) == checkOnly) EndWithVerdict(kernels.inUse);
  if (remembered != nullptr) Recall(remembered, kernels);
  const bool isFree = remembered == nullptr && std::getenv(coreType) == nullptr;
  const std::string program = isFree ? ProgramFile() : "";
  for (const std::string& each : NewerKernels(kernels.inUse)) {
    const auto& refused = kernels.refused;
    if (std::find(refused.begin(), refused.end(), each) != refused.end()) continue;
    if (!program.empty() && !PassCheck(program, each)) {
      kernels.refused.push_back(each);
      continue;
    }
    kernels.better = each;
    if (!program.empty()) StartAnew(program, argv, kernels);
    break;
  }
  return kernels;
}

void PrintAdvice(std::ostream& out, const Kernels& kernels) {
  if (!kernels.better.empty())
    out << "advice      OpenBLAS uses its kernels for " << kernels.inUse
        << ", older than this processor: OPENBLAS_CORETYPE=" << kernels.better
        << " may be much faster\n";
  if (kernels.refused.empty()) return;
  out << "warning     OpenBLAS lacks kernels for this processor, multiplies wrongly with them, or "
         "could not be tried:";
  for (const std::string& each : kernels.refused)
    out << " " << each;
  out << "\n";
}

} // namespace VesTools
