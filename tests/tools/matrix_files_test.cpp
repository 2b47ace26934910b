// Reading matrices and graphs: every process sees the same entries or the same complaint.
#include "compressed_rows.h"
#include "error.h"
#include "matrix_market.h"
#include "matrix_source.h"
#include "models.h"
#include "parallel.h"
#include "row_file.h"

#include <gtest/gtest.h>
#include <mpi.h>

#include <Eigen/Core>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>

namespace {

using namespace VesTools;
using Dense = Eigen::MatrixXcd;

const MPI_Comm comm = MPI_COMM_WORLD;

/// A file that process 0 writes for all, gone at the end.
class TextFile {
public:
  explicit TextFile(const std::string& text)
      : m_path("matrix_files_test." + std::to_string(Size(comm)) + ".txt") {
    if (Rank(comm) == 0) std::ofstream(m_path, std::ios::binary) << text;
    MPI_Barrier(comm);
  }
  ~TextFile() {
    MPI_Barrier(comm);
    if (Rank(comm) == 0) std::remove(m_path.c_str());
  }
  const std::string& Path() const { return m_path; }

private:
  std::string m_path;
};

/// What ForEach of the matrix hands out on any process, on all processes.
template <typename ForEach>
Dense Gathered(int rows, int columns, ForEach&& forEach) {
  Dense dense = Dense::Zero(rows, columns);
  forEach([&](int row, int column, const auto& value) { dense(row, column) += value; });
  MPI_Allreduce(MPI_IN_PLACE, dense.data(), static_cast<int>(dense.size()), MPI_C_DOUBLE_COMPLEX,
                MPI_SUM, comm);
  return dense;
}

Dense Gathered(const AnyEntries& read) {
  return std::visit(
      [](const auto& matrix) {
        return Gathered(matrix.rows, matrix.columns, [&](auto&& add) {
          for (const auto& entry : matrix.entries)
            add(entry.row, entry.column, entry.value);
        });
      },
      read);
}

Dense Read(const std::string& text) {
  const TextFile file(text);
  return Gathered(ReadMatrixMarket(file.Path(), comm));
}

/// Rows on their owners.
struct Owned {
  AnyRows rows;
  RowOffsets offsets;

  explicit Owned(const std::unique_ptr<MatrixSource>& source)
      : offsets(BalancedRows({source.get()})) {
    rows = source->TakeRows(offsets);
    std::visit([&](auto& own) { RequireHermitian(own, offsets, comm); }, rows);
  }
  Dense Whole() const {
    return std::visit(
        [&](const auto& own) {
          return Gathered(offsets.back(), offsets.back(), [&](auto&& add) { own.ForEach(add); });
        },
        rows);
  }
};

Owned ReadWithOwners(const std::string& text) {
  const TextFile file(text);
  return Owned(OpenMatrix(file.Path(), comm));
}

Dense Laplacian(const std::string& text) {
  const TextFile file(text);
  Owned graph(OpenGraph(file.Path(), comm));
  graph.rows = std::visit([](const auto& weights) -> AnyRows { return LaplacianOf(weights, comm); },
                          graph.rows);
  return graph.Whole();
}

/// All processes must meet the same error, which says the text.
void ExpectComplaint(const std::string& text, const std::function<void()>& action) {
  try {
    action();
    ADD_FAILURE() << "no error that says " << text;
  } catch (const Error& error) {
    EXPECT_EQ(error.Code(), exitInput);
    EXPECT_NE(std::string(error.what()).find(text), std::string::npos)
        << error.what() << "\ndoes not say\n"
        << text;
  }
}

const std::string head = "%%MatrixMarket matrix ";

TEST(MatrixMarket, ReadsEveryKind) {
  const std::complex<double> i(0.0, 1.0);
  Dense real(3, 3), complex(2, 2), pattern(2, 3);
  real << 1.0, -2.5, 0.0, -2.5, 4.0, 1e-3, 0.0, 1e-3, 7.0;
  complex << 1.0, 2.0 - i, 2.0 + i, 3.0;
  pattern << 0.0, 1.0, 0.0, 1.0, 0.0, 1.0;
  const std::string lower = "3 3 5\n1 1 1\n2 1 -2.5\n2 2 +4.0e0\n\n3 2 1E-3\n3 3 7\n";
  const struct {
    std::string text;
    const Dense& expected;
  } cases[] = {
      {head + "coordinate real symmetric\n% comment\n\n" + lower, real},
      {"%%matrixmarket MATRIX Coordinate Double Symmetric\r\n" + lower, real},
      {head + "array real symmetric\n3 3\n1\n-2.5\n0\n4\n1e-3\n7", real},
      {head + "array real general\n3 3\n1\n-2.5\n0\n-2.5\n4\n1e-3\n0\n1e-3\n7\n", real},
      {head + "coordinate complex Hermitian\n2 2 3\n1 1 1 0\n2 1 2 1\n2 2 3 0\n", complex},
      {head + "array complex hermitian\n2 2\n1 0\n2 1\n3 0\n", complex},
      {head + "coordinate complex general\n2 2 4\n1 1 1 0\n2 1 2 1\n1 2 2 -1\n2 2 3 0\n", complex},
      {head + "coordinate pattern general\n2 3 3\n1 2\n2 3\n2 1\n", pattern},
      {head + "coordinate integer general\n2 3 3\n1 2 1\n2 3 1\n2 1 1\n", pattern},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Read(c.text), c.expected) << c.text;
}

// Whatever process meets the line, all say the same, with the number of the line.
TEST(MatrixMarket, ComplaintsNameTheLine) {
  const std::string real = head + "coordinate real symmetric\n% comment\n3 3 3\n";
  const std::string general = head + "coordinate real general\n3 3 4\n1 1 1\n2 2 1\n";
  const std::pair<std::string, std::string> cases[] = {
      {"", ":1: the file is empty"},
      {"3 3 1\n1 1 1\n", ":1: not a Matrix Market file"},
      {head + "coordinate real skew-symmetric\n2 2 1\n2 1 1\n", ":1: a skew-symmetric"},
      {head + "array pattern general\n", ":1: field 'pattern'"},
      {head + "coordinate real general\n% nothing else\n", "the line of dimensions is missing"},
      {head + "coordinate real general\n2 two 1\n", ":2: expected the numbers of rows"},
      {head + "coordinate real general\n99999999999 2 1\n", ":2: expected the numbers of rows"},
      {head + "coordinate real symmetric\n2 3 1\n1 1 1\n", ":2: a symmetric matrix"},
      {real + "1 1 1\n2 2 x\n3 3 y\n", ":5: 'x' is not a number"},
      {real + "1 1 1\n2 2 1\n3 3\n", ":6: a number is missing"},
      {real + "1 1 1\n2 2 1\n4 3 1\n", ":6: row 4 is outside 1 to 3"},
      {real + "1 1 1\n\n\n2 0 1\n3 3 1\n", ":7: column 0 is outside 1 to 3"},
      {real + "1 1 nan\n2 2 1\n3 3 1\n", ":4: 'nan' is not finite"},
      {real + "1 1 1 1\n2 2 1\n3 3 1\n", ":4: unexpected text"},
      {real + "1 1 1\n2 2 1\n", ":3: 3 entries are announced, but 2 follow"},
      {real + "1 1 1\n2 1 1\n1 2 1\n", "is given twice"},
      {head + "array real general\n2 2\n1\n2\n2\n1\n5\n", ":2: 4 numbers are announced, but 5"},
      {head + "array real general\n3 2\n1\n2\n2\n1\n5\n6\n", "is not square"},
      {general + "1 2 0.5\n2 1 0.25\n", "(1, 2) is 0.5, but"},
      {general + "1 3 0.5\n3 2 -2\n", "(3, 2) is -2"},
      {head + "coordinate complex hermitian\n2 2 2\n1 1 1 0\n2 2 1 0.5\n", "(2, 2) is (1,0.5)"},
      {head + "coordinate complex symmetric\n2 2 2\n1 1 1 0\n2 1 1 0.5\n", "not Hermitian"},
  };
  for (const auto& [text, complaint] : cases)
    ExpectComplaint(complaint, [&text = text] { ReadWithOwners(text); });
  ExpectComplaint("cannot be read", [] { ReadMatrixMarket("no such file", comm); });
}

// Enough lines that every share begins and ends inside the data, of several lengths and ends.
TEST(MatrixMarket, LinesAreCountedAcrossShares) {
  const int n = 1000;
  Dense expected = Dense::Zero(n, n);
  std::string text = head + "coordinate real symmetric\r\n% comment\n1000 1000 1999\n";
  std::vector<std::pair<long, std::size_t>> lines; // number and place of some entries
  long line = 4;
  const auto add = [&](int i, int j, double value) {
    if (i % 9 == 0) text += "  \n";
    if (i % 9 == 0) ++line;
    lines.emplace_back(line++, text.size());
    text += std::to_string(i + 1) + (i % 4 ? " " : "\t  ") + std::to_string(j + 1) + " " +
            std::to_string(value) + (i % 3 ? "\n" : " \r\n");
    expected(i, j) = expected(j, i) = value;
  };
  for (int i = 0; i < n; ++i) {
    add(i, i, 0.5 * i + 1.0);
    if (i > 0) add(i, (i * 7) % i, -0.25 * i);
  }
  const Owned read = ReadWithOwners(text);
  EXPECT_EQ(read.Whole(), expected);
  EXPECT_TRUE(std::holds_alternative<CompressedRows<double>>(read.rows));
  for (const std::size_t bad : {0, 1, 499, 500, 999, 1000, 1500, 1998}) {
    std::string broken = text;
    broken.replace(lines[bad].second, 1, "?");
    ExpectComplaint(":" + std::to_string(lines[bad].first) + ": expected",
                    [&] { ReadWithOwners(broken); });
  }
}

TEST(HermitianCheck, TakesTheMeanOfRoundingErrors) {
  const std::string text = head + "coordinate real general\n2 2 2\n1 2 1.00000000000002\n2 1 1\n";
  const Dense dense = ReadWithOwners(text).Whole();
  EXPECT_EQ(dense(0, 1), dense(1, 0));
  EXPECT_NEAR(dense(0, 1).real(), 1.00000000000001, 1e-15);
}

TEST(MatrixMarket, ReadsWhatItWrote) {
  const int columns = 3, local = 2 + Rank(comm),
            rows = static_cast<int>(Sum((long long)local, comm));
  std::vector<std::complex<double>> block;
  for (int i = 0; i < local * columns; ++i)
    block.emplace_back(std::sqrt(2.0 + i + Rank(comm)), -1.0 / (3.0 + i));
  const TextFile file("");
  WriteMatrixMarket(file.Path(), block.data(), local, columns, comm);
  const Dense dense = Gathered(ReadMatrixMarket(file.Path(), comm));
  ASSERT_EQ(dense.rows(), rows);
  int first = 0;
  MPI_Exscan(&local, &first, 1, MPI_INT, MPI_SUM, comm);
  for (int j = 0; j < columns; ++j)
    for (int i = 0; i < local; ++i)
      EXPECT_EQ(dense(first + i, j), block[static_cast<std::size_t>(i + j * local)]);
}

/// The bytes of the file that text becomes, on all processes.
std::string RowFileOf(const std::string& text) {
  const Owned read = ReadWithOwners(text);
  const TextFile file("");
  WriteRowFile(file.Path(), read.rows, read.offsets.back(), comm);
  std::ifstream stream(file.Path(), std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

// Fewer rows than processes, empty rows, and more entries than fit one message.
TEST(RowFile, HoldsTheMatrixToTheLastBit) {
  const std::string small =
      head + "coordinate complex hermitian\n3 3 3\n1 1 0.1 0\n3 1 1e-300 -7\n2 1 0 0.3\n";
  const std::string sparse = head + "coordinate pattern symmetric\n9 9 2\n5 2\n9 9\n";
  std::string large = head + "array real symmetric\n1200 1200\n";
  for (int i = 0; i < 1200 * 1201 / 2; ++i)
    large += i % 5 ? "0.1\n" : "-3.3333333333333331e-5\n";
  for (const std::string& text : {small, sparse, large}) {
    const Owned read = ReadWithOwners(RowFileOf(text)), direct = ReadWithOwners(text);
    EXPECT_EQ(read.Whole(), direct.Whole());
    EXPECT_EQ(read.rows.index(), direct.rows.index());
    EXPECT_EQ(read.offsets, direct.offsets);
  }
  const std::string graph = head + "coordinate real symmetric\n3 3 2\n2 1 0.5\n3 2 4\n";
  EXPECT_EQ(Laplacian(RowFileOf(graph)), Laplacian(graph));
}

/// With a number of 4 or 8 bytes in place of what stands at a byte.
template <typename Number>
std::string With(Number number, std::size_t byte, std::string file) {
  file.replace(byte, sizeof(number), reinterpret_cast<const char*>(&number), sizeof(number));
  return file;
}

TEST(RowFile, ComplaintsSayWhatIsWrong) {
  std::string text = head + "coordinate real symmetric\n6 6 8\n2 1 2\n6 2 3\n";
  for (const char* i : {"1", "2", "3", "4", "5", "6"})
    text += i + std::string(" ") + i + " 1\n";
  const std::string good = RowFileOf(text); // rows of 2, 3, 1, 1, 1, 2 entries
  ASSERT_EQ(good.size(), 48U + 7 * 8 + 10 * 8 + 10 * 4);
  const std::size_t values = 48 + 7 * 8, columns = values + 10 * 8;
  const std::pair<std::string, std::string> cases[] = {
      {With('x', 0, good), "not a Matrix Market file"},
      {good.substr(0, 47), "too short for its header"},
      {With(0x04030201, 8, good), "another byte order"},
      {With(2, 12, good), "version 2 of the format"},
      {With(3, 16, good), "unknown type of numbers"},
      {With(2, 20, good), "unknown storage"},
      {With(0LL, 24, good), "0 rows are outside"},
      {With(1LL << 31U, 24, good), "2147483648 rows are outside"},
      {With(1LL << 62U, 32, good), "entries cannot stand in 6 rows"},
      {With(-1LL, 32, good), "-1 entries cannot stand"},
      {With(9LL, 32, good), "224 bytes in place of 212"},
      {good.substr(0, good.size() - 1), "it was cut off"},
      {good + "x", "225 bytes in place of 224"},
      {With(1LL, 48, good), "row 1 do not begin at 0"},
      {With(9LL, 48 + 6 * 8, good), "last row do not end at 10"},
      {With(1LL, 48 + 2 * 8, good), "row 2: its entries cannot be those from 2 to 1 of 10"},
      {With(11LL, 48 + 5 * 8, good), "row 5: its entries cannot be those from 7 to 11 of 10"},
      {With(6, columns + 4 * 9, good), "row 6: column 7 is outside 1 to 6"},
      {With(-1, columns, good), "row 1: column 0 is outside 1 to 6"},
      {With(0, columns + 4, good), "row 1: columns do not ascend"},
      {With(std::nan(""), values + 8 * 6, good), "entry (4, 4) is not finite"},
      {With(1.0000000000000002, values + 8 * 6, good), "its data are damaged"},
  };
  EXPECT_EQ(ReadWithOwners(good).Whole(), ReadWithOwners(text).Whole());
  for (const auto& [file, complaint] : cases)
    ExpectComplaint(complaint, [&file = file] { ReadWithOwners(file); });
}

// A triangle with a tail, with a loop and an edge in both directions that do not count.
TEST(Graph, LaplacianOfListAndMatrix) {
  Dense expected(4, 4), pair(2, 2);
  expected << 2, -1, -1, 0, -1, 2, -1, 0, -1, -1, 3, -1, 0, 0, -1, 1;
  pair << 3, -3, -3, 3;
  const std::string matrix =
      head + "coordinate pattern symmetric\n4 4 5\n2 1\n3 1\n3 2\n4 3\n1 1\n";
  for (const std::string& text : {std::string("# list\n0 1\n1 2\n2 0\n% tail\n2 3\n3 2\n1 1\n"),
                                  std::string("5\t6\r\n6 7\n7 5\n7 8"), matrix})
    EXPECT_EQ(Laplacian(text), expected) << text;
  EXPECT_EQ(Laplacian("1 2 3\n2 1 0.5\n"), pair);
  const std::pair<std::string, std::string> cases[] = {
      {"1 2\n1 -2\n", ":2: expected the numbers"},
      {"1 2 nan\n", ":1: 'nan' is not a weight"},
      {"# nothing\n", "there is no edge"},
      {head + "coordinate real symmetric\n2 2 1\n2 1 -1\n", "weight of edge"},
  };
  for (const auto& [text, complaint] : cases)
    ExpectComplaint(complaint, [&text = text] { Laplacian(text); });
}

} // namespace
