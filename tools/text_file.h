#ifndef VES_TOOLS_TEXT_FILE_H
#define VES_TOOLS_TEXT_FILE_H

#include <istream>
#include <memory>
#include <string>

namespace VesTools {

/// Opens a file of text, also one packed by gzip, whatever its name. To seek in a packed one means
/// to unpack all before, in little memory. What cannot be unpacked ends the text with badbit.
std::unique_ptr<std::istream> OpenText(const std::string& path);

/// Finds the bytes of the text, of a packed file by unpacking it to its end.
/// \return what is wrong with the file, with its name, or nothing
std::string MeasureText(const std::string& path, long long& bytes);

} // namespace VesTools

#endif
