#pragma once

#include <typeinfo>
#include <utility>

#include "Object.h"

namespace FD {
inline namespace zelk {

/// An object that holds one value of type T.
template <class T>
class GenericType : public Object {
 public:
  typedef T basicType;

  explicit GenericType(T v = T()) : value(std::move(v)) {}

  T& val() { return value; }
  const T& val() const { return value; }

 protected:
  T value;
};

/// The own type of an object; null for no object.
inline const std::type_info* typeOf(const Object* object) {
  return object ? &typeid(*object) : nullptr;
}

/// The object behind ref as a T. Throws new CastException<T> when it is something else.
template <class T>
T& object_cast(const ObjectRef& ref) {
  if (T* const object = dynamic_cast<T*>(ref.get())) return *object;
  throw new CastException<T>(typeOf(ref.get()));
}

/// The value inside the GenericType<T> behind ref, such as dereference_cast<int> of an Int.
/// Throws new CastException<T> when it is something else.
template <class T>
T& dereference_cast(const ObjectRef& ref) {
  if (auto* const holder = dynamic_cast<GenericType<T>*>(ref.get())) return holder->val();
  throw new CastException<T>(typeOf(ref.get()));
}

}  // namespace zelk
}  // namespace FD
