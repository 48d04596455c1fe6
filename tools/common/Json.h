// The status report as JSON, for programs.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "Activity.h"
#include "StatusReport.h"

namespace vosh {

/// A JSON string literal. Bytes that are no UTF-8 become U+FFFD.
std::string JsonString(std::string_view text);

/// The report as one JSON object on one line. With `activity`, routes carry their frames per second
/// and, standing still, the time since when; a route that it does not know has null there.
std::string ToJson(const StatusReport& report,
                   const std::map<std::string, RouteActivity>* activity = nullptr);

}  // namespace vosh
