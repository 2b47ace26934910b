#include "thread_team.h"

#include "../kernel/provider_threads.h"

#include <algorithm>
#include <pthread.h>

#ifdef _OPENMP
#include <omp.h>
#endif

namespace Ves {
namespace {

thread_local const ThreadTeam* currentTeam = nullptr;

/// A team of OpenMP does not survive a fork: the child would wait for ever for its threads.
bool wasForked = false;

void WatchForks() {
  static const int once = pthread_atfork(nullptr, nullptr, [] { wasForked = true; });
  static_cast<void>(once);
}

int SizeOf([[maybe_unused]] int wanted) {
#ifdef _OPENMP
  if (wanted >= 0) return wanted;
  const int ofProvider = ProviderThreads::Change(0);
  return ofProvider > 0 ? ofProvider : omp_get_max_threads();
#else
  return 1;
#endif
}

} // namespace

bool ThreadTeam::IsAvailable() {
#ifdef _OPENMP
  return true;
#else
  return false;
#endif
}

int ThreadTeam::Size() {
#ifdef _OPENMP
  if (currentTeam != nullptr && omp_in_parallel() == 0) return currentTeam->m_size;
#endif
  return 1;
}

ThreadTeam::ThreadTeam(int wanted) : m_size(SizeOf(wanted)), m_outer(currentTeam) {
  const bool isMade = IsAvailable() && wanted != 0 && !wasForked;
  currentTeam = isMade ? this : nullptr;
  if (!isMade) return;
  WatchForks();
  m_providerThreads = ProviderThreads::Change(1);
}

ThreadTeam::~ThreadTeam() {
  ProviderThreads::Change(m_providerThreads);
  currentTeam = m_outer;
}

ThreadTeam::Rest::Rest() {
  if (currentTeam != nullptr) m_ofTeam = ProviderThreads::Change(currentTeam->m_providerThreads);
}

ThreadTeam::Rest::~Rest() {
  ProviderThreads::Change(m_ofTeam);
}

Shares::Shares(int all, int least)
    : count(std::clamp(all / std::max(least, 1), 1, ThreadTeam::Size())), total(all) {}

void Shares::Run(void (*work)(void* data, int part), void* data) const {
#ifdef _OPENMP
  if (count > 1) {
    // A team of one size for all: OpenMP ends threads that a smaller one leaves over.
    const int size = ThreadTeam::Size();
#pragma omp parallel for num_threads(size) schedule(static, 1)
    for (int part = 0; part < count; ++part)
      work(data, part);
    return;
  }
#endif
  for (int part = 0; part < count; ++part)
    work(data, part);
}

} // namespace Ves
