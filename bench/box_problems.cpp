#include "problems.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>

namespace VesBench {
namespace {

const double pi = std::acos(-1.0);

/// A tridiagonal matrix of constant entries.
struct Tridiagonal {
  double diagonal, beside;
};

/// One point of a tensor grid, the last axis fastest.
std::vector<int> IndexOf(int row, const std::vector<int>& dims) {
  std::vector<int> index(dims.size());
  for (std::size_t d = dims.size(); d-- > 0; row /= dims[d])
    index[d] = row % dims[d];
  return index;
}

/// Row of the tensor product of one tridiagonal matrix per axis, times factor, added to sum.
void AddTensorRow(int row, const std::vector<int>& dims, const std::vector<Tridiagonal>& factors,
                  std::map<int, double>& sum) {
  const std::vector<int> index = IndexOf(row, dims);
  std::vector<std::pair<int, double>> entries{{0, 1.0}};
  for (std::size_t d = 0; d < dims.size(); ++d) {
    std::vector<std::pair<int, double>> next;
    for (const auto& [column, value] : entries)
      for (int i = std::max(index[d] - 1, 0); i <= std::min(index[d] + 1, dims[d] - 1); ++i) {
        const double factor = i == index[d] ? factors[d].diagonal : factors[d].beside;
        if (factor != 0.0) next.emplace_back(column * dims[d] + i, value * factor);
      }
    entries = std::move(next);
  }
  for (const auto& [column, value] : entries)
    sum[column] += value;
}

/// Row of the sum over the axes of K in that axis and M in all others.
Row SumOfAxes(int row, const std::vector<int>& dims, const std::vector<Tridiagonal>& k,
              const std::vector<Tridiagonal>& m) {
  std::map<int, double> sum;
  for (std::size_t d = 0; d < dims.size(); ++d) {
    std::vector<Tridiagonal> factors = m;
    factors[d] = k[d];
    AddTensorRow(row, dims, factors, sum);
  }
  return {sum.begin(), sum.end()};
}

/// All sums over the axes of one value per axis, ascending.
std::vector<double> SumsOfAxes(const std::vector<int>& dims,
                               const std::function<double(int m, int j)>& valueOfAxis) {
  std::vector<double> values{0.0};
  for (const int m : dims) {
    std::vector<double> next;
    for (const double v : values)
      for (int j = 1; j <= m; ++j)
        next.push_back(v + valueOfAxis(m, j));
    values = std::move(next);
  }
  std::sort(values.begin(), values.end());
  return values;
}

double DifferenceValue(int m, int j) {
  const double s = std::sin(pi * j / (2.0 * (m + 1)));
  return 4.0 * (m + 1) * (m + 1) * s * s;
}

double ElementValue(int m, int j) {
  const double mu = DifferenceValue(m, j);
  return mu / (1.0 - mu / (6.0 * (m + 1) * (m + 1)));
}

std::string Sizes(const std::vector<int>& dims) {
  std::string text;
  for (const int m : dims)
    text += (text.empty() ? "" : " x ") + std::to_string(m);
  return text;
}

Problem Box(const std::vector<int>& dims, int pairs) {
  Problem p;
  p.order = std::accumulate(dims.begin(), dims.end(), 1, std::multiplies<>());
  p.pairs = pairs;
  return p;
}

} // namespace

double Problem::RoundingFloor(double eps) const {
  const double largest = std::abs(exact[static_cast<std::size_t>(pairs) - 1]);
  return 4.0 * eps * (normA + largest * normB) / std::sqrt(normB);
}

double Problem::Threshold(double eps) const {
  const double factor = eps < 1e-10 ? 1e5 : 20.0;
  return std::pow(10.0, std::ceil(std::log10(factor * RoundingFloor(eps))));
}

Problem BoxByDifferences(const std::vector<int>& dims, int pairs) {
  Problem p = Box(dims, pairs);
  p.name = "Box Laplacian by finite differences, " + Sizes(dims);
  p.source = "finite differences on a box: closed form";
  p.exact = SumsOfAxes(dims, DifferenceValue);
  std::vector<Tridiagonal> k;
  for (const int m : dims) {
    const double perSquare = (m + 1.0) * (m + 1.0);
    k.push_back({2.0 * perSquare, -perSquare});
    p.normA += 4.0 * perSquare;
  }
  const std::vector<Tridiagonal> one(dims.size(), {1.0, 0.0});
  p.a = [=](int row) { return SumOfAxes(row, dims, k, one); };
  return p;
}

Problem BoxByElements(const std::vector<int>& dims, int pairs) {
  Problem p = Box(dims, pairs);
  p.name = "Box Laplacian by linear elements, " + Sizes(dims);
  p.source = "linear elements on a box: closed form";
  p.exact = SumsOfAxes(dims, ElementValue);
  std::vector<Tridiagonal> k, m;
  double sumOfRatios = 0.0; // of the norms of K and M
  for (const int points : dims) {
    const double h = 1.0 / (points + 1.0);
    k.push_back({2.0 / h, -1.0 / h});
    m.push_back({4.0 * h / 6.0, h / 6.0});
    p.normB *= h;
    p.smallestB *= h / 3.0;
    sumOfRatios += 4.0 / (h * h);
  }
  p.normA = p.normB * sumOfRatios;
  p.a = [=](int row) { return SumOfAxes(row, dims, k, m); };
  p.b = [=](int row) {
    std::map<int, double> sum;
    AddTensorRow(row, dims, m, sum);
    return Row(sum.begin(), sum.end());
  };
  return p;
}

} // namespace VesBench
