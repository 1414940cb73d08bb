// SPDX-License-Identifier: GPL-2.0-only
#include "cardsim/scenario/builtins.h"

#include <algorithm>
#include <array>

namespace cardsim {
namespace {

constexpr std::array<SBuiltIn, 7> kBuiltIns{{
    {"caller", "a caller who waits for the answer, sends digits and hangs up", R"([[call]]
name = "caller"
steps = [ {expect = "CONNECT", within = "10s"}, {digits = "42#"}, {hangup = 16}, {expect = "RELEASE"} ]
)"},
    {"caller-stays", "a caller whose call the application ends", R"([[call]]
name = "caller stays"
steps = [ {expect = "CONNECT", within = "10s"}, {tone = 425, for = "500ms"},
          {expect = "DISCONNECT", cause = 16, within = "60s"} ]
)"},
    {"any-channel", "a caller whose SETUP leaves the choice of the channel to the application's library", R"([[call]]
name = "any channel"
timeslot = "any"
steps = [ {expect = "CALL PROCEEDING"}, {expect = "CONNECT", within = "10s"}, {hangup = 16}, {expect = "RELEASE"} ]
)"},
    {"gives-up", "a caller who gives up while it rings", R"([[call]]
name = "gives up"
steps = [ {wait = "200ms"}, {hangup = 16}, {expect = "RELEASE"} ]
)"},
    {"answers", "a called party that rings and answers; the application hangs up", R"([[call]]
name = "answers"
from = "library"
steps = [ {expect = "SETUP"}, {alert = true}, {wait = "100ms"}, {answer = true},
          {expect = "CONNECT ACKNOWLEDGE"}, {expect = "DISCONNECT", within = "60s"} ]
)"},
    {"busy", "a called party that is busy", R"([[call]]
name = "busy"
from = "library"
steps = [ {hangup = 17}, {expect = "RELEASE"} ]
)"},
    {"rings", "a called party that rings and never answers; the application gives up", R"([[call]]
name = "rings"
from = "library"
steps = [ {alert = true}, {expect = "DISCONNECT", within = "120s"} ]
)"},
}};

}  // namespace

std::span<const SBuiltIn> BuiltIns() {
  return kBuiltIns;
}

const SBuiltIn* FindBuiltIn(const std::string& name) {
  const auto found =
      std::find_if(kBuiltIns.begin(), kBuiltIns.end(), [&name](const SBuiltIn& each) { return each.name == name; });
  return found == kBuiltIns.end() ? nullptr : &*found;
}

}  // namespace cardsim
