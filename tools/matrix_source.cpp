#include "matrix_source.h"

#include "matrix_market.h"
#include "parallel.h"
#include "row_file.h"

#include <algorithm>
#include <functional>

namespace VesTools {
namespace {

class EntrySource final : public MatrixSource {
public:
  EntrySource(AnyEntries entries, MPI_Comm comm)
      : MatrixSource(comm), m_entries(std::move(entries)) {
    std::visit([](auto& list) { VesTools::Order(list.entries); }, m_entries);
  }

  int Order() const override {
    return std::visit([](const auto& list) { return list.rows; }, m_entries);
  }
  std::vector<long long> CountEntries(const RowOffsets& offsets) const override {
    return std::visit([&](const auto& list) { return CountByRows(list.entries, offsets, Comm()); },
                      m_entries);
  }
  AnyRows TakeRows(const RowOffsets& offsets) override {
    const auto rank = static_cast<std::size_t>(Rank(Comm()));
    return std::visit(
        [&](auto& list) -> AnyRows {
          MoveToOwners(list, offsets, Comm());
          return Compress(std::move(list), offsets[rank], offsets[rank + 1]);
        },
        m_entries);
  }

private:
  AnyEntries m_entries;
};

} // namespace

RowOffsets BalancedRows(const std::vector<const MatrixSource*>& matrices) {
  const MPI_Comm comm = matrices.front()->Comm();
  const RowOffsets even = EvenRows(matrices.front()->Order(), Size(comm));
  std::vector<long long> all = matrices.front()->CountEntries(even);
  for (std::size_t i = 1; i < matrices.size(); ++i) {
    const std::vector<long long> counts = matrices[i]->CountEntries(even);
    std::transform(counts.begin(), counts.end(), all.begin(), all.begin(), std::plus<>());
  }
  return BalancedRows(std::move(all), even, comm);
}

std::unique_ptr<MatrixSource> SourceOf(AnyEntries entries, MPI_Comm comm) {
  return std::make_unique<EntrySource>(std::move(entries), comm);
}

std::unique_ptr<MatrixSource> OpenMatrix(const std::string& path, MPI_Comm comm) {
  if (IsRowFile(path, comm)) return OpenRowFile(path, comm);
  return SourceOf(ReadSquareMatrix(path, comm), comm);
}

} // namespace VesTools
