#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "rc_ptrs.h"

namespace FD {
inline namespace zelk {

class Object;
typedef RCPtr<Object> ObjectRef;

/// Base of everything that travels through a network.
///
/// Objects live on the heap and count their references: the count starts at 1, which belongs to
/// whoever made the object (normally at once to an RCPtr). Counts are not synchronised: a network
/// and its objects stay on one thread.
class Object {
 public:
  Object() = default;
  /// A copy is an object of its own: it starts at a count of 1, and assignment leaves counts alone.
  Object(const Object&) {}
  Object& operator=(const Object&) { return *this; }
  virtual ~Object() = default;

  void ref() { ++references; }
  /// At zero the object is gone.
  void unref() {
    if (--references == 0) destroy();
  }
  /// Ends the object's life; called when nothing refers to it any more.
  virtual void destroy() { delete this; }

  /// Writes the object as text, "<Type value >", without an end of line.
  virtual void printOn(std::ostream& out) const = 0;

  /// True for the object that stands for "nothing" (nilObject).
  virtual bool isNil() const { return false; }

  virtual std::string className() const { return typeName(typeid(*this)); }

  /// A copy of the object. Throws new GeneralException for types that cannot be copied.
  virtual ObjectRef clone();

  struct ModuleVersion {
    std::string name;
    std::string extra;
    std::string version;
  };

  /// Records a loaded plug-in module; called by its static initialisers. Returns how many are
  /// known.
  static int setModuleVersion(const std::string& name, const std::string& extra,
                              const std::string& version);
  /// The modules recorded so far, in order of loading.
  static const std::vector<ModuleVersion>& getModuleVersions();

 private:
  int references = 1;
};

inline std::ostream& operator<<(std::ostream& out, const Object& object) {
  object.printOn(out);
  return out;
}

/// Stands for "no value" where an object is needed.
extern ObjectRef nilObject;

}  // namespace zelk
}  // namespace FD
