#include "StatusReport.h"

#include <algorithm>
#include <charconv>

namespace vosh {

namespace {

// Takes one piece after the other from the front of a line; false where the line has another shape.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest(text) {}

  bool Literal(std::string_view literal) {
    if (!rest.starts_with(literal)) return false;
    rest.remove_prefix(literal.size());
    return true;
  }

  template <typename Number>
  bool Value(Number& value) {
    SkipSpaces();
    const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), value);
    if (error != std::errc()) return false;
    rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
    return true;
  }

  bool UpTo(std::string_view mark, std::string_view& value) {
    const std::size_t at = rest.find(mark);
    if (at == std::string_view::npos) return false;
    value = rest.substr(0, at);
    rest.remove_prefix(at + mark.size());
    return true;
  }

  void SkipSpaces() { rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size())); }
  bool AtEnd() const { return rest.empty(); }

 private:
  std::string_view rest;
};

// Name and rate are columns of seven: a long name and a long rate touch.
bool ParseLinkAndRate(std::string_view text, PortStatus& port) {
  std::size_t split = text.find(' ');
  if (split == std::string_view::npos) split = text.size() < 7 ? 0 : text.size() - 7;
  port.link = text.substr(0, split);
  return Scanner(text.substr(split)).Value(port.rate) && split != 0;
}

bool ParsePort(std::string_view line, PortStatus& port) {
  Scanner scan(line);
  if (scan.Literal("\t\t(O")) {
    port.output = true;
  } else if (!scan.Literal("\t\t(I")) {
    return false;
  }
  std::string_view linkAndRate;
  std::string_view format;
  if (!scan.Value(port.index) || !scan.Literal(port.output ? ") --> " : ") <-- ") ||
      !scan.UpTo("Hz ", linkAndRate) || !ParseLinkAndRate(linkAndRate, port)) {
    return false;
  }
  scan.SkipSpaces();
  if (!scan.UpTo(" ", format) || !scan.Value(port.channels) || !scan.Literal("ch ") ||
      !scan.Value(port.samplesPerFrame) || !scan.Literal("samples/frame")) {
    return false;
  }
  port.format = format;
  std::int64_t seconds = 0;
  std::int64_t micros = 0;
  constexpr std::int64_t kMaxSeconds = INT64_MAX / 1000000 - 1;
  if (scan.Value(seconds) && scan.Literal(".") && scan.Value(micros) && seconds >= 0 &&
      seconds <= kMaxSeconds && micros >= 0 && micros < 1000000) {
    port.timestamp = seconds * 1000000 + micros;
  }
  return true;
}

bool ParseRoute(std::string_view line, RouteStatus& route) {
  Scanner scan(line);
  std::string_view name;
  std::string_view state;
  if (!scan.UpTo(" is ", name) || !scan.UpTo(", ", state) || !scan.Value(route.okFrames) ||
      !scan.Literal(" frame")) {
    return false;
  }
  scan.Literal("s");
  if (!scan.Literal(" processed OK, ") || !scan.Value(route.errorFrames) ||
      !scan.Literal(" error frame")) {
    return false;
  }
  route.name = name;
  route.state = state;
  return true;
}

bool ParseFifo(std::string_view line, FifoStatus& fifo) {
  Scanner scan(line);
  std::string_view name;
  if (!scan.UpTo(" ", name) || !scan.Value(fifo.fill) || !scan.Literal("/") ||
      !scan.Value(fifo.capacity) || !scan.Literal(" (") || !scan.Value(fifo.percent)) {
    return false;
  }
  fifo.name = name;
  return scan.Literal("%)") && scan.AtEnd();
}

void ParseLine(std::string_view line, StatusReport& report) {
  PortStatus port;
  RouteStatus route;
  FifoStatus fifo;
  const bool inRoute = !report.routes.empty();
  if (line.starts_with("\t\t")) {
    if (inRoute && !report.routes.back().blocks.empty() && ParsePort(line, port)) {
      report.routes.back().blocks.back().ports.push_back(port);
    }
  } else if (line.starts_with("\t")) {
    if (inRoute) report.routes.back().blocks.push_back({std::string(line.substr(1)), {}});
  } else if (ParseRoute(line, route)) {
    report.routes.push_back(route);
  } else if (ParseFifo(line, fifo)) {
    report.fifos.push_back(fifo);
  }
}

}  // namespace

const RouteStatus* StatusReport::Find(std::string_view route) const {
  const auto found = std::find_if(routes.begin(), routes.end(),
                                  [route](const RouteStatus& r) { return r.name == route; });
  return found == routes.end() ? nullptr : &*found;
}

StatusReport ParseStatus(std::string_view text) {
  StatusReport report;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    ParseLine(text.substr(0, end), report);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return report;
}

}  // namespace vosh
