#include "text_file.h"

#include <zlib.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <streambuf>
#include <vector>

namespace VesTools {
namespace {

constexpr unsigned bytesAtOnce = 1U << 17U;

bool IsPacked(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::array<char, 2> begin{};
  file.read(begin.data(), begin.size());
  return file && begin[0] == '\x1f' && begin[1] == '\x8b';
}

class PackedFile {
public:
  explicit PackedFile(const std::string& path) : m_path(path), m_file(gzopen(path.c_str(), "rb")) {
    if (m_file) gzbuffer(m_file.get(), bytesAtOnce);
  }

  /// \return bytes read, 0 at the end; throws for what is no whole file of gzip
  std::size_t Read(std::vector<char>& buffer) {
    const int count =
        m_file ? gzread(m_file.get(), buffer.data(), static_cast<unsigned>(buffer.size())) : -1;
    if (count > 0) return static_cast<std::size_t>(count);
    int code = Z_ERRNO;
    if (m_file) gzerror(m_file.get(), &code);
    if (count < 0 || code != Z_OK)
      throw std::runtime_error(m_path + ": cannot be unpacked: " +
                               (code == Z_BUF_ERROR    ? "the file ends too early"
                                : code == Z_DATA_ERROR ? "its data are damaged"
                                                       : "reading failed"));
    return 0;
  }

  bool Seek(long long byte) { return m_file && gzseek(m_file.get(), byte, SEEK_SET) == byte; }

private:
  struct Close {
    void operator()(gzFile file) const { gzclose(file); }
  };
  std::string m_path;
  std::unique_ptr<gzFile_s, Close> m_file;
};

class PackedBuffer : public std::streambuf {
public:
  explicit PackedBuffer(const std::string& path) : m_file(path), m_buffer(bytesAtOnce) {}

protected:
  int_type underflow() override {
    const std::size_t count = m_file.Read(m_buffer);
    char* begin = m_buffer.data();
    setg(begin, begin, begin + count);
    return count > 0 ? traits_type::to_int_type(*begin) : traits_type::eof();
  }
  pos_type seekpos(pos_type position, std::ios::openmode) override {
    setg(nullptr, nullptr, nullptr);
    return m_file.Seek(static_cast<long long>(position)) ? position : pos_type(off_type(-1));
  }

private:
  PackedFile m_file;
  std::vector<char> m_buffer;
};

class PackedText : public std::istream {
public:
  explicit PackedText(const std::string& path) : std::istream(nullptr), m_buffer(path) {
    rdbuf(&m_buffer);
  }

private:
  PackedBuffer m_buffer;
};

} // namespace

std::unique_ptr<std::istream> OpenText(const std::string& path) {
  if (IsPacked(path)) return std::make_unique<PackedText>(path);
  return std::make_unique<std::ifstream>(path, std::ios::binary);
}

std::string MeasureText(const std::string& path, long long& bytes) {
  bytes = 0;
  if (!IsPacked(path)) {
    std::error_code error;
    bytes = static_cast<long long>(std::filesystem::file_size(path, error));
    return error ? path + ": cannot be read" : "";
  }
  try {
    PackedFile file(path);
    std::vector<char> buffer(bytesAtOnce);
    while (const std::size_t count = file.Read(buffer))
      bytes += static_cast<long long>(count);
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "";
}

} // namespace VesTools
