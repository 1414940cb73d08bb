// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string_view>

namespace zelk {

// What scanf's "%f" makes of a text, with the point as decimal sign whatever the application's locale says: leading
// white space, a sign, decimal or 0x notation, "inf" and "nan"; text after the number is ignored, a number beyond the
// range gives infinity, one below it 0. False, and the value stays as it is, when the text does not begin with a
// number. Thread: any.
bool ScanFloat(std::string_view text, float& value);

}  // namespace zelk
