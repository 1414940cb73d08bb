// SPDX-License-Identifier: GPL-2.0-only
#include "dsp/dtmf_lanes.h"

namespace zelk {

constinit const SDtmfFilters kDtmfFiltersAvx2{vectors::kLanes, vectors::RunLanes, vectors::Glance, vectors::LoudestOf};

}  // namespace zelk
