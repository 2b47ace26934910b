#include "run_meter.h"

#include "messages.h"

namespace Ves {

namespace {

thread_local RunMeter* current = nullptr;

} // namespace

RunMeter::RunMeter() : m_outer(current) {
  current = this;
}

RunMeter::~RunMeter() {
  current = m_outer;
}

RunMeter::DenseTime::DenseTime() : m_meter(current) {
  if (m_meter != nullptr && m_meter->m_timesDense) m_meter = nullptr;
  if (m_meter == nullptr) return;
  m_meter->m_timesDense = true;
  m_start = MPI_Wtime();
}

RunMeter::DenseTime::~DenseTime() {
  if (m_meter == nullptr) return;
  m_meter->secondsDense += MPI_Wtime() - m_start;
  m_meter->m_timesDense = false;
}

int ReduceInPlace(void* data, std::size_t count, MPI_Datatype type, MPI_Op op, MPI_Comm comm) {
  return InMessages(data, count, type, [&](void* start, int entries) {
    if (current != nullptr) {
      int size = 0;
      MPI_Type_size(type, &size);
      ++current->reductions;
      current->bytesReduced += static_cast<long long>(entries) * size;
    }
    return MPI_Allreduce(MPI_IN_PLACE, start, entries, type, op, comm);
  });
}

} // namespace Ves
