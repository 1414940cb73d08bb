// SPDX-License-Identifier: GPL-2.0-only
#include "phone/line_splitter.h"

#include <utility>

namespace phone {

void CLineSplitter::Feed(std::string_view bytes, std::deque<SInputLine>& lines) {
  for (size_t end = bytes.find('\n'); end != std::string_view::npos; end = bytes.find('\n')) {
    Append(bytes.substr(0, end));
    Emit(lines);
    bytes.remove_prefix(end + 1);
  }
  Append(bytes);
}

void CLineSplitter::End(std::deque<SInputLine>& lines) {
  if (!current.text.empty() || current.isTooLong) {
    Emit(lines);
  }
}

void CLineSplitter::Append(std::string_view bytes) {
  if (current.isTooLong || current.text.size() + bytes.size() > kLongest) {
    current = {{}, true};
    return;
  }
  current.text += bytes;
}

void CLineSplitter::Emit(std::deque<SInputLine>& lines) {
  if (!current.text.empty() && current.text.back() == '\r') {
    current.text.pop_back();
  }
  lines.push_back(std::exchange(current, {}));
}

}  // namespace phone
