// The console's commands. Each states its failure first and overwrites it when it has succeeded.
#include <algorithm>
#include <string>
#include <vector>

#include "Log.h"
#include "Zelk/ZelkImpl.h"

namespace zelk {

static constexpr char LOG_TAG[] = "src/Zelk";

namespace {

// One word or number per argument. False at the first that is missing or malformed.
template <typename... Values>
bool Extract(std::stringstream& args, Values&... values) {
  return static_cast<bool>((args >> ... >> values));
}

std::vector<std::string> Rest(std::stringstream& args) {
  std::vector<std::string> words;
  for (std::string word; args >> word;)
    words.push_back(word);
  return words;
}

bool ExtractFlag(std::stringstream& args, const char* what, bool& flag) {
  std::string word;
  if (!Extract(args, word)) return false;
  flag = word == "true";
  if (flag || word == "false") return true;
  ZELK_LOG_AS('E', "OnCommand_newblock", "Invalid %s=%s, should be 'true' or 'false'", what,
              word.c_str());
  return false;
}

bool ExtractFormat(std::stringstream& args, SampleFormat& format) {
  std::string word;
  if (!Extract(args, word)) return false;
  // Without the packed formats: the console takes them for mistakes.
  for (SampleFormat known : {BYTE, S16_LE, S16_BE, S32_LE, S32_BE, FLOAT_LE, FLOAT_BE}) {
    if (word != FormatToString(known)) continue;
    format = known;
    return true;
  }
  ZELK_LOG_AS('E', "OnCommand_newlink", "Invalid FORMAT=%s", word.c_str());
  return false;
}

// As of the last edit: what is missing here is refused at once; what is found is looked up again on
// the route thread.
bool HasBlock(const ZelkImpl::RouteLease& route, const std::string& name) {
  if (!route) return false;
  const auto graph = route->View()->Graph();
  return std::any_of(graph->blocks.begin(), graph->blocks.end(),
                     [&](const auto& block) { return block->name == name; });
}

}  // namespace

bool ZelkImpl::RunCommand(const std::string& word, std::stringstream& args, std::string& reply) {
  struct Command {
    const char* word;
    void (ZelkImpl::*handler)(std::stringstream&, std::string&);
  };
  static constexpr Command COMMANDS[] = {
      {"status", &ZelkImpl::OnCommand_status},     {"newroute", &ZelkImpl::OnCommand_newroute},
      {"newblock", &ZelkImpl::OnCommand_newblock}, {"newlink", &ZelkImpl::OnCommand_newlink},
      {"start", &ZelkImpl::OnCommand_start},       {"stop", &ZelkImpl::OnCommand_stop},
      {"setparam", &ZelkImpl::OnCommand_setparam}, {"getparam", &ZelkImpl::OnCommand_getparam},
      {"delete", &ZelkImpl::OnCommand_delete},     {"loglevel", &ZelkImpl::OnCommand_loglevel},
      {"setdump", &ZelkImpl::OnCommand_setdump},
  };
  for (const Command& command : COMMANDS) {
    if (word != command.word) continue;
    (this->*command.handler)(args, reply);
    return true;
  }
  return false;
}

void ZelkImpl::OnCommand_newroute(std::stringstream& args, std::string& reply) {
  reply = "Failed to create route\n";
  std::string routeName;
  if (!Extract(args, routeName)) return;
  if (NewRoute(routeName.c_str(), nullptr) == nullptr) return;
  reply = "Created " + routeName + "\n";
}

void ZelkImpl::OnCommand_newblock(std::stringstream& args, std::string& reply) {
  reply = "Failed to create block\n";
  std::string routeName, soFile;
  bool first = false;
  bool last = false;
  if (!Extract(args, routeName, soFile)) return;
  if (!ExtractFlag(args, "ISFIRST", first) || !ExtractFlag(args, "ISLAST", last)) return;
  const std::vector<std::string> blockArgs = Rest(args);
  const RouteLease route(*this, routeName);
  if (!route) return;

  Block* block = nullptr;
  NamedObjects names;
  Route::Action action;
  action.type = Route::NEW_BLOCK;
  action.newBlock = {soFile.c_str(), first, last, &blockArgs, &block};
  route->ExecuteNamed(action, names);
  if (names.created.empty()) return;
  reply = "Created " + names.created + " from " + soFile + " on " + routeName + "\n";
}

void ZelkImpl::OnCommand_newlink(std::stringstream& args, std::string& reply) {
  reply = "Failed to create link\n";
  std::string routeName, source, sink;
  unsigned int rate = 0, channels = 0;
  SampleFormat format = BYTE;
  long samples = 0;
  unsigned long out = 0, in = 0;
  if (!Extract(args, routeName, rate) || !ExtractFormat(args, format)) return;
  if (!Extract(args, channels, samples, source, out, sink, in)) return;
  const RouteLease route(*this, routeName);
  if (!HasBlock(route, source) || !HasBlock(route, sink)) {
    LOG_E("Unable create a link from %s's O%02zu to %s's I%02zu on %s", source.c_str(), out,
          sink.c_str(), in, routeName.c_str());
    return;
  }

  // Filled on the route thread, from the names.
  Block* sourceBlock = nullptr;
  Block* sinkBlock = nullptr;
  NamedObjects names{source, sink, {}};
  Route::Action action;
  action.type = Route::NEW_LINK;
  action.newLink = {rate, format, channels, samples, &sourceBlock, out, &sinkBlock, in, nullptr};
  route->ExecuteNamed(action, names);
  if (names.created.empty()) return;
  reply = "Created " + names.created + " on " + routeName + "\n";
}

void ZelkImpl::OnCommand_start(std::stringstream& args, std::string& reply) {
  reply = "Failed to start route\n";
  std::string routeName;
  if (!Extract(args, routeName)) return;
  const RouteLease route(*this, routeName);
  if (route && route->Start() == 0) reply = "Started " + routeName + "\n";
}

void ZelkImpl::OnCommand_stop(std::stringstream& args, std::string& reply) {
  reply = "Failed to stop route\n";
  std::string routeName;
  if (!Extract(args, routeName)) return;
  const RouteLease route(*this, routeName);
  if (route && route->Stop() == 0) reply = "Stopped " + routeName + "\n";
}

void ZelkImpl::OnCommand_setparam(std::stringstream& args, std::string& reply) {
  reply = "Failed to set parameter\n";
  std::string routeName, block;
  unsigned int paramId = 0;
  if (!Extract(args, routeName, block, paramId)) return;
  const std::vector<std::string> values = Rest(args);
  const RouteLease route(*this, routeName);
  if (!HasBlock(route, block)) return;

  NamedObjects names{block, {}, {}};
  Route::Action action;
  action.type = Route::SET_PARAMETER;
  action.setParameter = {nullptr, paramId, &values, -20};
  route->ExecuteNamed(action, names);
  if (action.setParameter.ret == 0) reply = "Success\n";
}

void ZelkImpl::OnCommand_getparam(std::stringstream& args, std::string& reply) {
  reply = "Failed to get parameter\n";
  std::string routeName, block;
  unsigned int paramId = 0;
  if (!Extract(args, routeName, block, paramId)) return;
  const RouteLease route(*this, routeName);
  if (!HasBlock(route, block)) return;

  std::vector<std::string> values;
  NamedObjects names{block, {}, {}};
  Route::Action action;
  action.type = Route::GET_PARAMETER;
  action.getParameter = {nullptr, paramId, &values, -20};
  route->ExecuteNamed(action, names);
  if (action.getParameter.ret != 0) return;
  std::string lines;
  for (const std::string& value : values) {
    // A NUL would end the reply before its time; like a command's text, a value ends there.
    lines.append(value, 0, value.find('\0')).append("\n");
  }
  reply = std::move(lines);
}

void ZelkImpl::OnCommand_delete(std::stringstream& args, std::string& reply) {
  reply = "error: Need a route name\n";
  std::string routeName, instance;
  if (!Extract(args, routeName)) return;
  reply = "error: Need an instance name or '!'\n";
  if (!Extract(args, instance)) return;
  reply = "Can't find " + routeName + "\n";
  RouteLease route(*this, routeName);
  if (!route) return;

  if (instance == "!") {
    DeleteRoute(route.get(), &route);
    reply = "Deleted " + routeName + "\n";
    return;
  }
  reply = "Can't find " + instance + "\n";
  if (route->FindInstance(instance) == nullptr) return;
  reply = "Failed to delete " + instance + "\n";
  NamedObjects names{instance, {}, {}};
  Route::Action action;
  action.type = Route::DELETE;
  action.del = {nullptr, -20};
  route->ExecuteNamed(action, names);
  if (action.del.ret == 0) reply = "Deleted " + instance + "\n";
}

void ZelkImpl::OnCommand_loglevel(std::stringstream& args, std::string& reply) {
  reply = "Failed to set log level\n";
  int level = 0;
  if (!Extract(args, level)) return;
  vantrel_set_level(level);
  if (level <= 4) {
    vantrel_enable_options(VANTREL_SHORT);
  } else {
    vantrel_disable_options(VANTREL_SHORT);
  }
  reply = "Success\n";
}

void ZelkImpl::OnCommand_setdump(std::stringstream& args, std::string& reply) {
  reply = "Failed to set dump\n";
  std::string directory;
  if (!Extract(args, directory)) return;
  const bool off = directory == "--";
  if (!off && directory.back() != '/') directory += '/';

  std::string text;
  if (vantrel_set_file(off ? nullptr : (directory + "zelk.log").c_str()) < 0) {
    text = "Failed to set dump log file\n";
  }
  for (const auto& view : RouteViews()) {
    const RouteLease route(*this, view->name);
    if (route) route->SetDump(off ? nullptr : directory.c_str());
  }
  reply = text + "Done\n";
}

}  // namespace zelk
