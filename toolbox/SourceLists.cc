#include "SourceLists.h"

#include <memory>

FD::ObjectRef sourceList(const std::vector<Audio::PlacedSource>& placed) {
  auto list = std::make_unique<SourceList>();
  for (const Audio::PlacedSource& entry : placed) {
    auto* source = new FD::Source;
    list->push_back(FD::ObjectRef(source));
    source->id = entry.id;
    source->x = static_cast<float>(entry.position.x);
    source->y = static_cast<float>(entry.position.y);
    source->z = static_cast<float>(entry.position.z);
  }
  return FD::ObjectRef(list.release());
}
