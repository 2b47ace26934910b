// Reading matrices and graphs: every process sees the same entries or the same complaint.
#include "entries.h"
#include "error.h"
#include "matrix_market.h"
#include "models.h"
#include "parallel.h"

#include <gtest/gtest.h>
#include <mpi.h>

#include <Eigen/Core>
#include <cstdio>
#include <fstream>
#include <functional>

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

// All entries on all processes.
Dense Gathered(const EntryList& matrix) {
  Dense dense = Dense::Zero(matrix.rows, matrix.columns);
  for (const Entry& entry : matrix.entries)
    dense(entry.row, entry.column) += entry.value;
  MPI_Allreduce(MPI_IN_PLACE, dense.data(), static_cast<int>(dense.size()), MPI_C_DOUBLE_COMPLEX,
                MPI_SUM, comm);
  return dense;
}

Dense Read(const std::string& text) {
  const TextFile file(text);
  return Gathered(ReadMatrixMarket(file.Path(), comm));
}

EntryList ReadWithOwners(const std::string& text) {
  const TextFile file(text);
  EntryList matrix = ReadSquareMatrix(file.Path(), comm);
  const RowOffsets offsets = BalancedRows({&matrix}, comm);
  MoveToOwners(matrix, offsets, comm);
  RequireHermitian(matrix, offsets, comm);
  return matrix;
}

/// The message of an error that all processes must meet.
std::string Complaint(const std::function<void()>& action) {
  try {
    action();
  } catch (const Error& error) {
    EXPECT_EQ(error.Code(), exitInput);
    return error.what();
  }
  return "no error";
}

std::string ReadComplaint(const std::string& text) {
  return Complaint([&] { ReadWithOwners(text); });
}

const std::string head = "%%MatrixMarket matrix ";

TEST(MatrixMarket, ReadsEveryKind) {
  Dense expected(3, 3);
  expected << 1.0, -2.5, 0.0, -2.5, 4.0, 1e-3, 0.0, 1e-3, 7.0;
  const std::string lower = "3 3 5\n1 1 1\n2 1 -2.5\n2 2 +4.0e0\n\n3 2 1E-3\n3 3 7\n";
  EXPECT_EQ(Read(head + "coordinate real symmetric\n% comment\n\n" + lower), expected);
  EXPECT_EQ(Read("%%matrixmarket MATRIX Coordinate Double Symmetric\r\n" + lower), expected);
  EXPECT_EQ(Read(head + "array real symmetric\n3 3\n1\n-2.5\n0\n4\n1e-3\n7"), expected);
  EXPECT_EQ(Read(head + "array real general\n3 3\n1\n-2.5\n0\n-2.5\n4\n1e-3\n0\n1e-3\n7\n"),
            expected);
  const std::complex<double> i(0.0, 1.0);
  Dense hermitian(2, 2);
  hermitian << 1.0, 2.0 - i, 2.0 + i, 3.0;
  EXPECT_EQ(Read(head + "coordinate complex Hermitian\n2 2 3\n1 1 1 0\n2 1 2 1\n2 2 3 0\n"),
            hermitian);
  EXPECT_EQ(Read(head + "array complex hermitian\n2 2\n1 0\n2 1\n3 0\n"), hermitian);
  EXPECT_EQ(Read(head + "coordinate complex general\n2 2 4\n1 1 1 0\n2 1 2 1\n1 2 2 -1\n2 2 3 0\n"),
            hermitian);
  Dense pattern(2, 3);
  pattern << 0.0, 1.0, 0.0, 1.0, 0.0, 1.0;
  EXPECT_EQ(Read(head + "coordinate pattern general\n2 3 3\n1 2\n2 3\n2 1\n"), pattern);
  EXPECT_EQ(Read(head + "coordinate integer general\n2 3 3\n1 2 1\n2 3 1\n2 1 1\n"), pattern);
}

// Whatever process meets the line, all say the same, with the number of the line.
TEST(MatrixMarket, ComplaintsNameTheLine) {
  const std::string real = head + "coordinate real symmetric\n% comment\n3 3 3\n";
  const std::vector<std::pair<std::string, std::string>> cases = {
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
      {head + "array real general\n3 2\n1\n2\n2\n1\n5\n6\n", "is not square"}};
  for (const auto& [text, complaint] : cases)
    EXPECT_NE(ReadComplaint(text).find(complaint), std::string::npos)
        << ReadComplaint(text) << "\nfor\n"
        << text;
  EXPECT_NE(Complaint([] { ReadMatrixMarket("no such file", comm); }).find("cannot be read"),
            std::string::npos);
}

// Enough lines that every share begins and ends inside the data.
TEST(MatrixMarket, LinesAreCountedAcrossShares) {
  const int n = 1000;
  std::string text = head + "coordinate real general\n1000 1000 1000\n";
  for (int i = 1; i <= n; ++i)
    text += std::to_string(i) + " " + std::to_string(i) + " " + std::to_string(0.5 * i) + "\n";
  const Dense dense = Read(text);
  for (int i = 0; i < n; ++i)
    EXPECT_EQ(dense(i, i), 0.5 * (i + 1));
  EXPECT_EQ(dense.cwiseAbs().sum(), 0.25 * n * (n + 1));
  for (const int bad : {1, 2, 250, 251, 500, 750, 999, 1000}) {
    const std::string entry = "\n" + std::to_string(bad) + " " + std::to_string(bad) + " ";
    std::string broken = text;
    broken.replace(broken.rfind(entry) + 1, 1, "?");
    EXPECT_NE(ReadComplaint(broken).find(":" + std::to_string(bad + 2) + ": expected"),
              std::string::npos)
        << ReadComplaint(broken);
  }
}

TEST(HermitianCheck, NamesTheWorstEntry) {
  const std::string general = head + "coordinate real general\n3 3 4\n1 1 1\n2 2 1\n";
  EXPECT_NE(ReadComplaint(general + "1 2 0.5\n2 1 0.25\n").find("(1, 2) is 0.5, but"),
            std::string::npos);
  EXPECT_NE(ReadComplaint(general + "1 3 0.5\n3 2 -2\n").find("(3, 2) is -2"), std::string::npos);
  const std::string diagonal = head + "coordinate complex hermitian\n2 2 2\n1 1 1 0\n2 2 1 0.5\n";
  EXPECT_NE(ReadComplaint(diagonal).find("(2, 2) is (1,0.5)"), std::string::npos);
  const std::string symmetric = head + "coordinate complex symmetric\n2 2 2\n1 1 1 0\n2 1 1 0.5\n";
  EXPECT_NE(ReadComplaint(symmetric).find("not Hermitian"), std::string::npos);
}

TEST(HermitianCheck, TakesTheMeanOfRoundingErrors) {
  const std::string text = head + "coordinate real general\n2 2 2\n1 2 1.00000000000002\n2 1 1\n";
  const Dense dense = Gathered(ReadWithOwners(text));
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
  const EntryList list = ReadMatrixMarket(file.Path(), comm);
  EXPECT_TRUE(list.isComplex);
  EXPECT_EQ(list.rows, rows);
  const Dense dense = Gathered(list);
  int first = 0;
  MPI_Exscan(&local, &first, 1, MPI_INT, MPI_SUM, comm);
  for (int j = 0; j < columns; ++j)
    for (int i = 0; i < local; ++i)
      EXPECT_EQ(dense(first + i, j), block[static_cast<std::size_t>(i + j * local)]);
}

EntryList Laplacian(const std::string& text) {
  const TextFile file(text);
  EntryList graph = ReadGraph(file.Path(), comm);
  const RowOffsets offsets = BalancedRows({&graph}, comm);
  MoveToOwners(graph, offsets, comm);
  RequireHermitian(graph, offsets, comm);
  TurnIntoLaplacian(graph, offsets, comm);
  return graph;
}

// A triangle with a tail, with a loop and an edge in both directions that do not count.
TEST(Graph, LaplacianOfListAndMatrix) {
  Dense expected(4, 4);
  expected << 2, -1, -1, 0, -1, 2, -1, 0, -1, -1, 3, -1, 0, 0, -1, 1;
  EXPECT_EQ(Gathered(Laplacian("# list\n0 1\n1 2\n2 0\n% tail\n2 3\n3 2\n1 1\n")), expected);
  EXPECT_EQ(Gathered(Laplacian("5\t6\r\n6 7\n7 5\n7 8")), expected);
  EXPECT_EQ(Gathered(Laplacian(head + "coordinate pattern symmetric\n4 4 5\n"
                                      "2 1\n3 1\n3 2\n4 3\n1 1\n")),
            expected);
  const Dense pair = Gathered(Laplacian("1 2 3\n2 1 0.5\n"));
  EXPECT_EQ(pair(0, 0), 3.0);
  EXPECT_EQ(pair(0, 1), -3.0);
  const auto complaint = [](const std::string& text) {
    return Complaint([&] { Laplacian(text); });
  };
  EXPECT_NE(complaint("1 2\n1 -2\n").find(":2: expected the numbers"), std::string::npos);
  EXPECT_NE(complaint("1 2 nan\n").find(":1: 'nan' is not a weight"), std::string::npos);
  EXPECT_NE(complaint("# nothing\n").find("there is no edge"), std::string::npos);
  EXPECT_NE(complaint(head + "coordinate real symmetric\n2 2 1\n2 1 -1\n").find("weight of edge"),
            std::string::npos);
}

} // namespace
