#pragma once

/// To be included before <hwy/foreach_target.h>. Vectors stand in structures here, so their size is
/// to be known when the code is compiled.
#define HWY_DISABLED_TARGETS (HWY_SVE | HWY_SVE2 | HWY_SVE_256 | HWY_SVE2_128 | HWY_RVV)
