// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "phone/json_line.h"
#include "phone/phone_error.h"
#include "phone/progress.h"
#include "phone/speaker.h"

namespace phone {

// What the program says on standard output: lines for a person, or one JSON object a line. When standard output takes
// no more, the program is asked to stop and the rest is dropped.
// Thread: main.
class CReport : public ISpeaker {
 public:
  explicit CReport(bool asJson) : json(asJson) {}

  // A line for a person alone.
  void Text(const std::string& text);
  // The live line of a terminal; see CProgress.
  void Status(const std::string& text);
  bool Live() const { return !json && progress.Live(); }
  bool AsJson() const { return json; }

  // The first line of --json.
  void Hello(const std::string& command);
  // The last one.
  void End(EExit code, const std::string& message);
  // Its reader has gone: nobody is told more.
  bool Closed() const { return closed && !failed; }
  // Standard output was lost for another reason.
  bool Failed() const { return failed; }

 protected:
  void Tell(const char* type, const std::string& text, const Json& fields, UtcTime time) override;

 private:
  void Check();

  const bool json;
  bool closed = false;
  bool failed = false;
  CProgress progress;
};

}  // namespace phone
