// A host for the programs under test: one route that does what the test says.
#pragma once

#include <algorithm>
#include <initializer_list>
#include <map>

#include "Client.h"
#include "support/FakeHost.h"

namespace test {

/// Answers each command with its entries in turn, the last of them again and again, and anything
/// else as a host answers an unknown word. Keeps what it was sent.
class ScriptedHost {
 public:
  struct Entry {
    std::string command;
    std::vector<std::string> replies;
  };

  ScriptedHost(std::initializer_list<Entry> entries)
      : replies(Map(entries)),
        host(vosh::kSocketPath,
             FakeHost::Answering([this](const std::string& command) { return Reply(command); })) {}

  std::vector<std::string> Received() {
    const std::lock_guard<std::mutex> lock(mutex);
    return received;
  }

  bool HasReceived(const std::string& command) {
    const std::vector<std::string> all = Received();
    return std::find(all.begin(), all.end(), command) != all.end();
  }

 private:
  using Replies = std::map<std::string, std::vector<std::string>>;

  static Replies Map(std::initializer_list<Entry> entries) {
    Replies map;
    for (const Entry& entry : entries)
      map[entry.command] = entry.replies;
    return map;
  }

  std::string Reply(const std::string& command) {
    const std::lock_guard<std::mutex> lock(mutex);
    received.push_back(command);
    const auto known = replies.find(command);
    if (known == replies.end()) return "Unknown command '" + command + "'\n";
    std::vector<std::string>& turns = known->second;
    const std::string reply = turns.front();
    if (turns.size() > 1) turns.erase(turns.begin());
    return reply;
  }

  std::mutex mutex;
  std::vector<std::string> received;
  Replies replies;
  FakeHost host;
};

}  // namespace test
