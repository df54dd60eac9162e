#pragma once

#include <optional>

#include "BaseException.h"
#include "Node.h"

namespace FD {
inline namespace zelk {

/// Notes, while a framework exception passes on its way up, the innermost node and count it came
/// from; a note already made stays.
void noteFault(BaseException* e, const Node& node, int count);

/// The same for the C++ exception being handled (call it inside `catch (...)` and rethrow).
void noteCurrentFault(const Node& node, int count);

/// The note about the C++ exception being handled, if any node made one; removes it.
std::optional<FaultOrigin> takeCurrentFault();

}  // namespace zelk
}  // namespace FD
