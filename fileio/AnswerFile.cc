#include "fileio/AnswerFile.h"

#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "dsp/DataError.h"

namespace {

/// Maps a memory file, brought to the size of the answer, for writing.
std::byte* mapped(int descriptor, std::size_t size) {
  if (ftruncate(descriptor, static_cast<off_t>(size)) != 0) {
    if (errno != EFBIG) throw std::bad_alloc();
    throw DataError(
        fmt::format("its reader may make no file of {} bytes, expected a larger limit of file "
                    "sizes (ulimit -f)",
                    size));
  }
  void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  return static_cast<std::byte*>(memory);
}

}  // namespace

void writeAnswer(int descriptor, const SofaParser& parser, bool withResponses) {
  std::string text;
  for (const std::string& warning : parser.warnings()) text += warning + "\n";
  AnswerHead head = parser.head(withResponses ? AnswerState::RESPONSES : AnswerState::HEAD);
  head.textBytes = text.size();
  const AnswerLayout layout = layoutOf(head).value();  // the parser has checked that there is one
  std::byte* answer = mapped(descriptor, layout.size);
  const auto put = [answer](std::size_t at, const auto& items) {
    std::memcpy(answer + at, items.data(), items.size() * sizeof(items[0]));
  };
  put(layout.sources, parser.sourcePositions());
  put(layout.microphones, parser.receiverPositions());
  put(layout.text, text);
  if (withResponses) {
    parser.readResponses(reinterpret_cast<float*>(answer + layout.values),
                         reinterpret_cast<double*>(answer + layout.delays));
  }
  std::memcpy(answer, &head, sizeof head);
  munmap(answer, layout.size);
}

void writeRefusal(int descriptor, AnswerState state, const std::string& text) {
  AnswerHead head;
  head.state = state;
  head.textBytes = text.size();
  std::byte* answer = mapped(descriptor, sizeof head + text.size());
  std::memcpy(answer + sizeof head, text.data(), text.size());
  std::memcpy(answer, &head, sizeof head);
}
