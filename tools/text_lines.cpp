#include "text_lines.h"

#include "parallel.h"
#include "text_file.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace VesTools {
namespace {

constexpr std::string_view blanks = " \t\r\f\v";

/// The lines of one process and its first complaint.
struct Share {
  long long lines = 0;
  long long badLine = 0;
  std::string complaint;
};

// A line belongs to the process in whose bytes it begins.
Share ReadShare(std::istream& file, long long begin, long long end, bool isFirst,
                const LineParser& parse) {
  Share share;
  std::string line;
  file.seekg(isFirst ? begin : begin - 1);
  if (!isFirst && std::getline(file, line)) begin += static_cast<long long>(line.size());
  while (begin < end && std::getline(file, line)) {
    begin += static_cast<long long>(line.size()) + 1;
    ++share.lines;
    if (!share.complaint.empty()) continue;
    share.complaint = parse(line);
    share.badLine = share.lines;
  }
  if (begin < end && share.complaint.empty()) {
    share.complaint = "the file ends too early, or reading failed";
    share.badLine = share.lines + 1;
  }
  return share;
}

} // namespace

std::string_view NextWord(std::string_view& line) {
  line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
  const std::string_view word = line.substr(0, line.find_first_of(blanks));
  line.remove_prefix(word.size());
  return word;
}

std::string ComplaintOfFile(const std::string& path) {
  std::error_code error;
  const auto status = std::filesystem::status(path, error);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
    return path + ": is not a regular file";
  return std::ifstream(path).good() ? "" : path + ": cannot be read";
}

void ReadLines(const std::string& path, TextPosition start, const LineParser& parse,
               MPI_Comm comm) {
  const int rank = Rank(comm), size = Size(comm);
  AgreeOn(ComplaintOfFile(path), exitInput, comm);
  long long end = 0;
  AgreeOn(rank == 0 ? MeasureText(path, end) : "", exitInput, comm);
  MPI_Bcast(&end, 1, MPI_LONG_LONG, 0, comm);
  const auto bound = [&](int r) { return start.byte + (end - start.byte) * r / size; };

  const auto file = OpenText(path);
  Share share = ReadShare(*file, bound(rank), bound(rank + 1), bound(rank) == start.byte, parse);
  long long before = 0;
  MPI_Exscan(&share.lines, &before, 1, MPI_LONG_LONG, MPI_SUM, comm);
  if (rank == 0) before = 0;
  if (!share.complaint.empty()) {
    const long long line = start.line + before + share.badLine - 1;
    share.complaint = path + ":" + std::to_string(line) + ": " + share.complaint;
  }
  AgreeOn(share.complaint, exitInput, comm);
}

} // namespace VesTools
