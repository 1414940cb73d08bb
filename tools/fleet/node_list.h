// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <vector>

#include "fleet/link.h"
#include "fleet/names.h"
#include "phone/json_line.h"

namespace fleet {

using phone::Json;

// The entries of all hosts that live. Throws CLinkError.
std::vector<Json> ReadNodes(CLink& link, const SNames& names);

}  // namespace fleet
