// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace zelk {

// The rules of the Windows profile functions over a text in memory. Any bytes are allowed; none makes these fail.
// Thread: any; nothing is kept.
//
//   - A line ends at LF, CR LF or the end of the text; a UTF-8 byte-order mark at the beginning is skipped.
//   - A line whose first visible character is ; is a comment. [name] begins a section, a line without ] does not.
//   - Names are compared without regard to ASCII case, blanks around names and values are dropped.
//   - The first section of the name is searched and no other; in it the first line with the key counts.
//   - One pair of equal quotes, single or double, around a value is dropped; a zero byte ends a value.

// The value's text; nothing when the section or the key is missing.
std::optional<std::string_view> FindProfileValue(std::string_view text, std::string_view section, std::string_view key);

// The number at the beginning of a value, decimal with an optional sign, wrapped to 32 bits; 0 when there is none.
int32_t ProfileNumber(std::string_view value);

}  // namespace zelk
