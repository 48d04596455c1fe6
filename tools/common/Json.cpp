#include "Json.h"

#include <cmath>
#include <cstdio>
#include <ctime>

#include "Text.h"

namespace vosh {

namespace {

void AppendField(std::string& out, std::string_view name, const std::string& value) {
  if (out.back() != '{') out += ',';
  out += JsonString(name) + ':' + value;
}

template <typename Items, typename Convert>
std::string JsonArray(const Items& items, Convert convert) {
  std::string out = "[";
  for (const auto& item : items) {
    if (out.size() > 1) out += ',';
    out += convert(item);
  }
  return out + ']';
}

// One decimal, whatever the locale.
std::string JsonRate(double perSecond) {
  const auto tenths = std::llround(perSecond * 10);
  return std::to_string(tenths / 10) + '.' + std::to_string(tenths % 10);
}

std::string JsonTime(std::chrono::system_clock::time_point time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char text[32];
  return JsonString({text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc)});
}

std::string JsonPort(const PortStatus& port) {
  std::string out = "{";
  AppendField(out, "direction", port.output ? "\"out\"" : "\"in\"");
  AppendField(out, "index", std::to_string(port.index));
  AppendField(out, "link", JsonString(port.link));
  AppendField(out, "rate", std::to_string(port.rate));
  AppendField(out, "format", JsonString(port.format));
  AppendField(out, "channels", std::to_string(port.channels));
  AppendField(out, "samplesPerFrame", std::to_string(port.samplesPerFrame));
  AppendField(out, "timestampMicroseconds",
              port.timestamp < 0 ? "null" : std::to_string(port.timestamp));
  return out + '}';
}

std::string JsonBlock(const BlockStatus& block) {
  std::string out = "{";
  AppendField(out, "name", JsonString(block.name));
  AppendField(out, "ports", JsonArray(block.ports, JsonPort));
  return out + '}';
}

void AppendActivity(std::string& out, const RouteActivity* activity) {
  AppendField(out, "okFramesPerSecond", activity ? JsonRate(activity->okPerSecond) : "null");
  AppendField(out, "errorFramesPerSecond", activity ? JsonRate(activity->errorsPerSecond) : "null");
  AppendField(out, "stillSince",
              activity && activity->stillSince ? JsonTime(*activity->stillSince) : "null");
}

std::string JsonFifo(const FifoStatus& fifo) {
  std::string out = "{";
  AppendField(out, "name", JsonString(fifo.name));
  AppendField(out, "fill", std::to_string(fifo.fill));
  AppendField(out, "capacity", std::to_string(fifo.capacity));
  AppendField(out, "percent", std::to_string(fifo.percent));
  return out + '}';
}

}  // namespace

std::string JsonString(std::string_view text) {
  std::string out = "\"";
  while (!text.empty()) {
    const std::size_t valid = Utf8Length(text);
    const auto first = static_cast<unsigned char>(text[0]);
    if (valid == 0) {
      out += "\xEF\xBF\xBD";
    } else if (first < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04x", first);
      out += escape;
    } else {
      if (first == '"' || first == '\\') out += '\\';
      out += text.substr(0, valid);
    }
    text.remove_prefix(valid == 0 ? 1 : valid);
  }
  return out + '"';
}

std::string ToJson(const StatusReport& report,
                   const std::map<std::string, RouteActivity>* activity) {
  const auto jsonRoute = [activity](const RouteStatus& route) {
    std::string out = "{";
    AppendField(out, "name", JsonString(route.name));
    AppendField(out, "state", JsonString(route.state));
    AppendField(out, "okFrames", std::to_string(route.okFrames));
    AppendField(out, "errorFrames", std::to_string(route.errorFrames));
    if (activity) {
      const auto known = activity->find(route.name);
      AppendActivity(out, known == activity->end() ? nullptr : &known->second);
    }
    AppendField(out, "blocks", JsonArray(route.blocks, JsonBlock));
    return out + '}';
  };
  std::string out = "{";
  AppendField(out, "routes", JsonArray(report.routes, jsonRoute));
  AppendField(out, "fifos", JsonArray(report.fifos, JsonFifo));
  return out + "}\n";
}

}  // namespace vosh
