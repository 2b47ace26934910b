#ifndef VES_PARALLEL_BLACS_WRAPPER_H
#define VES_PARALLEL_BLACS_WRAPPER_H

#include <mpi.h>
#include <ves.h>

#include "../kernel/instantiate.h"
#include "cyclic_layout.h"

namespace Ves {

/// Order from which on a dense problem is dealt out over the process grid, if not told otherwise.
inline constexpr int gridFrom = 300;

/// A resource shared by the processes of a communicator.
class VES_EXPORT VesParallel {
public:
  virtual ~VesParallel() = default;
};

/// Square BLACS process grid over a communicator and the descriptor of one n x n matrix on it.
/// The grid is built by the first InitDesc and kept while later calls come with an identical or
/// congruent communicator. The object owns the grid and a duplicate of the communicator.
class VES_EXPORT BlacsBase : public VesParallel, public CyclicLayout {
public:
  int ictxt = -1;                 ///< BLACS context of the grid
  bool gridReady = false;         ///< a grid has been set up
  int maxLocRows = 0;             ///< maximum of locRows over the communicator
  int maxLocCols = 0;             ///< maximum of locCols over the communicator
  int rsrc = 0;                   ///< process row of the first block
  int csrc = 0;                   ///< process column of the first block
  MPI_Comm comm = MPI_COMM_WORLD; ///< communicator of the grid

  BlacsBase() = default;
  BlacsBase(const BlacsBase&) = delete;
  BlacsBase& operator=(const BlacsBase&) = delete;
  ~BlacsBase() override;

  /// Builds the floor(sqrt(p)) x floor(sqrt(p)) grid, row by row in the order of comm; the
  /// processes of highest rank stay outside. Collective over comm only.
  void InitGrid();

  /// Releases the grid and the duplicate of its communicator; does nothing after MPI_Finalize.
  void ExitGrid();

  /// Fills desc (9 integers) for an n x n matrix on the grid over gridComm, rebuilding the grid
  /// when gridComm is neither identical nor congruent to the present one. Outside the grid desc
  /// stays unset. Collective over gridComm.
  void InitDesc(int* desc, MPI_Comm gridComm, int n);

private:
  void ReplaceComm(MPI_Comm newComm);
  bool ownsComm = false; ///< comm is this object's duplicate
};

/// Moves a matrix that every process holds whole into and out of the block-cyclic layout.
template <typename Scalar>
class VES_EXPORT BlacsWrapper : public BlacsBase {
public:
  /// Cuts the local piece (lld x locCols) out of the whole matrix.
  void AssembleLocalData(const Scalar* global, int ldGlobal, Scalar* local) const;
  /// Writes the local piece into its places of the whole matrix and touches no other entry.
  void DistributeLocalData(Scalar* global, int ldGlobal, const Scalar* local) const;
};

VES_EXTERN_TEMPLATE(BlacsWrapper);

} // namespace Ves

#endif
