#pragma once

#include <memory>
#include <string>

#include "BaseException.h"

/// Text of the framework exception that action throws; "" when it throws none.
template <class Action>
std::string thrownText(Action action) {
  try {
    action();
  } catch (FD::BaseException* e) {
    const std::unique_ptr<FD::BaseException> owner(e);
    return FD::describe(*e);
  }
  return "";
}
