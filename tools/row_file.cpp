#include "row_file.h"

#include "parallel.h"
#include "row_file_format.h"
#include "text_lines.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <limits>

namespace VesTools {
namespace {

namespace fs = std::filesystem;

// \return what is wrong with the header of a file of so many bytes, or nothing
std::string ComplaintOfHeader(const RowFileHeader& header, long long bytes) {
  // More could overflow the sums of bytes.
  constexpr std::int64_t mostRows = std::numeric_limits<int>::max(), mostEntries = 1LL << 58;
  if (header.byteOrder == otherOrder)
    return "the file was written on a machine of another byte order: convert the matrix here";
  if (header.byteOrder != nativeOrder) return "the header is damaged";
  if (header.version != rowFileVersion)
    return "version " + std::to_string(header.version) + " of the format is not " +
           std::to_string(rowFileVersion) + ", which this program reads: convert the matrix again";
  if (header.scalar != realKind && header.scalar != complexKind)
    return "the header is damaged: unknown type of numbers";
  if (header.storage != fullRows) return "the header is damaged: unknown storage of rows";
  if (header.rows < 1 || header.rows > mostRows)
    return std::to_string(header.rows) + " rows are outside 1 to " + std::to_string(mostRows);
  if (header.entries < 0 || header.entries > mostEntries ||
      header.entries > header.rows * header.rows)
    return std::to_string(header.entries) + " entries cannot stand in " +
           std::to_string(header.rows) + " rows";
  if (bytes != header.Bytes())
    return "the file has " + std::to_string(bytes) + " bytes in place of " +
           std::to_string(header.Bytes()) + (bytes < header.Bytes() ? ": it was cut off" : "");
  return "";
}

/// Reads numbers from a place. \return success
template <typename Number>
bool ReadAt(std::ifstream& file, long long byte, Number* numbers, long long count) {
  return file.seekg(byte) && file.read(reinterpret_cast<char*>(numbers),
                                       count * static_cast<long long>(sizeof(Number)));
}

/// Reads starts of the rows from first to last, that of last included.
/// \return what is wrong, or nothing
std::string ReadStarts(std::ifstream& file, const RowFileHeader& header, int first, int last,
                       std::vector<long long>& starts) {
  starts.resize(static_cast<std::size_t>(last - first) + 1);
  if (!ReadAt(file, header.Starts() + 8LL * first, starts.data(), last - first + 1LL))
    return "reading failed";
  if (first == 0 && starts.front() != 0) return "the entries of row 1 do not begin at 0";
  if (last == header.rows && starts.back() != header.entries)
    return "the entries of the last row do not end at " + std::to_string(header.entries);
  for (std::size_t i = 0; i + 1 < starts.size(); ++i)
    if (starts[i] < 0 || starts[i] > starts[i + 1] || starts[i + 1] > header.entries)
      return "row " + std::to_string(static_cast<std::size_t>(first) + i + 1) +
             ": its entries cannot be those from " + std::to_string(starts[i]) + " to " +
             std::to_string(starts[i + 1]) + " of " + std::to_string(header.entries);
  return "";
}

// Piece by piece, since they are wider in memory.
bool ReadColumns(std::ifstream& file, long long byte, std::vector<long long>& columns,
                 Checksum& checksum) {
  constexpr std::size_t atOnce = 1U << 18U;
  std::vector<std::int32_t> piece(std::min(atOnce, columns.size()));
  for (std::size_t done = 0; done < columns.size(); done += piece.size()) {
    piece.resize(std::min(piece.size(), columns.size() - done));
    if (!ReadAt(file, byte + 4 * static_cast<long long>(done), piece.data(),
                static_cast<long long>(piece.size())))
      return false;
    checksum.Add(piece.data(), piece.size());
    std::copy(piece.begin(), piece.end(), columns.begin() + static_cast<std::ptrdiff_t>(done));
  }
  return true;
}

// \return what is wrong with columns or values, or nothing
template <typename Scalar>
std::string ComplaintOfEntries(const CompressedRows<Scalar>& rows, long long order) {
  std::string complaint;
  int lastRow = -1;
  long long lastColumn = -1;
  rows.ForEach([&](int row, int column, const Scalar& value) {
    if (row != lastRow) lastColumn = -1;
    const bool isInside = 0 <= column && column < order;
    if (complaint.empty() && !isInside)
      complaint = "row " + std::to_string(row + 1) + ": column " + std::to_string(column + 1LL) +
                  " is outside 1 to " + std::to_string(order);
    if (complaint.empty() && column <= lastColumn)
      complaint = "row " + std::to_string(row + 1) + ": columns do not ascend";
    if (complaint.empty() && !(std::isfinite(std::real(value)) && std::isfinite(std::imag(value))))
      complaint = "entry " + Place(row, column) + " is not finite";
    lastRow = row;
    lastColumn = column;
  });
  return complaint;
}

/// Of the starts, values and columns of one process.
using Checksums = std::array<Checksum, 3>;

template <typename Scalar>
std::string ReadRows(std::ifstream& file, const RowFileHeader& header, int last,
                     CompressedRows<Scalar>& rows, Checksums& checksums) {
  std::string complaint = ReadStarts(file, header, rows.first, last, rows.starts);
  if (!complaint.empty()) return complaint;
  const long long begin = rows.starts.front(), count = rows.starts.back() - begin;
  rows.values.resize(static_cast<std::size_t>(count));
  rows.columns.resize(static_cast<std::size_t>(count));
  if (!ReadAt(file, header.Values() + header.ValueBytes() * begin, rows.values.data(), count) ||
      !ReadColumns(file, header.Columns() + 4 * begin, rows.columns, checksums[2]))
    return "reading failed";
  checksums[0].Add(rows.starts.data() + 1, rows.starts.size() - 1); // where its rows end
  checksums[1].Add(rows.values.data(), rows.values.size());
  for (long long& start : rows.starts)
    start -= begin;
  return ComplaintOfEntries(rows, header.rows);
}

class RowFile final : public MatrixSource {
public:
  RowFile(std::string path, MPI_Comm comm) : MatrixSource(comm), m_path(std::move(path)) {
    std::string complaint;
    if (Rank(comm) == 0) {
      std::error_code error;
      const auto bytes = static_cast<long long>(fs::file_size(m_path, error));
      std::ifstream file(m_path, std::ios::binary);
      complaint = !error && ReadAt(file, 0, &m_header, 1) ? ComplaintOfHeader(m_header, bytes)
                                                          : "the file is too short for its header";
    }
    Agree(complaint);
    MPI_Bcast(&m_header, sizeof(m_header), MPI_BYTE, 0, comm);
    m_file.open(m_path, std::ios::binary);
    Agree(m_file ? "" : "cannot be read");
  }

  int Order() const override { return static_cast<int>(m_header.rows); }

  std::vector<long long> CountEntries(const RowOffsets& offsets) const override {
    const auto rank = static_cast<std::size_t>(Rank(Comm()));
    std::vector<long long> counts;
    Agree(ReadStarts(m_file, m_header, offsets[rank], offsets[rank + 1], counts));
    for (std::size_t i = 0; i + 1 < counts.size(); ++i)
      counts[i] = counts[i + 1] - counts[i];
    counts.pop_back();
    return counts;
  }

  AnyRows TakeRows(const RowOffsets& offsets) override {
    if (m_header.scalar == complexKind) return Take<std::complex<double>>(offsets);
    return Take<double>(offsets);
  }

private:
  void Agree(const std::string& complaint) const {
    AgreeOn(complaint.empty() ? "" : m_path + ": " + complaint, exitInput, Comm());
  }

  // Whether the parts of all processes make that of the header; true but on process 0. Collective.
  bool HasChecksum(const Checksums& own) const {
    const bool isFirst = Rank(Comm()) == 0;
    std::vector<Checksums> all(isFirst ? static_cast<std::size_t>(Size(Comm())) : 0);
    MPI_Gather(&own, sizeof(own), MPI_BYTE, all.data(), sizeof(own), MPI_BYTE, 0, Comm());
    constexpr std::int64_t firstStart = 0;
    Checksum whole;
    whole.Add(&firstStart, 1);
    for (std::size_t part = 0; part < own.size(); ++part)
      for (const Checksums& each : all)
        whole.Add(each[part]);
    return !isFirst || whole.value == m_header.checksum;
  }

  template <typename Scalar>
  CompressedRows<Scalar> Take(const RowOffsets& offsets) {
    const auto rank = static_cast<std::size_t>(Rank(Comm()));
    CompressedRows<Scalar> rows;
    rows.name = m_path;
    rows.first = offsets[rank];
    rows.isHermitian = true;
    Checksums checksums;
    Agree(ReadRows(m_file, m_header, offsets[rank + 1], rows, checksums));
    Agree(HasChecksum(checksums) ? "" : "its data are damaged");
    return rows;
  }

  std::string m_path;
  RowFileHeader m_header{};
  mutable std::ifstream m_file; // whose position changes with every read
};

} // namespace

bool IsRowFile(const std::string& path, MPI_Comm comm) {
  int verdict = 0;
  if (Rank(comm) == 0 && ComplaintOfFile(path).empty()) {
    std::array<char, rowFileMagic.size()> begin{};
    std::ifstream(path, std::ios::binary).read(begin.data(), begin.size());
    verdict = begin == rowFileMagic ? 1 : 0;
  }
  MPI_Bcast(&verdict, 1, MPI_INT, 0, comm);
  return verdict != 0;
}

std::unique_ptr<MatrixSource> OpenRowFile(const std::string& path, MPI_Comm comm) {
  return std::make_unique<RowFile>(path, comm);
}

} // namespace VesTools
