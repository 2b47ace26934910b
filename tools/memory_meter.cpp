#include "memory_meter.h"

#include <malloc.h>

#include <algorithm>
#include <fstream>
#include <string>

namespace VesTools {
namespace {

double StatusBytes(const std::string& name) {
  std::ifstream status("/proc/self/status");
  std::string word;
  double kilobytes = 0.0;
  while (status >> word)
    if (word == name + ":") status >> kilobytes;
  return 1024.0 * kilobytes;
}

} // namespace

MemoryMeter::MemoryMeter() {
  malloc_trim(0);
  // Forgets the largest size so far.
  std::ofstream("/proc/self/clear_refs") << 5;
  m_before = StatusBytes("VmRSS");
}

double MemoryMeter::Taken() const {
  return std::max(StatusBytes("VmHWM") - m_before, 0.0);
}

} // namespace VesTools
