#ifndef VES_TOOLS_TEXT_LINES_H
#define VES_TOOLS_TEXT_LINES_H

#include <mpi.h>

#include <charconv>
#include <functional>
#include <string>
#include <string_view>

namespace VesTools {

/// The next word of a line, taken off its front; empty at the end.
std::string_view NextWord(std::string_view& line);

/// Reads a whole word as a number. \return false, with value as it was, for anything else
template <typename Number>
bool ParseNumber(std::string_view word, Number& value) {
  if (!word.empty() && word.front() == '+') word.remove_prefix(1);
  const char* end = word.data() + word.size();
  const auto [stop, error] = std::from_chars(word.data(), end, value);
  return error == std::errc() && stop == end;
}

/// Why a file cannot be read as text, some of it more than once, with its name; or nothing. A pipe
/// is refused unopened, since that could wait for its writer for ever.
std::string ComplaintOfFile(const std::string& path);

/// Where the rest of a text begins.
struct TextPosition {
  long long byte = 0;
  long long line = 1;
};

/// Takes one line; \return what is wrong with it, or nothing.
using LineParser = std::function<std::string(std::string_view line)>;

/// Reads the rest of a text file, packed or not, each process a share of about equal bytes: the
/// lines of a process follow those of the process before it. Throws Error with file name and line
/// number for the first line that some parser complains of. Collective.
void ReadLines(const std::string& path, TextPosition start, const LineParser& parse, MPI_Comm comm);

} // namespace VesTools

#endif
