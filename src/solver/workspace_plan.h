#ifndef VES_SOLVER_WORKSPACE_PLAN_H
#define VES_SOLVER_WORKSPACE_PLAN_H

#include "../data/imaged.h"
#include "../interface/solver_base.h"

#include <algorithm>
#include <limits>
#include <new>
#include <vector>

namespace Ves {

/// The blocks of a run. From this one list they are shaped, allocated, freed and forecast.
template <typename Scalar>
class WorkspacePlan {
public:
  using Block = VectorDense<Scalar>;

  long long denseOrder = 0;  ///< of the largest dense eigenproblem
  long long widestBlock = 0; ///< that is orthonormalized at once

  /// For runs on so many local rows, in tall blocks with this leading dimension.
  WorkspacePlan(int nRows, int ld) : m_nRows(nRows), m_ld(std::max(ld, 1)) {}

  /// A block of distributed rows.
  void AddTall(Block& block, long long cols) { m_items.push_back({&block, m_nRows, cols, m_ld}); }
  /// Scratch of rotations in place of up to so many columns.
  void AddBand(Block& block, long long cols) {
    AddSmall(block, Imaged<Scalar>::RowsOfBand(m_nRows), cols);
  }
  /// A matrix that every process holds whole.
  void AddSmall(Block& block, long long rows, long long cols) {
    m_items.push_back({&block, rows, cols, std::max(rows, 1LL)});
  }

  /// Gives the blocks their shapes, without storage. Throws std::bad_array_new_length where rows or
  /// columns of one leave 32 bits.
  void Shape(MPI_Comm rowComm, MPI_Comm secondComm) const {
    for (const Item& item : m_items) {
      if (std::max(item.ld, item.cols) > std::numeric_limits<int>::max())
        throw std::bad_array_new_length();
      item.block->SetShape(rowComm, secondComm, static_cast<int>(item.rows),
                           static_cast<int>(item.cols), static_cast<int>(item.ld));
    }
  }
  void Allocate() const {
    for (const Item& item : m_items)
      VES_ASSERT_GOOD(item.block->AllocateMem());
  }
  void Free() const {
    for (const Item& item : m_items)
      VES_ASSERT_GOOD(item.block->FreeMem());
  }

  /// What Allocate takes: every block has a column of slack.
  std::size_t Bytes() const {
    std::size_t entries = 0;
    for (const Item& item : m_items)
      entries += static_cast<std::size_t>(item.ld) * static_cast<std::size_t>(item.cols + 1);
    return entries * sizeof(Scalar);
  }

private:
  struct Item {
    Block* block;
    long long rows, cols, ld;
  };

  int m_nRows, m_ld;
  std::vector<Item> m_items;
};

} // namespace Ves

#endif
