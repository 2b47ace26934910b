#ifndef VES_TOOLS_ROW_FILE_FORMAT_H
#define VES_TOOLS_ROW_FILE_FORMAT_H

#include <zlib.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace VesTools {

inline constexpr std::array<char, 8> rowFileMagic = {'v', 'e', 's', 'r', 'o', 'w', 's', '\n'};
inline constexpr std::uint32_t nativeOrder = 0x01020304, otherOrder = 0x04030201;
inline constexpr std::uint32_t rowFileVersion = 1;
enum ScalarKind : std::uint32_t { realKind = 1, complexKind = 2 };
/// Which of the entries stand in the file; both triangles, so that rows need nothing of others.
enum Storage : std::uint32_t { fullRows = 1 };

struct RowFileHeader {
  std::array<char, 8> magic;
  std::uint32_t byteOrder, version;
  std::uint32_t scalar, storage;
  std::int64_t rows, entries;
  std::uint32_t checksum; ///< CRC-32 of what follows the header
  std::uint32_t reserved;

  long long ValueBytes() const { return scalar == complexKind ? 16 : 8; }
  long long Starts() const { return sizeof(RowFileHeader); }
  long long Values() const { return Starts() + 8 * (rows + 1); }
  long long Columns() const { return Values() + ValueBytes() * entries; }
  long long Bytes() const { return Columns() + 4 * entries; }
};
static_assert(sizeof(RowFileHeader) == 48 && std::is_trivially_copyable_v<RowFileHeader>);

/// CRC-32 of some bytes, and how many they are.
struct Checksum {
  std::uint32_t value = 0;
  long long bytes = 0;

  template <typename Number>
  void Add(const Number* numbers, std::size_t count) {
    if (count == 0) return; // zlib would begin anew where there is no address
    const std::size_t size = count * sizeof(Number);
    value = static_cast<std::uint32_t>(
        crc32_z(value, reinterpret_cast<const unsigned char*>(numbers), size));
    bytes += static_cast<long long>(size);
  }
  /// Of bytes that follow these.
  void Add(const Checksum& next) {
    value = static_cast<std::uint32_t>(crc32_combine(value, next.value, next.bytes));
    bytes += next.bytes;
  }
};

} // namespace VesTools

#endif
