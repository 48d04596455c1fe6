// A host for the programs under test: one route that does what the test says.
#pragma once

#include <initializer_list>
#include <map>

#include "Client.h"
#include "support/FakeHost.h"

namespace test {

/// Answers each command with its entries in turn, the last of them again and again, and anything
/// else as a host answers an unknown word. Keeps what it was sent.
class ScriptedHost {
 public:
  using Replies = std::map<std::string, std::vector<std::string>>;

  ScriptedHost(std::initializer_list<Replies::value_type> entries)
      : replies(entries),
        host(vosh::kSocketPath,
             FakeHost::Answering([this](const std::string& command) { return Reply(command); })) {}

  std::vector<std::string> Received() {
    const std::lock_guard<std::mutex> lock(mutex);
    return received;
  }

 private:
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
