#pragma once

#include <span>
#include <vector>

namespace Live {

/// That a source is heard at a slot from now on, or no longer.
struct SlotChange {
  static constexpr int NO_SLOT = -1;

  int id = 0;           ///< of the source
  int slot = NO_SLOT;   ///< from 0; NO_SLOT: all are taken
  bool begins = false;  ///< false: the source is over, or no longer without a slot
};

/// Which of a fixed number of slots plays which source. A source keeps its slot as long as it
/// sounds. One that comes back gets its slot again unless another source took it; any other gets
/// the slot that has been free for longest. Without a free one it waits for the next.
class SlotMap {
 public:
  /// slotCount: 1 or more.
  explicit SlotMap(int slotCount);

  int size() const { return static_cast<int>(slots.size()); }

  /// Which sources sound from now on, each id once. Returns what that changes, what ends before
  /// what begins; valid until the next call.
  const std::vector<SlotChange>& update(std::span<const int> ids);

  /// The slot of a source that sounds; NO_SLOT without one.
  int slotOf(int id) const;

 private:
  struct Slot {
    int id = 0;  // of the source that has it or had it last
    bool isTaken = false;
    long lastUpdate = 0;  // in which a source had it; 0: none yet
  };

  int freeSlotFor(int id) const;
  void release(std::span<const int> ids);
  void assign(int id);

  std::vector<Slot> slots;
  std::vector<int> waiting;  // sources without a slot
  std::vector<SlotChange> changes;
  long updates = 0;
};

}  // namespace Live
