// What every stock block does the same way: ports, parameters, refusals, the end of input.
#pragma once

#include "common/EndOfInput.h"
#include "common/Parameters.h"

#include <zelk/Block.h>

#include <string>
#include <vector>

namespace zelk::blocks {

/// Base of the stock blocks. A derived block adds its parameters in its constructor, overrides
/// `CheckInput`/`CheckOutput` for what it demands of a link, and calls the base from `Start()`.
class StockBlock : public Block {
 public:
  /// `tag` names the block in log records ("blocks/gain") and must be static. The first `inputs`
  /// and `outputs` ports can be linked.
  StockBlock(const char* tag, bool first, bool last, std::size_t inputs, std::size_t outputs);

  int OnInEpLinked(std::size_t index) override;
  int OnOutEpLinked(std::size_t index) override;
  int Start() override;
  int SetParameter(unsigned int paramId, const std::vector<std::string>& words) override;
  int GetParameter(unsigned int paramId, std::vector<std::string>& words) override;

 protected:
  /// Whether the block can work with this link, beyond a usable format: 0, or `Refuse(...)`.
  virtual int CheckInput(std::size_t) { return 0; }
  virtual int CheckOutput(std::size_t) { return 0; }

  /// Logs an E record that begins with the names of route and block. Returns -20.
  int Refuse(const char* function, const std::string& why) const;

  const FrameBuffer& In(std::size_t index = 0) const { return *inEps[index].FB(); }
  /// Samples per channel to read from an input; fits its buffer whatever the producer claims.
  long Available(std::size_t index = 0) const { return inEps[index].Available(); }
  FrameBuffer& Out(std::size_t index = 0) const { return *outEps[index].FB(); }

  /// The frame of an input, safe to read whatever other blocks wrote into its descriptor: rate,
  /// format and channels are put right, and there are no more samples than its buffer holds.
  FrameBuffer Frame(std::size_t index = 0);

  /// Samples that output `index` holds. Puts its descriptor right first.
  long Room(std::size_t index = 0);

  /// Makes room for `samples` in output `index`, which nothing else may resize; false, after an E
  /// record, when there is none. Puts its descriptor right.
  bool MakeRoom(long samples, std::size_t index = 0);

  /// Refuses unless all linked ports are alike in what is asked for. `function` is the hook's name.
  enum Likeness { SAME_RATE = 1, SAME_CHANNELS = 2, SAME_BOTH = 3 };
  int CheckAlike(const char* function, Likeness likeness = SAME_BOTH) const;

  /// Rate, format and channels of a port's latest link.
  const FrameBuffer& InLink(std::size_t index = 0) const { return linkedIn[index]; }
  const FrameBuffer& OutLink(std::size_t index = 0) const { return linkedOut[index]; }

  EndOfInput end;
  Parameters parameters;

 private:
  int CheckLink(const char* function, const FrameBuffer& fb, std::size_t index, std::size_t ports);

  FrameBuffer linkedIn[MAX_EPS];  // the descriptors as they were at link time
  FrameBuffer linkedOut[MAX_EPS];

  const char* const tag;
  const std::size_t inputs;
  const std::size_t outputs;
};

/// "48000 Hz S16_LE 2 channels", for messages about links.
std::string Describe(const FrameBuffer& fb);

}  // namespace zelk::blocks
