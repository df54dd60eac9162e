#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "BaseException.h"
#include "ObjectRef.h"

namespace FD {
inline namespace zelk {

/// The last few results of one output of a node: a rotating buffer of objects, indexed by count.
/// Of all counts it keeps the newest one written and the size − 1 before it.
class Buffer : public Object {
 public:
  explicit Buffer(std::size_t size);

  /// The place to write the object of this count, which is valid from then on. A count beyond the
  /// newest moves the buffer on. Throws new BufferException for a count that has rotated out, or a
  /// negative one.
  ObjectRef& operator[](int count);

  /// The object of this count. Throws new BufferException unless it is valid.
  const ObjectRef& get(int count) const;

  /// Whether this count was written and is still held.
  bool isValid(int count) const {
    return isHeld(count) && count <= newest && valid[slot(count)] != 0;
  }

  void printOn(std::ostream& out) const override;

 private:
  bool isHeld(int count) const {
    return count >= 0 && count > newest - static_cast<long>(objects.size());
  }
  std::size_t slot(int count) const { return static_cast<std::size_t>(count) % objects.size(); }

  std::vector<ObjectRef> objects;
  std::vector<char> valid;
  int newest = -1;
};

/// A buffer was asked for a count that it does not hold.
class BufferException : public BaseException {
 public:
  /// newest: the newest count in the buffer, -1 when it is empty; size: how many it holds.
  BufferException(std::string text, int count, int newest, std::size_t size);
  void print(std::ostream& out = std::cerr) override;

 private:
  std::string message;
  int count;
  int newest;
  std::size_t size;
};

}  // namespace zelk
}  // namespace FD
