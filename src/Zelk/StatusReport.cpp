// The report of all routes and FIFOs, as text and as a graph for Graphviz.
#include <cstdarg>
#include <cstdio>
#include <string>

#include "Zelk/ZelkImpl.h"

namespace zelk {

namespace {

constexpr char WEB_ADDRESS[] = "https://example.org/zelk";

constexpr char BOX_STYLE[] =
    "node [shape=\"box\", style=\"filled\", color=\"black\", fillcolor=\"yellow\"]\n";
constexpr char EDGE_STYLE[] = "edge [color=\"blue\"]\n";

// A line of more than 255 characters is cut there.
[[gnu::format(printf, 2, 3)]] void AppendLine(std::string& text, const char* format, ...) {
  char line[256] = {};
  va_list values;
  va_start(values, format);
  std::vsnprintf(line, sizeof(line), format, values);
  va_end(values);
  text += line;
}

const char* Plural(unsigned long long count) {
  return count > 1 ? "s" : "";
}

void AppendEndpoint(std::string& text, char side, std::size_t index, const std::string& link,
                    const FrameBuffer& fb) {
  AppendLine(text, "\t\t(%c%02zu) %s %-7s%7uHz %8s %2uch %6ldsamples/frame", side, index,
             side == 'I' ? "<--" : "-->", link.c_str(), fb.rate, FormatToString(fb.format),
             fb.channels, fb.samplesPerFrame);
  if (fb.timestamp >= 0) {
    const long long time = fb.timestamp;
    AppendLine(text, " %13lld.%06lld", time / 1000000, time % 1000000);
  }
  text += '\n';
}

void AppendBlock(std::string& text, const BlockView& block) {
  AppendLine(text, "\t%s\n", block.name.c_str());
  for (const auto& link : block.ins)
    AppendEndpoint(text, 'I', link->inIndex, link->name, link->In());
  for (const auto& link : block.outs)
    AppendEndpoint(text, 'O', link->outIndex, link->name, link->Out());
}

void AppendNode(std::string& dot, const std::string& id, const std::string& name,
                const char* marker) {
  dot += "\t\t" + id + " [label=\"" + name + marker + "\"]\n";
}

// Both ends are written with every edge; Graphviz merges what is repeated.
void AppendEdge(std::string& dot, const std::string& route, const BlockView& source,
                const LinkView& link) {
  const std::string sourceId = route + "_" + source.name;
  const std::string sinkId = route + "_" + link.sinkName;
  AppendNode(dot, sourceId, source.name, source.isFirst ? "\\n(first)" : "");
  AppendNode(dot, sinkId, link.sinkName, link.sinkIsLast ? "\\n(last)" : "");
  dot += "\t\t" + sourceId + "->" + sinkId + " [label=\"" + link.name + "\\n" +
         std::to_string(link.rate) + "Hz\\n" + FormatToString(link.format) + "\\n" +
         std::to_string(link.channels) + "ch\", taillabel=\"" + std::to_string(link.outIndex) +
         "\", headlabel=\"" + std::to_string(link.inIndex) + "\"]\n";
}

void AppendRoute(std::string& text, std::string& dot, const RouteView& route) {
  const RouteStatus status = route.status.load(std::memory_order_relaxed);
  const unsigned long long ok = route.okFrames.load(std::memory_order_relaxed);
  const unsigned long long errors = route.errorFrames.load(std::memory_order_relaxed);
  AppendLine(text, "%s is %s, %llu frame%s processed OK, %llu error frame%s\n", route.name.c_str(),
             StatusName(status), ok, Plural(ok), errors, Plural(errors));
  dot += "\tsubgraph cluster_" + route.name + " {\n\t\tlabel=\"" + route.name + "\"\n\t\t" +
         BOX_STYLE + "\t\t" + EDGE_STYLE;
  const auto graph = route.Graph();
  for (const auto& block : graph->blocks) {
    AppendBlock(text, *block);
    for (const auto& link : block->outs)
      AppendEdge(dot, route.name, *block, *link);
  }
  dot += "\t}\n";
}

void AppendFifo(std::string& text, std::string& dot, const RingBuffer& fifo) {
  const auto [fill, capacity] = fifo.CurrentLevel();
  const long percent = capacity > 0 ? fill * 100 / capacity : 0;
  AppendLine(text, "%s %ld/%ld (%ld%%)\n", fifo.Name().c_str(), fill, capacity, percent);
  dot += "\t" + fifo.Name() +
         " [shape=\"ellipse\", style=\"filled\", color=\"black\", fillcolor=\"yellow\"]\n";
}

}  // namespace

void ZelkImpl::OnCommand_status(std::stringstream& args, std::string& reply) {
  reply = "Invalid argument\n";
  std::string text;
  std::string dot = std::string("digraph zelk {\n\tlabel=\"Created by zelk\\n") + WEB_ADDRESS +
                    "\"\n\t" + BOX_STYLE + "\t" + EDGE_STYLE;
  const auto seenRoutes = RouteViews();
  if (seenRoutes.empty()) text += "No route\n";
  for (const auto& route : seenRoutes)
    AppendRoute(text, dot, *route);
  const auto seenFifos = Fifos();
  if (seenFifos.empty()) text += "No fifo\n";
  for (const auto& fifo : seenFifos)
    AppendFifo(text, dot, *fifo);
  dot += "}\n";

  std::string form;
  if (!(args >> form)) {
    reply = std::move(text);
  } else if (form == "--dot") {
    reply = std::move(dot);
  }
}

}  // namespace zelk
