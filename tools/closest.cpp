#include "closest.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>

namespace VesTools {
namespace {

// The optimal string alignment, by rows of its table.
std::size_t Distance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> twoBack, back(b.size() + 1), row;
  std::iota(back.begin(), back.end(), std::size_t(0));
  for (std::size_t i = 1; i <= a.size(); ++i) {
    row.assign(1, i);
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t changed = a[i - 1] == b[j - 1] ? 0 : 1;
      row.push_back(std::min({back[j] + 1, row[j - 1] + 1, back[j - 1] + changed}));
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
        row[j] = std::min(row[j], twoBack[j - 2] + 1);
    }
    twoBack = std::exchange(back, row);
  }
  return back.back();
}

bool BeginAlike(const std::string& a, const std::string& b) {
  const std::size_t common = std::min(a.size(), b.size());
  return common >= 3 && a.compare(0, common, b, 0, common) == 0;
}

} // namespace

std::string DidYouMean(const std::string& word, const std::vector<std::string>& names) {
  std::size_t least = 1 + word.size() / 4;
  std::string closest;
  for (const std::string& name : names) {
    const std::size_t distance = BeginAlike(word, name) ? 1 : Distance(word, name);
    if (distance > least || (distance == least && !closest.empty())) continue;
    least = distance;
    closest = name;
  }
  return closest.empty() ? "" : " (did you mean " + closest + "?)";
}

} // namespace VesTools
