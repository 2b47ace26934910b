#include "matrix_market.h"

#include "parallel.h"
#include "text_file.h"
#include "text_lines.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <filesystem>
#include <fstream>

namespace VesTools {
namespace {

enum class Field { real, complex, pattern };
enum class Symmetry { general, symmetric, hermitian };

/// What the head of a file says; sent to all processes as it stands.
struct Header {
  bool isArray = false;
  Field field = Field::real;
  Symmetry symmetry = Symmetry::general;
  int rows = 0, columns = 0;
  long long entries = 0;  ///< numbers or entries that the file must hold
  long long sizeLine = 0; ///< line of the dimensions
  TextPosition data;      ///< what follows that line
};

std::string LowerCase(std::string_view word) {
  std::string result(word);
  std::transform(result.begin(), result.end(), result.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return result;
}

std::string ReadBanner(std::string_view line, Header& header) {
  const std::string banner = LowerCase(NextWord(line)), object = LowerCase(NextWord(line));
  const std::string format = LowerCase(NextWord(line)), field = LowerCase(NextWord(line));
  const std::string symmetry = LowerCase(NextWord(line));
  if (banner != "%%matrixmarket")
    return "not a Matrix Market file, whose first line begins with %%MatrixMarket, nor one of ves "
           "convert";
  if (object != "matrix") return "object '" + object + "' is not 'matrix'";
  if (format != "coordinate" && format != "array")
    return "format '" + format + "' is neither 'coordinate' nor 'array'";
  header.isArray = format == "array";
  if (field == "complex")
    header.field = Field::complex;
  else if (field == "pattern" && !header.isArray)
    header.field = Field::pattern;
  else if (field != "real" && field != "double" && field != "integer")
    return "field '" + field +
           "' is not 'real', 'complex', 'integer' or, of coordinates, 'pattern'";
  if (symmetry == "symmetric")
    header.symmetry = Symmetry::symmetric;
  else if (symmetry == "hermitian")
    header.symmetry = Symmetry::hermitian;
  else if (symmetry == "skew-symmetric")
    return "a skew-symmetric matrix is not Hermitian";
  else if (symmetry != "general")
    return "symmetry '" + symmetry + "' is not 'general', 'symmetric' or 'Hermitian'";
  return NextWord(line).empty() ? "" : "unexpected text after the symmetry";
}

std::string ReadDimensions(std::string_view line, Header& header) {
  if (!ParseNumber(NextWord(line), header.rows) || !ParseNumber(NextWord(line), header.columns) ||
      header.rows < 1 || header.columns < 1)
    return "expected the numbers of rows and columns, from 1 to 2147483647";
  if (header.symmetry != Symmetry::general && header.rows != header.columns)
    return "a symmetric matrix must have as many rows as columns";
  const long long rows = header.rows, columns = header.columns;
  if (header.isArray)
    header.entries = header.symmetry == Symmetry::general ? rows * columns : rows * (rows + 1) / 2;
  else if (!ParseNumber(NextWord(line), header.entries) || header.entries < 0)
    return "expected the number of entries after those of rows and columns";
  return NextWord(line).empty() ? "" : "unexpected text after the dimensions";
}

// \return what is wrong, with file name and line number, or nothing
std::string ReadHeader(const std::string& path, Header& header) {
  std::string line, complaint = ComplaintOfFile(path);
  if (!complaint.empty()) return complaint;
  const auto file = OpenText(path);
  long long number = 0;
  const auto at = [&](const std::string& text) {
    return text.empty() ? "" : path + ":" + std::to_string(std::max(number, 1LL)) + ": " + text;
  };
  while (std::getline(*file, line)) {
    header.data.byte += static_cast<long long>(line.size()) + 1;
    ++number;
    std::string_view words = line;
    const std::string_view word = NextWord(words);
    if (number == 1)
      complaint = ReadBanner(line, header);
    else if (!word.empty() && word.front() != '%') {
      header.sizeLine = number;
      header.data.line = number + 1;
      return at(ReadDimensions(line, header));
    }
    if (!complaint.empty()) return at(complaint);
  }
  long long bytes = 0;
  if (file->bad()) complaint = MeasureText(path, bytes);
  if (!complaint.empty()) return complaint;
  return at(number == 0 ? "the file is empty" : "the line of dimensions is missing");
}

Header ReadHeaderTogether(const std::string& path, MPI_Comm comm) {
  Header header;
  std::string complaint;
  if (Rank(comm) == 0) complaint = ReadHeader(path, header);
  AgreeOn(complaint, exitInput, comm);
  MPI_Bcast(&header, sizeof(header), MPI_BYTE, 0, comm);
  return header;
}

std::string ReadNumber(std::string_view& line, double& number) {
  const std::string_view word = NextWord(line);
  if (word.empty()) return "a number is missing";
  if (!ParseNumber(word, number))
    return "'" + std::string(word) + "' is not a number that double precision holds";
  return std::isfinite(number) ? "" : "'" + std::string(word) + "' is not finite";
}

// Scalar is complex where the field is.
template <typename Scalar>
std::string ReadValue(std::string_view& line, Field field, Scalar& value) {
  double real = 1.0, imaginary = 0.0;
  std::string complaint;
  if (field != Field::pattern) complaint = ReadNumber(line, real);
  if (field == Field::complex && complaint.empty()) complaint = ReadNumber(line, imaginary);
  if constexpr (std::is_floating_point_v<Scalar>)
    value = real;
  else
    value = {real, imaginary};
  if (complaint.empty() && !NextWord(line).empty()) complaint = "unexpected text after the value";
  return complaint;
}

std::string ReadIndex(std::string_view& line, const char* what, int limit, int& index) {
  const std::string word(NextWord(line));
  long long number = 0;
  if (!ParseNumber(std::string_view(word), number))
    return std::string("expected the number of a ") + what + ", found '" + word + "'";
  if (number < 1 || number > limit)
    return std::string(what) + " " + word + " is outside 1 to " + std::to_string(limit);
  index = static_cast<int>(number) - 1;
  return "";
}

template <typename Scalar>
std::string ReadEntry(std::string_view line, const Header& header, Entry<Scalar>& entry) {
  std::string complaint = ReadIndex(line, "row", header.rows, entry.row);
  if (complaint.empty()) complaint = ReadIndex(line, "column", header.columns, entry.column);
  if (complaint.empty()) complaint = ReadValue(line, header.field, entry.value);
  return complaint;
}

// Numbers of an array, which stand there by columns, in triangles from the diagonal on.
class ArrayPlace {
public:
  ArrayPlace(const Header& header, long long index)
      : m_rows(header.rows), m_isTriangle(header.symmetry != Symmetry::general) {
    for (; m_column < header.columns && index >= m_rows - FirstRow(); ++m_column)
      index -= m_rows - FirstRow();
    m_row = FirstRow() + static_cast<int>(index);
  }
  template <typename Scalar>
  Entry<Scalar> Next(const Scalar& value) {
    const Entry<Scalar> entry = {m_row, m_column, value};
    if (++m_row == m_rows) {
      ++m_column;
      m_row = FirstRow();
    }
    return entry;
  }

private:
  int FirstRow() const { return m_isTriangle ? m_column : 0; }

  int m_rows, m_row = 0, m_column = 0;
  bool m_isTriangle;
};

void CheckCount(const std::string& path, const Header& header, long long found) {
  if (found == header.entries) return;
  const char* what = header.isArray ? " numbers" : " entries";
  throw Error(exitInput, path + ":" + std::to_string(header.sizeLine) + ": " +
                             std::to_string(header.entries) + what + " are announced, but " +
                             std::to_string(found) + " follow");
}

/// Room for the entries of one process, which is taken as they come: growing would copy them. What
/// a header promises beyond what the file can hold is not believed.
template <typename Scalar>
void ReserveShare(const std::string& path, const Header& header, MPI_Comm comm,
                  std::vector<Entry<Scalar>>& entries) {
  constexpr long long bytesOfLine = 4, packing = 8;
  std::error_code error;
  const auto bytes = static_cast<long long>(std::filesystem::file_size(path, error));
  const long long all = std::min(header.entries, error ? 0 : packing * bytes / bytesOfLine);
  const long long share = all / Size(comm) + all / Size(comm) / 4;
  const int images = header.symmetry == Symmetry::general ? 1 : 2;
  entries.reserve(static_cast<std::size_t>(images * share));
}

// An entry and, of a triangle, its mirror image.
template <typename Scalar>
void AddWithImage(const Entry<Scalar>& entry, Symmetry symmetry,
                  std::vector<Entry<Scalar>>& entries) {
  entries.push_back(entry);
  if (symmetry == Symmetry::general || entry.row == entry.column) return;
  const bool isConjugate = symmetry == Symmetry::hermitian;
  entries.push_back({entry.column, entry.row, isConjugate ? Conjugate(entry.value) : entry.value});
}

// Collective.
template <typename Scalar>
void ReadArray(const std::string& path, const Header& header, MPI_Comm comm,
               std::vector<Entry<Scalar>>& entries) {
  std::vector<Scalar> values;
  const auto parse = [&](std::string_view line) -> std::string {
    std::string_view rest = line;
    if (NextWord(rest).empty()) return "";
    return ReadValue(line, header.field, values.emplace_back());
  };
  ReadLines(path, header.data, parse, comm);
  const auto count = static_cast<long long>(values.size());
  CheckCount(path, header, Sum(count, comm));
  long long before = 0;
  MPI_Exscan(&count, &before, 1, MPI_LONG_LONG, MPI_SUM, comm);
  ArrayPlace place(header, Rank(comm) == 0 ? 0 : before);
  for (const Scalar& value : values) {
    const Entry<Scalar> entry = place.Next(value);
    if (value != 0.0) AddWithImage(entry, header.symmetry, entries);
  }
}

// Collective.
template <typename Scalar>
void ReadCoordinates(const std::string& path, const Header& header, MPI_Comm comm,
                     std::vector<Entry<Scalar>>& entries) {
  ReserveShare(path, header, comm, entries);
  long long count = 0;
  const auto parse = [&](std::string_view line) -> std::string {
    std::string_view rest = line;
    if (NextWord(rest).empty()) return "";
    Entry<Scalar> entry{};
    std::string complaint = ReadEntry(line, header, entry);
    ++count;
    if (complaint.empty()) AddWithImage(entry, header.symmetry, entries);
    return complaint;
  };
  ReadLines(path, header.data, parse, comm);
  CheckCount(path, header, Sum(count, comm));
}

// Collective.
template <typename Scalar>
EntryList<Scalar> ReadEntries(const std::string& path, const Header& header, MPI_Comm comm) {
  EntryList<Scalar> result;
  result.name = path;
  result.rows = header.rows;
  result.columns = header.columns;
  // The diagonal of a Hermitian file, and all of a complex symmetric one, may still not be real.
  result.isHermitian = header.symmetry != Symmetry::general && header.field != Field::complex;
  if (header.isArray)
    ReadArray(path, header, comm, result.entries);
  else
    ReadCoordinates(path, header, comm, result.entries);
  return result;
}

AnyEntries ReadEntriesOf(const std::string& path, const Header& header, MPI_Comm comm) {
  if (header.field == Field::complex) return ReadEntries<std::complex<double>>(path, header, comm);
  return ReadEntries<double>(path, header, comm);
}

template <typename Scalar>
void WriteColumn(std::ofstream& file, const std::vector<Scalar>& column) {
  for (const Scalar& value : column) {
    if constexpr (std::is_floating_point_v<Scalar>)
      file << value << '\n';
    else
      file << value.real() << ' ' << value.imag() << '\n';
  }
}

} // namespace

AnyEntries ReadMatrixMarket(const std::string& path, MPI_Comm comm) {
  return ReadEntriesOf(path, ReadHeaderTogether(path, comm), comm);
}

AnyEntries ReadSquareMatrix(const std::string& path, MPI_Comm comm) {
  const Header header = ReadHeaderTogether(path, comm);
  if (header.rows != header.columns)
    throw Error(exitInput, path + ": a matrix of " + std::to_string(header.rows) + " rows and " +
                               std::to_string(header.columns) + " columns is not square");
  return ReadEntriesOf(path, header, comm);
}

template <typename Scalar>
void WriteMatrixMarket(const std::string& path, const Scalar* values, int localRows, int columns,
                       MPI_Comm comm) {
  const int rank = Rank(comm);
  std::vector<int> counts(static_cast<std::size_t>(Size(comm))), displs{0};
  MPI_Allgather(&localRows, 1, MPI_INT, counts.data(), 1, MPI_INT, comm);
  for (const int count : counts)
    displs.push_back(displs.back() + count);
  const int rows = displs.back();
  MPI_Datatype type = MPI_DATATYPE_NULL;
  MPI_Type_contiguous(sizeof(Scalar), MPI_BYTE, &type);
  MPI_Type_commit(&type);
  std::ofstream file;
  if (rank == 0) {
    file.open(path);
    file.precision(
        std::is_same_v<Scalar, double> || std::is_same_v<Scalar, std::complex<double>> ? 17 : 9);
    file << "%%MatrixMarket matrix array "
         << (std::is_floating_point_v<Scalar> ? "real" : "complex") << " general\n"
         << rows << ' ' << columns << '\n';
  }
  std::vector<Scalar> column(rank == 0 ? static_cast<std::size_t>(rows) : 0);
  for (int j = 0; j < columns; ++j, values += localRows) {
    MPI_Gatherv(values, localRows, type, column.data(), counts.data(), displs.data(), type, 0,
                comm);
    if (rank == 0) WriteColumn(file, column);
  }
  MPI_Type_free(&type);
  if (rank == 0) file.close();
  AgreeOn(rank == 0 && file.fail() ? path + ": cannot be written" : "", exitInput, comm);
}

template void WriteMatrixMarket(const std::string&, const double*, int, int, MPI_Comm);
template void WriteMatrixMarket(const std::string&, const float*, int, int, MPI_Comm);
template void WriteMatrixMarket(const std::string&, const std::complex<double>*, int, int,
                                MPI_Comm);
template void WriteMatrixMarket(const std::string&, const std::complex<float>*, int, int, MPI_Comm);

} // namespace VesTools
