#include "fileio/Confinement.h"

#include <fmt/format.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <initializer_list>
#include <memory>

#include "dsp/DataError.h"

#ifdef __has_feature
#define ZELK_HAS_FEATURE(name) __has_feature(name)
#else
#define ZELK_HAS_FEATURE(name) 0
#endif

// The address sanitizer reserves terabytes of addresses for its own use.
#if defined(__SANITIZE_ADDRESS__) || ZELK_HAS_FEATURE(address_sanitizer)
constexpr bool ADDRESSES_ARE_COUNTED = false;
#else
constexpr bool ADDRESSES_ARE_COUNTED = true;
#endif

namespace {

[[noreturn]] void failToConfine(int number) {
  throw DataError(fmt::format("its reader cannot be confined: {}, expected a system with seccomp",
                              std::strerror(number)));
}

void limitTo(__rlimit_resource resource, std::size_t most, std::size_t grace = 0) {
  rlimit limit{};
  getrlimit(resource, &limit);
  limit.rlim_max = std::min<rlim_t>(limit.rlim_max, most + grace);
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, most);
  if (setrlimit(resource, &limit) != 0) failToConfine(errno);
}

void limitResources(const ReaderLimits& limits) {
  // SIGXCPU first, which says why.
  limitTo(RLIMIT_CPU, ReaderLimits::HEAD_SECONDS, limits.seconds + 2 - ReaderLimits::HEAD_SECONDS);
  limitTo(RLIMIT_CORE, 0);
  limitTo(RLIMIT_NPROC, 0);
  limitTo(RLIMIT_NOFILE, 0);
  limitTo(RLIMIT_FSIZE, limits.answer);
  if (ADDRESSES_ARE_COUNTED) limitTo(RLIMIT_AS, limits.addressSpace);
}

void filterSystemCalls(int answer) {
  const std::unique_ptr<void, void (*)(scmp_filter_ctx)> filter(seccomp_init(SCMP_ACT_ERRNO(EPERM)),
                                                                seccomp_release);
  if (!filter) failToConfine(ENOSYS);
  const auto allow = [&filter](int call, std::initializer_list<scmp_arg_cmp> arguments = {}) {
    const int status =
        seccomp_rule_add_array(filter.get(), SCMP_ACT_ALLOW, call,
                               static_cast<unsigned>(arguments.size()), arguments.begin());
    if (status != 0) failToConfine(-status);
  };
  // Memory that can be executed is none of what reading needs.
  const scmp_arg_cmp noCode = {2, SCMP_CMP_MASKED_EQ, PROT_EXEC, 0};
  const scmp_arg_cmp onAnswer = {0, SCMP_CMP_EQ, static_cast<scmp_datum_t>(answer), 0};
  // Names that this processor's system lacks (those of 32 bits) are passed over by the library.
  for (const int call : {SCMP_SYS(mmap), SCMP_SYS(mmap2), SCMP_SYS(mprotect)}) {
    allow(call, {noCode});
  }
  for (const int call : {SCMP_SYS(ftruncate), SCMP_SYS(ftruncate64)}) allow(call, {onAnswer});
  for (const int call :
       {SCMP_SYS(munmap), SCMP_SYS(mremap), SCMP_SYS(brk), SCMP_SYS(madvise), SCMP_SYS(futex),
        SCMP_SYS(rt_sigreturn), SCMP_SYS(sigaltstack), SCMP_SYS(exit), SCMP_SYS(exit_group)}) {
    allow(call);
  }
  allow(SCMP_SYS(prlimit64), {{0, SCMP_CMP_EQ, 0, 0}, {1, SCMP_CMP_EQ, RLIMIT_CPU, 0}});
  const int status = seccomp_load(filter.get());
  if (status != 0) failToConfine(-status);
}

}  // namespace

void confine(const ReaderLimits& limits, int answer) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) failToConfine(errno);
  limitResources(limits);
  filterSystemCalls(answer);
}

void allowResponses(std::size_t bytes) {
  rlimit limit{};
  getrlimit(RLIMIT_CPU, &limit);
  limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, ReaderLimits::secondsFor(bytes));
  setrlimit(RLIMIT_CPU, &limit);
}
