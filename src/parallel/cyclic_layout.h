#ifndef VES_PARALLEL_CYCLIC_LAYOUT_H
#define VES_PARALLEL_CYCLIC_LAYOUT_H

#include <ves.h>

#include <cstddef>

namespace Ves {

/// An n x n matrix dealt out over a grid of processes in square blocks: block (I, J) lies on grid
/// row I mod nprow and grid column J mod npcol.
class VES_EXPORT CyclicLayout {
public:
  int nprow = -1;      ///< grid rows
  int npcol = -1;      ///< grid columns
  int myrow = -1;      ///< grid row of this process, -1 outside the grid
  int mycol = -1;      ///< grid column of this process
  bool inGrid = false; ///< this process belongs to the grid
  int nb = 0;          ///< order of a block
  int locRows = 0;     ///< rows of the local piece
  int locCols = 0;     ///< columns of the local piece
  int lld = 1;         ///< leading dimension of the local piece

  /// Takes the order of a block and sets the shape of the local piece, by the grid.
  void DealOut(int n, int blockOrder);

  /// Entries to allocate for the local piece, with the column of slack that every matrix gets.
  std::size_t LocalSize() const {
    return static_cast<std::size_t>(lld) * (static_cast<std::size_t>(locCols) + 1);
  }

  /// Calls visit(local offset, row, column) for every entry of the local piece.
  template <typename Visit>
  void ForEachLocalEntry(Visit visit) const {
    for (int j = 0; j < locCols; ++j)
      for (int i = 0; i < locRows; ++i)
        visit(static_cast<std::size_t>(j) * static_cast<std::size_t>(lld) +
                  static_cast<std::size_t>(i),
              Global(i, myrow, nprow), Global(j, mycol, npcol));
  }

private:
  int Global(int local, int part, int nParts) const {
    return (local / nb * nParts + part) * nb + local % nb;
  }
};

} // namespace Ves

#endif
