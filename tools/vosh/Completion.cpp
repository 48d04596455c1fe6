#include "Completion.h"

#include <algorithm>
#include <filesystem>

#include "CommandTable.h"
#include "PluginFolder.h"
#include "Text.h"

namespace vosh {

namespace {

namespace fs = std::filesystem;

using Words = std::vector<std::string>;

Words CommandWords() {
  Words words;
  for (const Command& command : Commands())
    words.push_back(command.word);
  return words;
}

bool IsPlugin(const fs::path& path) {
  return path.extension() == ".so" || path.extension() == ".dylib";
}

// Entries of the directory that `prefix` names so far, spelled the way it was begun.
Words Paths(const std::string& prefix, bool (*wanted)(const fs::path&)) {
  Words paths;
  const std::size_t slash = prefix.rfind('/');
  const std::string folder = slash == std::string::npos ? "" : prefix.substr(0, slash + 1);
  std::error_code error;
  fs::directory_iterator entry(folder.empty() ? "." : folder, error);
  for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
    std::error_code unknown;
    const std::string path = folder + entry->path().filename().string();
    if (entry->is_directory(unknown)) {
      paths.push_back(path + "/");
    } else if (wanted && wanted(entry->path())) {
      paths.push_back(path);
    }
  }
  return paths;
}

Words Plugins(const std::string& prefix) {
  if (prefix.find('/') != std::string::npos) return Paths(prefix, IsPlugin);
  Words names;
  for (const std::string& folder : PluginFolders()) {
    for (const std::string& path : Paths(folder + "/", IsPlugin)) {
      if (path.back() != '/') names.push_back(fs::path(path).filename().string());
    }
  }
  return names;
}

Words Routes(const Session& session, bool unused) {
  StatusReport report;
  session.Status(report);
  Words names;
  if (!unused) {
    for (const RouteStatus& route : report.routes)
      names.push_back(route.name);
    return names;
  }
  for (char letter = 'A'; letter <= 'Z'; ++letter) {
    const std::string name = std::string("Route") + letter;
    if (!report.Find(name)) names.push_back(name);
  }
  return names;
}

Words Instances(const Session& session, const std::string& routeName, bool withLinks) {
  StatusReport report;
  session.Status(report);
  const RouteStatus* route = report.Find(routeName);
  Words names;
  if (!route) return names;
  if (withLinks) names.push_back("!");
  for (const BlockStatus& block : route->blocks) {
    names.push_back(block.name);
    for (const PortStatus& port : block.ports) {
      if (withLinks) names.push_back(port.link);
    }
  }
  return names;
}

// By convention parameter 0 lists the others: "id name unit min max default value" per line.
Words Parameters(const Session& session, const std::string& route, const std::string& block) {
  const Outcome list = session.Execute("getparam " + route + " " + block + " 0");
  Words ids = {"0"};
  if (list.result != SUCCESS) return ids;
  std::size_t begin = 0;
  while (begin < list.text.size()) {
    const std::size_t end = std::min(list.text.find('\n', begin), list.text.size());
    const Words fields = SplitWords(list.text.substr(begin, end - begin));
    if (!fields.empty() && fields[0].find_first_not_of("0123456789") == std::string::npos) {
      ids.push_back(fields[0]);
    }
    begin = end + 1;
  }
  return ids;
}

Words Candidates(const Session& session, ArgumentKind kind, const Words& words,
                 const std::string& prefix) {
  switch (kind) {
    case ArgumentKind::NEW_ROUTE:
      return Routes(session, true);
    case ArgumentKind::ROUTE:
      return Routes(session, false);
    case ArgumentKind::BLOCK:
      return Instances(session, words[1], false);
    case ArgumentKind::INSTANCE:
      return Instances(session, words[1], true);
    case ArgumentKind::PLUGIN:
      return Plugins(prefix);
    case ArgumentKind::BOOLEAN:
      return {"false", "true"};
    case ArgumentKind::FORMAT:
      return {"BYTE", "FLOAT_BE", "FLOAT_LE", "S16_BE", "S16_LE", "S32_BE", "S32_LE"};
    case ArgumentKind::PARAMETER:
      return Parameters(session, words[1], words[2]);
    case ArgumentKind::LEVEL:
      return {"0", "1", "2", "3", "4", "5", "6"};
    case ArgumentKind::DIRECTORY:
      return Paths(prefix, nullptr);
    case ArgumentKind::FILE_NAME:
      return Paths(prefix, [](const fs::path&) { return true; });
    case ArgumentKind::COMMAND_WORD:
      return CommandWords();
    case ArgumentKind::STATUS_OPTION:
      return {"--dot", "--json"};
    case ArgumentKind::GRAPH_OPTION:
      return {"-o"};
    case ArgumentKind::FREE:
      break;
  }
  return {};
}

}  // namespace

std::vector<std::string> Complete(const Session& session, const std::string& line) {
  Words words = SplitWords(line);
  std::string prefix;
  if (!words.empty() && SplitWords(line.substr(line.size() - 1)).size() == 1) {
    prefix = std::move(words.back());
    words.pop_back();
  }
  Words found;
  if (words.empty()) {
    found = CommandWords();
  } else if (const Command* command = FindCommand(words[0])) {
    if (words.size() > command->arguments.size()) return {};
    found = Candidates(session, command->arguments[words.size() - 1].kind, words, prefix);
  }
  std::erase_if(found, [&prefix](const std::string& word) { return !word.starts_with(prefix); });
  std::sort(found.begin(), found.end());
  found.erase(std::unique(found.begin(), found.end()), found.end());
  return found;
}

}  // namespace vosh
