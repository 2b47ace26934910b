#ifndef VES_KERNEL_BLACS_KERNEL_H
#define VES_KERNEL_BLACS_KERNEL_H

#include <ves.h>

namespace Ves {

/// Wrappers over the BLACS grid routines and the ScaLAPACK tools, arguments by value.
class VES_EXPORT BlacsKernel {
public:
  /// The default system context, from which a grid of all processes of the job is mapped.
  static int DefaultContext();
  /// Replaces context, a system context on entry, by the grid of the mapped processes.
  static void GridMap(int& context, const int* map, int ldMap, int nprow, int npcol);
  /// Makes sums over this grid add in one order. Else those of more than two processes add in the
  /// order of arrival, and the same call returns other last bits each time.
  static void MakeRepeatable(int context);
  /// Shape of the grid and the place of this process; all -1 outside the grid.
  static void GridInfo(int context, int& nprow, int& npcol, int& myrow, int& mycol);
  static void GridExit(int context);
  /// Rows (or columns) that process iproc of nprocs holds of n dealt out in blocks of nb.
  static int Numroc(int n, int nb, int iproc, int source, int nprocs);
  static void DescInit(int* desc, int m, int n, int mb, int nb, int rsrc, int csrc, int context,
                       int lld, int& info);
};

} // namespace Ves

#endif
