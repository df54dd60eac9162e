#include "audio/SoundExtent.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>

namespace Audio {

namespace {

constexpr std::uint64_t OPEN_SIZE = 0xFFFFF000;  // 32-bit sizes from here on mean "not known"

constexpr int MAX_CHUNKS = 10000;

enum class Order { Little, Big };

/// The bytes of a file by their offset; those behind its end are 0.
class Bytes {
 public:
  explicit Bytes(const std::string& path)
      : count(std::filesystem::file_size(path)), file(path, std::ios::binary) {}

  std::uint64_t size() const { return count; }

  std::string text(std::uint64_t offset, std::size_t length) {
    std::string bytes(length, '\0');
    file.clear();
    file.seekg(static_cast<std::streamoff>(offset));
    file.read(bytes.data(), static_cast<std::streamsize>(length));
    return bytes;
  }

  std::uint64_t number(std::uint64_t offset, std::size_t length, Order order) {
    std::string bytes = text(offset, length);
    if (order == Order::Little) std::reverse(bytes.begin(), bytes.end());
    std::uint64_t value = 0;
    for (const char byte : bytes) value = value << 8 | static_cast<unsigned char>(byte);
    return value;
  }

  /// The extent of sound that begins at an offset, unless the size is left open.
  std::optional<SoundExtent> extent(std::uint64_t begin, std::uint64_t announced,
                                    std::uint64_t open) const {
    if (announced >= open) return std::nullopt;
    return SoundExtent{announced, count - std::min(begin, count)};
  }

 private:
  std::uint64_t count;
  std::ifstream file;
};

/// Sound in the chunk `wanted` of a file made of chunks: a name and a size of four bytes each, then
/// the content, padded to an even number of bytes.
std::optional<SoundExtent> extentInChunks(Bytes& bytes, const std::string& wanted, Order order) {
  std::optional<std::uint64_t> longSize;  // RF64 has the sound's size in a chunk before it
  std::uint64_t at = 12;
  for (int chunk = 0; chunk < MAX_CHUNKS && at + 8 <= bytes.size(); ++chunk) {
    const std::string name = bytes.text(at, 4);
    const std::uint64_t size = bytes.number(at + 4, 4, order);
    if (name == wanted && size == std::numeric_limits<std::uint32_t>::max() && longSize) {
      return bytes.extent(at + 8, *longSize, std::numeric_limits<std::int64_t>::max());
    }
    if (name == wanted) return bytes.extent(at + 8, size, OPEN_SIZE);
    if (name == "ds64") longSize = bytes.number(at + 16, 8, order);
    at += 8 + size + size % 2;
  }
  return std::nullopt;
}

}  // namespace

std::optional<SoundExtent> soundExtentOf(const std::string& path) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(path, error)) return std::nullopt;
  Bytes bytes(path);
  const std::string kind = bytes.text(0, 4);
  const std::string form = bytes.text(8, 4);
  if (kind == ".snd" || kind == "dns.") {
    const Order order = kind == ".snd" ? Order::Big : Order::Little;
    return bytes.extent(bytes.number(4, 4, order), bytes.number(8, 4, order), OPEN_SIZE);
  }
  if (form == "WAVE" && (kind == "RIFF" || kind == "RF64" || kind == "BW64")) {
    return extentInChunks(bytes, "data", Order::Little);
  }
  if (form == "WAVE" && kind == "RIFX") return extentInChunks(bytes, "data", Order::Big);
  if (form.starts_with("AIF") && kind == "FORM") return extentInChunks(bytes, "SSND", Order::Big);
  return std::nullopt;
}

}  // namespace Audio
