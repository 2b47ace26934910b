#ifndef VES_PARALLEL_RUN_METER_H
#define VES_PARALLEL_RUN_METER_H

#include <mpi.h>
#include <ves.h>

#include <cstddef>

namespace Ves {

/// What a run costs, counted where it happens: from its construction to its end a meter is the
/// current one of its thread. Meters nest, since an operator may itself run a solver; only the
/// innermost counts. Without a meter nothing is counted.
class VES_EXPORT RunMeter {
public:
  long long reductions = 0;
  long long bytesReduced = 0;
  double secondsDense = 0.0; ///< in dense factorizations and eigendecompositions

  RunMeter();
  ~RunMeter();
  RunMeter(const RunMeter&) = delete;
  RunMeter& operator=(const RunMeter&) = delete;

  void AddTo(VesSolverStats& stats) const {
    stats.reductions += reductions;
    stats.bytesReduced += bytesReduced;
    stats.secondsDense += secondsDense;
  }

  /// Adds its life to the dense seconds of the current meter, unless another one does already.
  class VES_EXPORT DenseTime {
  public:
    DenseTime();
    ~DenseTime();
    DenseTime(const DenseTime&) = delete;
    DenseTime& operator=(const DenseTime&) = delete;

  private:
    RunMeter* m_meter;
    double m_start = 0.0;
  };

private:
  friend int ReduceInPlace(void*, std::size_t, MPI_Datatype, MPI_Op, MPI_Comm);
  RunMeter* m_outer;
  bool m_timesDense = false;
};

/// MPI_Allreduce in place, counted by the current meter: what a run reduces goes this way, more
/// than an int counts by several reductions. The agreements before it (agreement.h) do not.
VES_EXPORT int ReduceInPlace(void* data, std::size_t count, MPI_Datatype type, MPI_Op op,
                             MPI_Comm comm);

} // namespace Ves

#endif
