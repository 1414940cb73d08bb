// SPDX-License-Identifier: GPL-2.0-only
#pragma once

#include <string>

#include "trace/core/status_page.h"
#include "trace/program/board_view.h"

namespace trace {

// A status page that is live, for people, programs and Prometheus.
std::string PageText(const SStatusPage& page, Time now);
std::string PageJson(const SStatusPage& page, Time now);
std::string PageMetrics(const SStatusPage& page);
// One that is not: the object says why, and the gauge is 0.
std::string DeadPageJson(const SStatusPage& page, const std::string& why);
std::string DeadPageMetrics();

// A family of the text format that Prometheus collects; `values` has its lines. Empty without any.
std::string MetricFamily(const char* name, const char* type, const char* help, const std::string& values);

}  // namespace trace
