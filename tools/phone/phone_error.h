// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <stdexcept>

namespace phone {

// Something the user has to be told, after which the program ends with a failure.
class CPhoneError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace phone
