#include "Object.h"

#include "net_types.h"

namespace FD {
inline namespace zelk {

namespace {

class NilObject : public Object {
 public:
  void printOn(std::ostream& out) const override { out << "<NilObject >"; }
  bool isNil() const override { return true; }
};

std::vector<Object::ModuleVersion>& moduleVersions() {
  static std::vector<Object::ModuleVersion> modules;
  return modules;
}

const char* nameOf(int) { return "Int"; }
const char* nameOf(float) { return "Float"; }
const char* nameOf(double) { return "Double"; }
const char* nameOf(bool) { return "Bool"; }
const char* nameOf(char) { return "Char"; }

}  // namespace

ObjectRef nilObject(new NilObject);
ObjectRef TrueObject(new Bool(true));
ObjectRef FalseObject(new Bool(false));

ObjectRef Object::clone() {
  throw new GeneralException(className() + " cannot be cloned", "Object.cc", __LINE__);
}

int Object::setModuleVersion(const std::string& name, const std::string& extra,
                             const std::string& version) {
  moduleVersions().push_back({name, extra, version});
  return static_cast<int>(moduleVersions().size());
}

const std::vector<Object::ModuleVersion>& Object::getModuleVersions() { return moduleVersions(); }

template <class T>
void NetCType<T>::printOn(std::ostream& out) const {
  const std::ios_base::fmtflags flags = out.setf(std::ios_base::boolalpha);
  out << "<" << nameOf(T()) << " " << this->value << " >";
  out.flags(flags);
}

template class NetCType<int>;
template class NetCType<float>;
template class NetCType<double>;
template class NetCType<bool>;
template class NetCType<char>;

void String::printOn(std::ostream& out) const {
  out << "<String " << static_cast<const std::string&>(*this) << " >";
}

}  // namespace zelk
}  // namespace FD
