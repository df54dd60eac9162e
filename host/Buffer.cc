#include "Buffer.h"

#include <utility>

namespace FD {
inline namespace zelk {

Buffer::Buffer(std::size_t size) : objects(size, nilObject), valid(size, 0) {}

ObjectRef& Buffer::operator[](int count) {
  if (!isHeld(count)) {
    throw new BufferException("Count has left the buffer", count, newest, objects.size());
  }
  if (count - static_cast<long>(objects.size()) >= newest) {
    objects.assign(objects.size(), nilObject);
    valid.assign(valid.size(), 0);
    newest = count;
  }
  while (newest < count) {
    ++newest;
    objects[slot(newest)] = nilObject;
    valid[slot(newest)] = 0;
  }
  valid[slot(count)] = 1;
  return objects[slot(count)];
}

const ObjectRef& Buffer::get(int count) const {
  if (!isValid(count)) {
    throw new BufferException("Count is not in the buffer", count, newest, objects.size());
  }
  return objects[slot(count)];
}

void Buffer::printOn(std::ostream& out) const {
  out << "<Buffer " << objects.size();
  for (long count = newest - static_cast<long>(objects.size()) + 1; count <= newest; ++count) {
    const int c = static_cast<int>(count);
    if (isValid(c)) out << " (" << c << ", " << get(c) << ")";
  }
  out << " >";
}

BufferException::BufferException(std::string text, int asked, int newestCount, std::size_t length)
    : message(std::move(text)), count(asked), newest(newestCount), size(length) {}

void BufferException::print(std::ostream& out) {
  out << message << ": count " << count << ", newest " << newest << ", length " << size << "\n";
}

}  // namespace zelk
}  // namespace FD
