#include "TopView.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "Text.h"

namespace vosh {

namespace {

constexpr std::size_t kBarWidth = 30;

template <typename... Values>
std::string Format(const char* format, Values... values) {
  char text[256];
  std::snprintf(text, sizeof text, format, values...);
  return text;
}

const char* OrderName(TopOrder order) {
  switch (order) {
    case TopOrder::STATE:
      return "state";
    case TopOrder::OK_FRAMES:
      return "frames";
    case TopOrder::ERRORS:
      return "errors";
    case TopOrder::NAME:
      break;
  }
  return "name";
}

std::string Title(const TopState& state) {
  const auto running =
      std::count_if(state.report.routes.begin(), state.report.routes.end(),
                    [](const RouteStatus& route) { return route.state == "RUNNING"; });
  return "vosh top " + ClockText(state.at) + (state.paused ? " PAUSED" : "") +
         Format("   routes %zu, running %ld   FIFOs %zu   every %g s   by %s",
                state.report.routes.size(), static_cast<long>(running), state.report.fifos.size(),
                state.interval, OrderName(state.order));
}

TopLine RouteLine(const TopState& state, const RouteStatus& route) {
  const auto known = state.activity.find(route.name);
  const RouteActivity* activity = known == state.activity.end() ? nullptr : &known->second;
  std::string text = Format("%-7s %-14s", route.name.c_str(), route.state.c_str());
  text += activity ? Format("%9.1f %8.1f", activity->okPerSecond, activity->errorsPerSecond)
                   : Format("%9s %8s", "-", "-");
  text += Format("%12llu %9llu", static_cast<unsigned long long>(route.okFrames),
                 static_cast<unsigned long long>(route.errorFrames));
  TopLine line{std::move(text)};
  if (activity && activity->stillSince) {
    line.text += "  still " + ClockText(*activity->stillSince);
    line.style = TopLine::ALARM;
  } else if (route.state == "BROKEN_RUNNING") {
    line.style = TopLine::ALARM;
  }
  if (route.name == state.selected) line.style = TopLine::SELECTED;
  return line;
}

// The far end of a link is the port of the same link on the other side.
std::string SinkOf(const RouteStatus& route, const std::string& link) {
  for (const BlockStatus& block : route.blocks) {
    for (const PortStatus& port : block.ports) {
      if (!port.output && port.link == link) return block.name + ":" + std::to_string(port.index);
    }
  }
  return "?";
}

void AppendBlocks(const RouteStatus& route, std::size_t width, std::vector<TopLine>& lines) {
  std::string names = " ";
  for (const BlockStatus& block : route.blocks) {
    const std::string name = Printable(block.name);
    if (names.size() > 1 && names.size() + 1 + name.size() > width) {
      lines.push_back({std::exchange(names, " ")});
    }
    names.append(" ").append(name);
  }
  if (names.size() > 1) lines.push_back({names});
}

void AppendLinks(const RouteStatus& route, std::vector<TopLine>& lines) {
  for (const BlockStatus& block : route.blocks) {
    for (const PortStatus& port : block.ports) {
      if (!port.output) continue;
      lines.push_back({"    " + port.link + "  " + block.name + ":" + std::to_string(port.index) +
                       " -> " + SinkOf(route, port.link) + "  " + std::to_string(port.rate) +
                       " Hz " + port.format + " " + std::to_string(port.channels) + " ch " +
                       std::to_string(port.samplesPerFrame) + " samples"});
    }
  }
}

TopLine FifoLine(const FifoStatus& fifo) {
  const std::int64_t percent = std::clamp<std::int64_t>(fifo.percent, 0, 100);
  std::string bar(kBarWidth, ' ');
  std::fill_n(bar.begin(), (static_cast<std::size_t>(percent) * kBarWidth + 50) / 100, '|');
  return {Format("%-9s [%s] %3lld%%  %lld/%lld", fifo.name.c_str(), bar.c_str(),
                 static_cast<long long>(percent), static_cast<long long>(fifo.fill),
                 static_cast<long long>(fifo.capacity))};
}

}  // namespace

TopOrder Next(TopOrder order) {
  return order == TopOrder::ERRORS ? TopOrder::NAME : TopOrder(static_cast<int>(order) + 1);
}

void SortRoutes(TopState& state) {
  const auto rate = [&state](const RouteStatus& route, double RouteActivity::*member) {
    const auto known = state.activity.find(route.name);
    return known == state.activity.end() ? 0.0 : known->second.*member;
  };
  const auto before = [&](const RouteStatus& a, const RouteStatus& b) {
    if (state.order == TopOrder::STATE && a.state != b.state) return a.state < b.state;
    if (state.order == TopOrder::OK_FRAMES) {
      const double ra = rate(a, &RouteActivity::okPerSecond);
      const double rb = rate(b, &RouteActivity::okPerSecond);
      if (ra != rb) return ra > rb;
    }
    if (state.order == TopOrder::ERRORS && a.errorFrames != b.errorFrames) {
      return a.errorFrames > b.errorFrames;
    }
    return a.name < b.name;
  };
  std::sort(state.report.routes.begin(), state.report.routes.end(), before);
}

std::vector<TopLine> RenderTop(const TopState& state, std::size_t width) {
  std::vector<TopLine> lines = {
      {Title(state), TopLine::TITLE},
      {Format("%-7s %-14s%9s %8s%12s %9s", "ROUTE", "STATE", "OK/s", "ERR/s", "OK", "ERRORS"),
       TopLine::HEADER}};
  if (state.report.routes.empty()) lines.push_back({"no route"});
  for (const RouteStatus& route : state.report.routes) {
    lines.push_back(RouteLine(state, route));
    AppendBlocks(route, width, lines);
    AppendLinks(route, lines);
  }
  if (!state.report.fifos.empty()) lines.push_back({"FIFO", TopLine::HEADER});
  for (const FifoStatus& fifo : state.report.fifos)
    lines.push_back(FifoLine(fifo));
  for (TopLine& line : lines)
    line.text = Clip(Printable(line.text), width);
  return lines;
}

}  // namespace vosh
