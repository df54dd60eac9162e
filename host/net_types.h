#pragma once

#include <string>

#include "ObjectRef.h"

namespace FD {
inline namespace zelk {

/// A number, truth value or character as an object.
template <class T>
class NetCType : public GenericType<T> {
 public:
  explicit NetCType(T v = T()) : GenericType<T>(v) {}

  /// A new object, to be adopted by an ObjectRef.
  static NetCType* alloc(T v) { return new NetCType(v); }

  void printOn(std::ostream& out) const override;
  ObjectRef clone() override { return ObjectRef(new NetCType(*this)); }
};

typedef NetCType<int> Int;
typedef NetCType<float> Float;
typedef NetCType<double> Double;
typedef NetCType<bool> Bool;
typedef NetCType<char> Char;

extern template class NetCType<int>;
extern template class NetCType<float>;
extern template class NetCType<double>;
extern template class NetCType<bool>;
extern template class NetCType<char>;

/// A text as an object.
class String : public std::string, public Object {
 public:
  String() = default;
  explicit String(const std::string& text) : std::string(text) {}
  explicit String(const char* text) : std::string(text) {}

  void printOn(std::ostream& out) const override;
  ObjectRef clone() override { return ObjectRef(new String(*this)); }
};

extern ObjectRef TrueObject;
extern ObjectRef FalseObject;

}  // namespace zelk
}  // namespace FD
