// SPDX-License-Identifier: GPL-2.0-only
#include "formats/block_codec.h"
#include "formats/block_codec_lanes.h"

namespace zelk {

constinit const SBlockCodecs kAvx2Codecs = kLanesCodecs;

}  // namespace zelk
