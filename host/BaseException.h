#pragma once

#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <typeinfo>
#include <vector>

// The inline namespace keeps this host's symbols apart from those of an installed FlowDesigner: no
// plug-in of the one can bind to the other, even where both are in one process.
namespace FD {
inline namespace zelk {

/// Readable name of a type, for messages: without the inline namespace.
std::string typeName(const std::type_info& type);

/// Where in a running network an exception came from.
struct FaultOrigin {
  std::string node;
  std::string type;
  int count;
};

/// Base of every framework exception. Framework exceptions are thrown as pointers
/// (`throw new GeneralException(…)`) and caught as `BaseException*`; whoever catches one and does
/// not throw it on owns it and deletes it.
class BaseException {
 public:
  BaseException() = default;
  BaseException(const BaseException&) = delete;
  BaseException& operator=(const BaseException&) = delete;
  virtual ~BaseException() = default;

  /// Writes the exception as one or more whole lines.
  virtual void print(std::ostream& out = std::cerr) = 0;

  /// Makes the exception independent of the objects it speaks of, before these go away.
  virtual void freeze() {}

  /// Chains e (adopted) behind this exception. Returns the exception to throw on, which owns both.
  virtual BaseException* add(BaseException* e);

  /// The host's note of the innermost node and count that failed; the first note stays.
  void noteOrigin(const FaultOrigin& place) {
    if (!origin) origin = place;
  }
  const std::optional<FaultOrigin>& getOrigin() const { return origin; }

 private:
  std::optional<FaultOrigin> origin;
};

/// The exception's own text, without the end of its last line.
std::string describe(BaseException& e);

/// A C++ exception's class and, where it has one of its own, its text.
std::string describe(const std::exception& e);

/// An exception and what was added to it on its way up, innermost first. Owns them all.
class ExceptionStack : public BaseException {
 public:
  /// Adopts e.
  explicit ExceptionStack(BaseException* e);

  void print(std::ostream& out = std::cerr) override;
  void freeze() override;
  BaseException* add(BaseException* e) override;

 private:
  std::vector<std::unique_ptr<BaseException>> stack;
};

/// A text and the source line that threw it.
class GeneralException : public BaseException {
 public:
  GeneralException(std::string text, std::string file, int line);
  void print(std::ostream& out = std::cerr) override;

 private:
  std::string message;
  std::string file;
  int line;
};

/// An object is not of the type that was asked for.
class GenericCastException : public BaseException {
 public:
  /// found: the type of the object; null when there was no object at all.
  GenericCastException(const std::type_info* found, const std::type_info& expected);
  void print(std::ostream& out = std::cerr) override;

 private:
  std::string found;
  std::string expected;
};

/// The same for one expected type T.
template <class T>
class CastException : public GenericCastException {
 public:
  explicit CastException(const std::type_info* type) : GenericCastException(type, typeid(T)) {}
};

}  // namespace zelk
}  // namespace FD
