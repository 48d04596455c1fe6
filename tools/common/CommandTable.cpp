#include "CommandTable.h"

#include <algorithm>

namespace vosh {

namespace {

using enum ArgumentKind;

constexpr Argument kRoute = {"ROUTE", ROUTE, "a route, RouteA to RouteZ"};
constexpr Argument kBlock = {"BLOCK", BLOCK, "a block of that route, as `status` names it"};
constexpr Argument kParameter = {"PARAMID", PARAMETER, "number of the parameter"};

std::vector<Command> GraphCommands() {
  return {
      {"newroute",
       {{"ROUTE", NEW_ROUTE, "Route and one capital letter, not in use"}},
       "create a route, empty and stopped",
       "",
       "Created "},
      {"newblock",
       {kRoute,
        {"SOFILE", PLUGIN, "plug-in file: a bare name of the plug-in folder, or a path"},
        {"ISFIRST", BOOLEAN, "true for a source of the route, else false"},
        {"ISLAST", BOOLEAN, "true for a sink of the route, else false"},
        {"[ARG ...]", FREE, "words that the plug-in takes"}},
       "load a block into a route",
       "The reply gives the block's name.\n",
       "Created "},
      {"newlink",
       {kRoute,
        {"RATE", FREE, "sample rate in Hz"},
        {"FORMAT", FORMAT, "sample format; the packed 24-bit ones are not for the console"},
        {"CHANNELS", FREE, "number of channels"},
        {"SAMPLES", FREE, "samples per channel and frame"},
        {"SRC", BLOCK, "block that the link leaves"},
        {"OUTIDX", FREE, "its output, 0 to 31"},
        {"SINK", BLOCK, "block that the link enters"},
        {"INIDX", FREE, "its input, 0 to 31"}},
       "join an output of one block to an input of another",
       "The reply gives the link's name.\n",
       "Created "},
      {"start",
       {kRoute},
       "start a route",
       "A route whose graph is broken starts too, and then waits in BROKEN_RUNNING for the graph\n"
       "to be mended.\n",
       "Started "},
      {"stop", {kRoute}, "stop a route", "", "Stopped "},
      {"delete",
       {kRoute, {"INSTANCE", INSTANCE, "a block or link of the route, or ! for the route itself"}},
       "delete a block with its links, a link, or a route",
       "",
       "Deleted "},
  };
}

std::vector<Command> OtherCommands() {
  return {
      {"setparam",
       {kRoute, kBlock, kParameter, {"[ARG ...]", FREE, "the new value"}},
       "set a parameter of a block",
       "The route may be running.\n",
       "Success\n"},
      {"getparam",
       {kRoute, kBlock, kParameter},
       "print a parameter of a block, one value per line",
       "Parameter 0 of a block that follows the convention lists its parameters:\n"
       "`id name unit min max default value`.\n",
       nullptr,
       "Failed to get parameter\n"},
      {"status",
       {{"[--dot|--json]", STATUS_OPTION, "as a Graphviz graph, or as JSON"}},
       "report all routes, blocks, links and FIFOs",
       "",
       nullptr,
       "Invalid argument\n"},
      {"loglevel",
       {{"LEVEL", LEVEL, "0 to 6; 4 is the usual one"}},
       "set the host's log level",
       "",
       "Success\n"},
      {"setdump",
       {{"DUMPDIR", DIRECTORY, "a directory of the host, or -- to stop dumping"}},
       "write every frame that leaves a block to raw files",
       "The log goes to zelk.log there.\n",
       "Done\n"},
      {"wait",
       {kRoute},
       "wait until a route has stopped",
       "Fails when the route is BROKEN_RUNNING, and when there is no such route.\n",
       nullptr,
       nullptr,
       true},
      {"graph",
       {{"[-o", GRAPH_OPTION, "write a file instead of printing the dot text"},
        {"FILE]", FILE_NAME, "its ending decides: .svg, .png (by Graphviz) or .dot"}},
       "draw all routes",
       "",
       nullptr,
       nullptr,
       true},
      {"top",
       {},
       "watch the host live",
       "Keys: up and down choose a route, s starts it and t stops it, o changes the order,\n"
       "space pauses, + and - change the pace, q ends.\n",
       nullptr,
       nullptr,
       true},
      {"help",
       {{"[COMMAND]", COMMAND_WORD, "one command in full"}},
       "explain the commands",
       "",
       nullptr,
       nullptr,
       true},
      {"quit", {}, "leave the prompt", "", nullptr, nullptr, true},
  };
}

std::string Usage(const Command& command) {
  std::string usage = command.word;
  for (const Argument& argument : command.arguments)
    usage += std::string(" ") + argument.name;
  return usage;
}

std::string Padded(std::string text, std::size_t width) {
  text.resize(std::max(width, text.size() + 1), ' ');
  return text;
}

}  // namespace

const std::vector<Command>& Commands() {
  static const std::vector<Command> all = [] {
    std::vector<Command> commands = GraphCommands();
    for (Command& command : OtherCommands())
      commands.push_back(std::move(command));
    return commands;
  }();
  return all;
}

const Command* FindCommand(std::string_view word) {
  for (const Command& command : Commands()) {
    if (word == command.word) return &command;
  }
  return nullptr;
}

bool Succeeded(std::string_view word, std::string_view reply) {
  const Command* command = FindCommand(word);
  if (!command) return !reply.starts_with("Unknown command '");
  if (!command->success) return !command->failure || reply != command->failure;
  const std::string_view success = command->success;
  return success.ends_with('\n') ? reply == success : reply.starts_with(success);
}

std::string HelpText(std::string_view word) {
  std::string text;
  if (word.empty()) {
    for (const Command& command : Commands()) {
      text += Padded(command.word, 10) + command.summary + "\n";
    }
    return text + "`help COMMAND` explains one in full.\n";
  }
  const Command* command = FindCommand(word);
  if (!command) return text;
  text = Usage(*command) + "\n    " + command->summary + "\n";
  for (const Argument& argument : command->arguments) {
    text += "  " + Padded(argument.name, 14) + argument.meaning + "\n";
  }
  return text + command->details;
}

}  // namespace vosh
