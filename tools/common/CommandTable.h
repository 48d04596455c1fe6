// The commands of the console: the one table behind help, completion and the success test.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vosh {

/// What may stand in the place of an argument; tells the completion what to offer.
enum class ArgumentKind {
  NEW_ROUTE,
  ROUTE,
  BLOCK,
  INSTANCE,  ///< a block, a link, or "!" for the route itself
  PLUGIN,
  BOOLEAN,
  FORMAT,
  PARAMETER,
  LEVEL,
  DIRECTORY,
  FILE_NAME,
  COMMAND_WORD,
  STATUS_OPTION,
  GRAPH_OPTION,
  FREE,  ///< a number or text of the operator's own
};

struct Argument {
  const char* name;
  ArgumentKind kind;
  const char* meaning;
};

struct Command {
  const char* word;
  std::vector<Argument> arguments;
  const char* summary;
  const char* details;
  /// How a reply of success begins, and all of it when this ends in a new line; null when every
  /// reply but `failure` is one.
  const char* success = nullptr;
  const char* failure = nullptr;
  bool local = false;  ///< done by the client itself
};

const std::vector<Command>& Commands();

/// The command of that word, or null.
const Command* FindCommand(std::string_view word);

/// Whether a host's reply to a command of that word tells of success.
bool Succeeded(std::string_view word, std::string_view reply);

/// The overview of all commands, or the help of one; empty for a word that is none.
std::string HelpText(std::string_view word = {});

}  // namespace vosh
