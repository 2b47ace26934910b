#include "parallel.h"
#include "row_file.h"
#include "row_file_format.h"
#include "text_lines.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace VesTools {
namespace {

namespace fs = std::filesystem;

/// What process 0 writes for all, in the order of processes and pieces of bounded size. Behind the
/// header, which comes last, since it has the checksum of all else.
class GatheredFile {
public:
  GatheredFile(const std::string& path, MPI_Comm comm) : m_comm(comm) {
    if (Rank(comm) != 0) return;
    m_file.open(path, std::ios::binary);
    m_file.seekp(sizeof(RowFileHeader));
  }
  /// Numbers of all processes. Collective.
  template <typename Number>
  void Write(const Number* numbers, std::size_t count) {
    WriteBytes(reinterpret_cast<const char*>(numbers),
               static_cast<long long>(count) * static_cast<long long>(sizeof(Number)));
  }
  /// On process 0. \return success
  bool CloseWith(RowFileHeader header) {
    header.checksum = m_checksum.value;
    m_file.seekp(0);
    m_file.write(reinterpret_cast<const char*>(&header), sizeof(header));
    m_file.close();
    return !m_file.fail();
  }

private:
  static constexpr long long atOnce = 1LL << 22U;

  // MPI_Gather, then sends to process 0, which takes all of them whether it can write or not.
  void WriteBytes(const char* bytes, long long count) {
    const bool isWriter = Rank(m_comm) == 0;
    std::vector<long long> counts(static_cast<std::size_t>(Size(m_comm)));
    MPI_Gather(&count, 1, MPI_LONG_LONG, counts.data(), 1, MPI_LONG_LONG, 0, m_comm);
    if (isWriter) Put(bytes, count);
    for (long long done = 0; !isWriter && done < count; done += atOnce)
      MPI_Send(bytes + done, static_cast<int>(std::min(atOnce, count - done)), MPI_BYTE, 0, 0,
               m_comm);
    std::vector<char> piece(isWriter ? static_cast<std::size_t>(atOnce) : 0);
    for (int r = 1; isWriter && r < Size(m_comm); ++r) {
      for (long long left = counts[static_cast<std::size_t>(r)]; left > 0; left -= atOnce) {
        const long long part = std::min(atOnce, left);
        MPI_Recv(piece.data(), static_cast<int>(part), MPI_BYTE, r, 0, m_comm, MPI_STATUS_IGNORE);
        Put(piece.data(), part);
      }
    }
  }

  void Put(const char* bytes, long long count) {
    m_checksum.Add(bytes, static_cast<std::size_t>(count));
    m_file.write(bytes, count);
  }

  MPI_Comm m_comm;
  std::ofstream m_file;
  Checksum m_checksum;
};

template <typename Scalar>
RowFileHeader HeaderOf(const CompressedRows<Scalar>& rows, int order, MPI_Comm comm) {
  constexpr bool isReal = std::is_floating_point_v<Scalar>;
  const long long entries = Sum(static_cast<long long>(rows.values.size()), comm);
  return {rowFileMagic,
          nativeOrder,
          rowFileVersion,
          isReal ? realKind : complexKind,
          fullRows,
          order,
          entries,
          0,
          0};
}

template <typename Scalar>
void WriteParts(GatheredFile& file, const CompressedRows<Scalar>& rows, MPI_Comm comm) {
  long long before = 0;
  const auto count = static_cast<long long>(rows.values.size());
  MPI_Exscan(&count, &before, 1, MPI_LONG_LONG, MPI_SUM, comm);
  if (Rank(comm) == 0) before = 0;
  std::vector<std::int64_t> starts; // the first of all, and those after the own rows
  if (Rank(comm) == 0) starts.push_back(0);
  for (int i = 1; i <= rows.Rows(); ++i)
    starts.push_back(before + rows.starts[static_cast<std::size_t>(i)]);
  file.Write(starts.data(), starts.size());
  file.Write(rows.values.data(), rows.values.size());
  const std::vector<std::int32_t> columns(rows.columns.begin(), rows.columns.end());
  file.Write(columns.data(), columns.size());
}

} // namespace

RowFileSummary WriteRowFile(const std::string& path, const AnyRows& rows, int order,
                            MPI_Comm comm) {
  AgreeOn(Rank(comm) == 0 && fs::exists(path) ? ComplaintOfFile(path) : "", exitInput, comm);
  const std::string part = path + ".part";
  GatheredFile file(part, comm);
  const RowFileHeader header = std::visit(
      [&](const auto& own) {
        const RowFileHeader made = HeaderOf(own, order, comm);
        WriteParts(file, own, comm);
        return made;
      },
      rows);
  std::string complaint;
  if (Rank(comm) == 0) {
    std::error_code error;
    bool isWritten = file.CloseWith(header);
    if (isWritten) {
      fs::rename(part, path, error);
      isWritten = !error;
    }
    if (!isWritten) {
      complaint = path + ": cannot be written";
      fs::remove(part, error);
    }
  }
  AgreeOn(complaint, exitInput, comm);
  return {header.entries, header.Bytes()};
}

} // namespace VesTools
