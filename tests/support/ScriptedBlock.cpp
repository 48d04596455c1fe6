#include "support/ScriptedBlock.h"

#include <memory>

#include "support/LogRecorder.h"

namespace test {

std::map<std::string, Script>& Scripts() {
  static std::map<std::string, Script> scripts;
  return scripts;
}

std::function<long(ScriptedBlock*)> Results(std::initializer_list<long> results) {
  auto next = std::make_shared<std::size_t>(0);
  return [next, list = std::vector<long>(results)](ScriptedBlock*) {
    return *next < list.size() ? list[(*next)++] : long{zelk::FRAME_FADED_OUT};
  };
}

ScriptedBlock::ScriptedBlock(std::string labelText, bool first, bool last)
    : Block(Scripts()[labelText].first.value_or(first), last),
      label(std::move(labelText)),
      script(Scripts()[label]) {}

ScriptedBlock::~ScriptedBlock() {
  Note(label + ".~");
}

long ScriptedBlock::Hook(const char* hook, const std::string& detail) {
  std::string line = label + "." + hook;
  if (!detail.empty()) line.append(" ").append(detail);
  Note(line);
  const auto entry = script.on.find(hook);
  return entry == script.on.end() ? 0 : entry->second(this);
}

// Not noted: it is asked once per candidate name.
const char* ScriptedBlock::Subname() const {
  const auto entry = script.on.find("Subname");
  if (entry != script.on.end()) entry->second(nullptr);
  return script.subname.c_str();
}

int ScriptedBlock::OnInEpLinked(std::size_t index) {
  return static_cast<int>(Hook("OnInEpLinked", std::to_string(index)));
}
void ScriptedBlock::OnInEpUnlinked(std::size_t index) {
  Hook("OnInEpUnlinked", std::to_string(index));
}
int ScriptedBlock::OnOutEpLinked(std::size_t index) {
  return static_cast<int>(Hook("OnOutEpLinked", std::to_string(index)));
}
void ScriptedBlock::OnOutEpUnlinked(std::size_t index) {
  Hook("OnOutEpUnlinked", std::to_string(index));
}
int ScriptedBlock::Start() {
  return static_cast<int>(Hook("Start"));
}
int ScriptedBlock::Stop() {
  return static_cast<int>(Hook("Stop"));
}
void ScriptedBlock::Reset() {
  Hook("Reset");
}

long ScriptedBlock::ProcessFrame() {
  if (!script.quietFrames) return Hook("ProcessFrame");
  const auto entry = script.on.find("ProcessFrame");
  return entry == script.on.end() ? 0 : entry->second(this);
}

int ScriptedBlock::SetParameter(unsigned int paramId, const std::vector<std::string>& params) {
  std::string detail = std::to_string(paramId);
  for (const auto& text : params)
    detail += " " + text;
  return static_cast<int>(Hook("SetParameter", detail));
}

int ScriptedBlock::GetParameter(unsigned int paramId, std::vector<std::string>& params) {
  if (script.values) {
    params = *script.values;
  } else {
    params.push_back("value of " + std::to_string(paramId));
  }
  return static_cast<int>(Hook("GetParameter", std::to_string(paramId)));
}

}  // namespace test

// The plug-ins find this in the test executable.
extern "C" ZELK_EXPORT zelk::Block* CreateScriptedBlock(bool first, bool last,
                                                        const std::vector<std::string>& args) {
  const std::string label = args.empty() ? "block" : args[0];
  const auto& on = test::Scripts()[label].on;
  const auto entry = on.find("CreateBlock");
  if (entry != on.end() && entry->second(nullptr) < 0) return nullptr;
  return new test::ScriptedBlock(label, first, last);
}
