#pragma once

#include <atomic>

/// Allocations of the whole program so far.
extern std::atomic<long> allocations;

/// While armed, allocations count down to the one that fails; below zero none does.
extern std::atomic<bool> isArmed;
extern long untilFailure;
