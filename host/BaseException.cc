#include "BaseException.h"

#include <cxxabi.h>

#include <cstdlib>
#include <sstream>
#include <utility>

namespace FD {
inline namespace zelk {

std::string typeName(const std::type_info& type) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void*)> name(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
  std::string result = name ? name.get() : type.name();
  static const std::string OWN = "FD::zelk::";
  for (auto at = result.find(OWN); at != std::string::npos; at = result.find(OWN, at)) {
    result.replace(at, OWN.size(), "FD::");
  }
  return result;
}

BaseException* BaseException::add(BaseException* e) {
  BaseException* const chain = new ExceptionStack(this);
  return chain->add(e);
}

std::string describe(BaseException& e) {
  std::ostringstream text;
  e.print(text);
  std::string result = text.str();
  while (!result.empty() && result.back() == '\n') result.pop_back();
  return result;
}

std::string describe(const std::exception& e) {
  const std::string type = typeName(typeid(e));
  const std::string text = e.what();
  return text == std::exception().what() || text == type ? type : type + ": " + text;
}

ExceptionStack::ExceptionStack(BaseException* e) {
  stack.emplace_back(e);
  if (e->getOrigin()) noteOrigin(*e->getOrigin());
}

void ExceptionStack::print(std::ostream& out) {
  for (const auto& e : stack) e->print(out);
}

void ExceptionStack::freeze() {
  for (const auto& e : stack) e->freeze();
}

BaseException* ExceptionStack::add(BaseException* e) {
  stack.emplace_back(e);
  return this;
}

GeneralException::GeneralException(std::string text, std::string sourceFile, int sourceLine)
    : message(std::move(text)), file(std::move(sourceFile)), line(sourceLine) {}

void GeneralException::print(std::ostream& out) {
  out << file << ", line " << line << ": " << message << "\n";
}

GenericCastException::GenericCastException(const std::type_info* foundType,
                                           const std::type_info& expectedType)
    : found(foundType ? typeName(*foundType) : "no object"), expected(typeName(expectedType)) {}

void GenericCastException::print(std::ostream& out) {
  out << "Cast error: found " << found << ", expected " << expected << "\n";
}

}  // namespace zelk
}  // namespace FD
