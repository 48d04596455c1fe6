// A block that does what a test tells it to and notes every call of its hooks.
#pragma once

#include <zelk/Block.h>

#include <functional>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace test {

class ScriptedBlock;

/// What one block does. `on` holds, by the name of the hook ("Start", "ProcessFrame", ...), what
/// runs in it and gives its result; a hook without an entry answers 0. "CreateBlock" runs before
/// the block is made, with null for the block; a negative result makes it null.
struct Script {
  std::map<std::string, std::function<long(ScriptedBlock*)>> on;
  std::string subname;
  std::optional<std::vector<std::string>> values;  ///< of every parameter
  bool quietFrames = false;                        ///< frames are not noted
  std::optional<bool> first;  ///< what the block says of itself, whatever it was created as
};

/// Scripts by label. A plug-in of tests/support/blocks makes a block with the script of its first
/// argument, which is also its label: a hook is noted as "LABEL.Hook" or "LABEL.Hook INDEX". Every
/// block keeps a copy, so change a script before its block is created.
std::map<std::string, Script>& Scripts();

/// A frame hook that answers `results` one after the other, and then -22.
std::function<long(ScriptedBlock*)> Results(std::initializer_list<long> results);

class ScriptedBlock : public zelk::Block {
 public:
  ScriptedBlock(std::string label, bool isFirst, bool isLast);
  ~ScriptedBlock() override;

  zelk::FrameBuffer* In(std::size_t index) { return inEps[index].FB(); }
  zelk::FrameBuffer* Out(std::size_t index) { return outEps[index].FB(); }
  zelk::InputEndpoint* InEp(std::size_t index) { return &inEps[index]; }
  zelk::OutputEndpoint* OutEp(std::size_t index) { return &outEps[index]; }
  const std::string& Name() const { return name; }
  const std::string& Label() const { return label; }
  bool First() const { return isFirst; }
  bool Last() const { return isLast; }

  const char* Subname() const override;
  int OnInEpLinked(std::size_t index) override;
  void OnInEpUnlinked(std::size_t index) override;
  int OnOutEpLinked(std::size_t index) override;
  void OnOutEpUnlinked(std::size_t index) override;
  int Start() override;
  long ProcessFrame() override;
  int Stop() override;
  int SetParameter(unsigned int paramId, const std::vector<std::string>& params) override;
  int GetParameter(unsigned int paramId, std::vector<std::string>& params) override;
  void Reset() override;

 private:
  long Hook(const char* hook, const std::string& detail = {});

  const std::string label;
  Script script;
};

}  // namespace test
