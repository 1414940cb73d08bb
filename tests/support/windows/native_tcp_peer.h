// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include "support/tcp_peer.h"
