// SPDX-License-Identifier: GPL-2.0-only
#include "phone/hang_up_watch.h"

namespace phone {

bool CHangUpWatch::IsLost(bool isChannelInUse, Time now) {
  if (!isChannelInUse && !freed) {
    freed = now;
  }
  return freed ? now - *freed > kEventLimit : now - *begun > kConfirmLimit;
}

}  // namespace phone
