#pragma once

#include <ostream>
#include <typeinfo>
#include <utility>

#include "BaseException.h"

namespace FD {
inline namespace zelk {

/// Shared owner of an object that counts its own references (see Object).
///
/// Made from a plain pointer it adopts it: the object starts with a count of 1, and that one
/// reference becomes this pointer's. Copies count one more each.
template <class X>
class RCPtr {
 public:
  explicit RCPtr(X* p = nullptr) : pointer(p) {}

  RCPtr(const RCPtr& other) : pointer(other.pointer) { acquire(); }

  /// Conversion between pointer types goes by the object's own type. A null pointer converts to
  /// null. Throws new CastException<X> when the object is no X.
  template <class Z>
  RCPtr(const RCPtr<Z>& other) : pointer(converted(other.get())) {
    acquire();
  }

  RCPtr& operator=(const RCPtr& other) {  // NOLINT: safe for itself, by the copy
    RCPtr copy(other);
    std::swap(pointer, copy.pointer);
    return *this;
  }

  template <class Z>
  RCPtr& operator=(const RCPtr<Z>& other) {
    RCPtr copy(other);
    std::swap(pointer, copy.pointer);
    return *this;
  }

  // The linter does not follow the counts.
  // NOLINTBEGIN(clang-analyzer-cplusplus.NewDelete)
  ~RCPtr() {
    if (pointer) pointer->unref();
  }

  X& operator*() const { return *pointer; }
  X* operator->() const { return pointer; }
  X* get() const { return pointer; }
  // NOLINTEND(clang-analyzer-cplusplus.NewDelete)
  bool isNil() const { return pointer == nullptr; }

 private:
  template <class Z>
  static X* converted(Z* other) {
    X* const result = dynamic_cast<X*>(other);
    if (other && !result) throw new CastException<X>(&typeid(*other));
    return result;
  }

  void acquire() {
    if (pointer) pointer->ref();
  }

  X* pointer;
};

template <class X>
std::ostream& operator<<(std::ostream& out, const RCPtr<X>& p) {
  if (p.isNil()) return out << "<null>";
  p->printOn(out);
  return out;
}

}  // namespace zelk
}  // namespace FD
