#include "ToolboxNode.h"

std::set<int> ToolboxNode::pullIds(const char* inputName, int count) {
  const FD::ObjectRef list = pull(inputName, count);
  std::set<int> ids;
  for (const FD::ObjectRef& source : FD::object_cast<SourceList>(list)) {
    ids.insert(FD::object_cast<FD::Source>(source).id);
  }
  return ids;
}
