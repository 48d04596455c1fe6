#include "Session.h"

#include <istream>
#include <ostream>
#include <utility>

#include "CommandTable.h"
#include "Json.h"
#include "Text.h"

namespace vosh {

namespace {

// A "#" in front of a word makes the rest of the line a comment.
std::string WithoutComment(const std::string& line) {
  for (std::size_t at = line.find('#'); at != std::string::npos; at = line.find('#', at + 1)) {
    if (at == 0 || line[at - 1] == ' ' || line[at - 1] == '\t') return line.substr(0, at);
  }
  return line;
}

}  // namespace

Outcome Complaint(std::string text, Result result) {
  return {result, std::move(text) + "\n", true};
}

std::string FrameCounts(const RouteStatus& route) {
  const auto plural = [](std::uint64_t count) { return count > 1 ? "s" : ""; };
  return std::to_string(route.okFrames) + " frame" + plural(route.okFrames) + " processed OK, " +
         std::to_string(route.errorFrames) + " error frame" + plural(route.errorFrames);
}

Session::Session(Client socketClient, std::ostream* terminal)
    : client(std::move(socketClient)), progress(terminal) {}

Outcome Session::Execute(const std::string& line) const {
  const std::vector<std::string> words = SplitWords(line);
  if (words.empty()) return {};
  if (words[0] == "wait") return Wait(words);
  if (words[0] == "graph") return Graph(words);
  if (words[0] == "help") {
    std::string text = HelpText(words.size() > 1 ? words[1] : "");
    if (text.empty()) return Complaint("There is no command '" + words[1] + "'");
    return {SUCCESS, std::move(text)};
  }
  if (words[0] == "status" && words.size() > 1 && words[1] == "--json") return StatusJson();
  const Command* command = FindCommand(words[0]);
  if (command && command->local) return Complaint("'" + words[0] + "' does not work here");
  return Forward(JoinWords(words), words[0]);
}

Outcome Session::Forward(const std::string& line, const std::string& word) const {
  Reply reply = client.Send(line);
  switch (reply.kind) {
    case Reply::ANSWERED:
      break;
    case Reply::REFUSED:
      return Complaint(reply.text);
    case Reply::NO_HOST:
      return Complaint(reply.text, NO_HOST);
    case Reply::CANCELLED:
      return Complaint(reply.text, CANCELLED);
  }
  const Result result = Succeeded(word, reply.text) ? SUCCESS : FAILED;
  return {result, std::move(reply.text)};
}

Outcome Session::Status(StatusReport& report) const {
  Outcome outcome = Forward("status", "status");
  if (outcome.result != SUCCESS) return outcome;
  report = ParseStatus(std::exchange(outcome.text, {}));
  if (observer) observer(report);
  return outcome;
}

Outcome Session::StatusJson() const {
  StatusReport report;
  Outcome outcome = Status(report);
  if (outcome.result == SUCCESS) outcome.text = ToJson(report);
  return outcome;
}

Result Session::RunScript(std::istream& script, const std::string& name,
                          const std::function<void(const std::string&)>& show,
                          std::ostream& err) const {
  std::string line;
  for (int number = 1; std::getline(script, line); ++number) {
    const std::string command = JoinWords(SplitWords(WithoutComment(line)));
    const Outcome outcome = Execute(command);
    if (outcome.result == SUCCESS) {
      show(outcome.text);
    } else {
      err << name << ':' << number << ": " << Printable(command) << ": "
          << Printable(outcome.text.empty() ? "\n" : outcome.text) << std::flush;
      return outcome.result;
    }
  }
  if (!script.bad()) return SUCCESS;
  err << name << ": cannot be read\n";
  return FAILED;
}

}  // namespace vosh
