#include "ParameterSet.h"

#include <utility>

namespace FD {
inline namespace zelk {

ObjectRef ParameterSet::get(const std::string& name) const {
  const auto found = entries.find(name);
  if (found == entries.end()) throw new ParameterException("Missing parameter", name, *this);
  found->second.used = true;
  return found->second.value;
}

ObjectRef ParameterSet::getDefault(const std::string& name, const ObjectRef& value) const {
  return exist(name) ? get(name) : value;
}

void ParameterSet::add(const std::string& name, const ObjectRef& value) {
  entries[name] = Entry{value};
}

void ParameterSet::checkUnused() const {
  for (const auto& [name, entry] : entries) {
    if (!entry.used) throw new ParameterException("Unused (unknown) parameter", name, *this);
  }
}

void ParameterSet::print(std::ostream& out) const {
  for (const auto& [name, entry] : entries) out << "  " << name << " = " << entry.value << "\n";
}

ParameterException::ParameterException(std::string text, std::string name, const ParameterSet& set)
    : message(std::move(text)), parameter(std::move(name)), parameters(set) {}

void ParameterException::print(std::ostream& out) {
  out << message << ": " << parameter << "\nGiven parameters:\n";
  parameters.print(out);
}

}  // namespace zelk
}  // namespace FD
