#ifndef VES_DATA_JOINT_SUM_H
#define VES_DATA_JOINT_SUM_H

#include "../parallel/mpi_wrapper.h"
#include "vector_dense.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace Ves {

/// Sums over the processes of several arrays in one reduction: a message costs what its latency
/// costs, and hardly more with what does not depend on its result. The arrays must outlive it.
template <typename Scalar>
class JointSum {
public:
  void Add(Scalar* values, std::size_t count) { m_parts.emplace_back(values, count); }
  /// With what lies between rows and leading dimension.
  void Add(const VectorDense<Scalar>& block) {
    Add(block.values, static_cast<std::size_t>(block.ld) * static_cast<std::size_t>(block.nCols));
  }

  /// Collective over comm, also where nothing was added.
  void Reduce(MPI_Comm comm) {
    std::size_t size = 0;
    for (const auto& part : m_parts)
      size += part.second;
    std::vector<Scalar> all;
    all.reserve(size + 1);
    for (const auto& [values, count] : m_parts)
      all.insert(all.end(), values, values + count);
    all.push_back(Scalar{}); // a reduction passes by null storage
    MpiWrapper<Scalar>::AllReduce(all.data(), size, MPI_SUM, comm);
    const Scalar* next = all.data();
    for (const auto& [values, count] : m_parts) {
      std::copy_n(next, count, values);
      next += count;
    }
  }

private:
  std::vector<std::pair<Scalar*, std::size_t>> m_parts;
};

} // namespace Ves

#endif
