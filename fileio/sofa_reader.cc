// zelk-sofa-reader: reads one SOFA file for libzelkfileio.so, which starts it for every file, so
// that a file that breaks the netCDF or HDF5 library breaks a process that can do nothing.
//   zelk-sofa-reader head|all LIMIT
// Standard input is the file, descriptor 3 an empty memory file for the answer.
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>

#include "dsp/DataError.h"
#include "fileio/AnswerFile.h"
#include "fileio/Confinement.h"
#include "fileio/NcFile.h"
#include "fileio/SofaParser.h"

namespace {

constexpr int ANSWER = 3;

void answer(bool withResponses, std::size_t limit) {
  struct stat file {};
  if (fstat(STDIN_FILENO, &file) != 0) throw DataError("its reader did not get it");
  const auto size = static_cast<std::size_t>(file.st_size);
  if (size == 0) throw DataError("is not a readable netCDF file: it is empty");
  void* bytes = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, STDIN_FILENO, 0);
  if (bytes == MAP_FAILED) throw DataError(fmt::format("cannot be read: {}", std::strerror(errno)));
  confine({size, limit}, ANSWER);
  // Never closed: the libraries are not to tidy up what a hostile file left them with.
  const NcFile& netcdf = *new NcFile(bytes, size, limit);
  const SofaParser parser(netcdf, limit);
  if (withResponses) allowResponses(layoutOf(parser.head(AnswerState::RESPONSES)).value().size);
  writeAnswer(ANSWER, parser, withResponses);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fputs("usage: zelk-sofa-reader PART LIMIT, started by libzelkfileio.so\n", stderr);
    return 2;
  }
  std::signal(SIGXFSZ, SIG_IGN);  // an answer above the limit of file sizes gets a reason
  try {
    answer(std::strcmp(argv[1], "all") == 0, std::strtoull(argv[2], nullptr, 10));
  } catch (const std::bad_alloc&) {
    writeRefusal(ANSWER, AnswerState::OUT_OF_MEMORY, "");
  } catch (const std::exception& error) {
    writeRefusal(ANSWER, AnswerState::REFUSED, error.what());
  }
  _exit(0);  // without what the libraries would do at exit
}
