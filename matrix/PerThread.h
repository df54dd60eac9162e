#pragma once

#include <memory>

namespace BF {

/// The calling thread's own T, whose storage is kept between calls. It lies on the heap, so that
/// its address is looked up once: that of a thread_local object itself would be, in a shared
/// library, wherever one of its members is used.
template <class T>
T& perThread() {
  thread_local const std::unique_ptr<T> object = std::make_unique<T>();
  return *object;
}

}  // namespace BF
