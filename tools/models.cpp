#include "models.h"

#include "matrix_market.h"
#include "parallel.h"
#include "row_file.h"
#include "text_file.h"
#include "text_lines.h"

#include <algorithm>
#include <array>
#include <limits>
#include <tuple>

namespace VesTools {
namespace {

// Sizes of axes separated by x; the product must be an order that the library can hold.
std::vector<int> ParseSizes(const std::string& text, int dimension) {
  const auto refuse = [&](const std::string& why) {
    throw Error(exitUsage, "--model: '" + text + "' " + why);
  };
  std::vector<int> sizes;
  long long order = 1;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find('x', begin), text.size());
    int size = 0;
    if (!ParseNumber(std::string_view(text).substr(begin, end - begin), size) || size < 1)
      refuse("is not a list of sizes such as 40x40x40");
    order *= size;
    if (order > std::numeric_limits<int>::max()) refuse("makes more than 2147483647 points");
    sizes.push_back(size);
    begin = end + 1;
  }
  if (static_cast<int>(sizes.size()) != dimension)
    refuse("does not have the number of sizes of this model, " + std::to_string(dimension));
  return sizes;
}

bool IsMatrixMarket(const std::string& path, MPI_Comm comm) {
  int verdict = 0;
  if (Rank(comm) == 0 && ComplaintOfFile(path).empty()) {
    std::array<char, 2> begin{};
    OpenText(path)->read(begin.data(), begin.size());
    verdict = begin[0] == '%' && begin[1] == '%' ? 1 : 0;
  }
  MPI_Bcast(&verdict, 1, MPI_INT, 0, comm);
  return verdict != 0;
}

struct Edge {
  long long from, to;
  double weight;
};

std::string ReadEdge(std::string_view line, std::vector<Edge>& edges) {
  std::string_view rest = line;
  const std::string_view first = NextWord(rest);
  if (first.empty() || first.front() == '#' || first.front() == '%') return "";
  Edge edge{0, 0, 1.0};
  if (!ParseNumber(first, edge.from) || !ParseNumber(NextWord(rest), edge.to) || edge.from < 0 ||
      edge.to < 0)
    return "expected the numbers of two vertices";
  const std::string_view weight = NextWord(rest);
  // Written so that NaN is refused too.
  if (!weight.empty() && !(ParseNumber(weight, edge.weight) && edge.weight >= 0.0 &&
                           edge.weight <= std::numeric_limits<double>::max()))
    return "'" + std::string(weight) + "' is not a weight >= 0";
  if (!NextWord(rest).empty()) return "unexpected text after the weight";
  edges.push_back(edge);
  return "";
}

// Both directions of every edge; duplicates, which meet at one process, are united.
EntryList<double> UniteEdges(const std::vector<Edge>& edges, long long lowest, int vertices,
                             MPI_Comm comm) {
  EntryList<double> graph;
  graph.rows = graph.columns = vertices;
  graph.isHermitian = true;
  for (const auto& [from, to, weight] : edges) {
    const auto i = static_cast<int>(from - lowest), j = static_cast<int>(to - lowest);
    graph.entries.push_back({i, j, weight});
    if (i != j) graph.entries.push_back({j, i, weight});
  }
  Order(graph.entries);
  const RowOffsets even = EvenRows(vertices, Size(comm));
  GatherRows(graph.entries, BalancedRows(CountByRows(graph.entries, even, comm), even, comm), comm);
  const auto key = [](const Entry<double>& e) { return std::tuple(e.row, e.column, -e.value); };
  std::vector<Entry<double>>& all = graph.entries;
  std::sort(all.begin(), all.end(), [&](const auto& a, const auto& b) { return key(a) < key(b); });
  all.erase(std::unique(all.begin(), all.end(),
                        [](const auto& a, const auto& b) {
                          return a.row == b.row && a.column == b.column;
                        }),
            all.end());
  return graph;
}

EntryList<double> ReadEdgeList(const std::string& path, MPI_Comm comm) {
  std::vector<Edge> edges;
  ReadLines(
      path, {}, [&](std::string_view line) { return ReadEdge(line, edges); }, comm);
  long long bounds[2] = {std::numeric_limits<long long>::max(), -1}; // lowest, -highest
  bounds[1] = bounds[0];
  for (const Edge& edge : edges) {
    bounds[0] = std::min({bounds[0], edge.from, edge.to});
    bounds[1] = std::min({bounds[1], -edge.from, -edge.to});
  }
  MPI_Allreduce(MPI_IN_PLACE, bounds, 2, MPI_LONG_LONG, MPI_MIN, comm);
  if (bounds[0] == std::numeric_limits<long long>::max())
    throw Error(exitInput, path + ": there is no edge");
  const long long range = -bounds[1] - bounds[0];
  if (range >= std::numeric_limits<int>::max())
    throw Error(exitInput, path + ": the numbers of vertices span more than 2147483647");
  EntryList<double> graph = UniteEdges(edges, bounds[0], static_cast<int>(range) + 1, comm);
  graph.name = path;
  return graph;
}

} // namespace

ModelName ParseModelName(const std::string& text) {
  const std::size_t colon = std::min(text.find(':'), text.size());
  return {text.substr(0, colon), text.substr(std::min(colon + 1, text.size()))};
}

EntryList<double> LaplaceModel(const std::string& sizes, int dimension, MPI_Comm comm) {
  const std::vector<int> points = ParseSizes(sizes, dimension);
  EntryList<double> result;
  result.isHermitian = true;
  long long order = 1;
  for (const int size : points)
    order *= size;
  result.rows = result.columns = static_cast<int>(order);
  const int rank = Rank(comm), processes = Size(comm);
  const auto first = static_cast<int>(order * rank / processes);
  const auto last = static_cast<int>(order * (rank + 1) / processes);
  for (int row = first; row < last; ++row) {
    result.entries.push_back({row, row, 2.0 * dimension});
    int stride = 1;
    for (auto axis = points.rbegin(); axis != points.rend(); stride *= *axis++) {
      const int index = row / stride % *axis;
      if (index > 0) result.entries.push_back({row, row - stride, -1.0});
      if (index + 1 < *axis) result.entries.push_back({row, row + stride, -1.0});
    }
  }
  return result;
}

std::unique_ptr<MatrixSource> OpenGraph(const std::string& path, MPI_Comm comm) {
  if (IsMatrixMarket(path, comm) || IsRowFile(path, comm)) return OpenMatrix(path, comm);
  return SourceOf(ReadEdgeList(path, comm), comm);
}

} // namespace VesTools
