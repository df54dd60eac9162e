#include "live/SlotMap.h"

#include <algorithm>
#include <cstddef>

namespace Live {

namespace {

bool contains(std::span<const int> ids, int id) {
  return std::find(ids.begin(), ids.end(), id) != ids.end();
}

}  // namespace

SlotMap::SlotMap(int slotCount) : slots(static_cast<std::size_t>(slotCount)) {}

const std::vector<SlotChange>& SlotMap::update(std::span<const int> ids) {
  ++updates;
  changes.clear();
  release(ids);
  for (const int id : ids) {
    if (slotOf(id) == SlotChange::NO_SLOT) assign(id);
  }
  for (Slot& slot : slots) {
    if (slot.isTaken) slot.lastUpdate = updates;
  }
  return changes;
}

int SlotMap::slotOf(int id) const {
  for (std::size_t i = 0; i < slots.size(); ++i) {
    if (slots[i].isTaken && slots[i].id == id) return static_cast<int>(i);
  }
  return SlotChange::NO_SLOT;
}

/// Frees the slots of sources that sound no longer, and forgets those that waited for one.
void SlotMap::release(std::span<const int> ids) {
  for (std::size_t i = 0; i < slots.size(); ++i) {
    if (!slots[i].isTaken || contains(ids, slots[i].id)) continue;
    slots[i].isTaken = false;
    changes.push_back({slots[i].id, static_cast<int>(i), false});
  }
  std::erase_if(waiting, [&](int id) {
    if (contains(ids, id)) return false;
    changes.push_back({id, SlotChange::NO_SLOT, false});
    return true;
  });
}

/// Gives a source without a slot one, or lets it wait.
void SlotMap::assign(int id) {
  const int slot = freeSlotFor(id);
  const auto waits = std::find(waiting.begin(), waiting.end(), id);
  if (slot == SlotChange::NO_SLOT) {
    if (waits != waiting.end()) return;
    waiting.push_back(id);
  } else {
    if (waits != waiting.end()) waiting.erase(waits);
    Slot& chosen = slots[static_cast<std::size_t>(slot)];
    chosen.id = id;
    chosen.isTaken = true;
  }
  changes.push_back({id, slot, true});
}

int SlotMap::freeSlotFor(int id) const {
  int best = SlotChange::NO_SLOT;
  for (std::size_t i = 0; i < slots.size(); ++i) {
    const Slot& slot = slots[i];
    if (slot.isTaken) continue;
    if (slot.lastUpdate > 0 && slot.id == id) return static_cast<int>(i);
    if (best == SlotChange::NO_SLOT ||
        slot.lastUpdate < slots[static_cast<std::size_t>(best)].lastUpdate) {
      best = static_cast<int>(i);
    }
  }
  return best;
}

}  // namespace Live
