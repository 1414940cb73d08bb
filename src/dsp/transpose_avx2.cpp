// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/transpose_lanes.h"

namespace zelk {

constinit const STurning kTurningAvx2{turning::RowsToBlocks, turning::BlocksToRows, turning::FindSteady};

}  // namespace zelk
