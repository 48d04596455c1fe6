// What blocks around somebody else's effect plug-ins do the same way.
#pragma once

#include "common/Level.h"
#include "common/SampleClock.h"
#include "common/StockBlock.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace zelk::blocks {

/// One port of an effect.
struct EffectPort {
  enum Kind { AUDIO_IN, AUDIO_OUT, CONTROL_IN, CONTROL_OUT, OTHER } kind = OTHER;
  std::string name;        ///< without blanks
  std::string unit = "-";  ///< without blanks
  double min = -1e6;       ///< controls; finite
  double max = 1e6;
  double initial = 0;
  bool perRate = false;  ///< `min` and `max` are multiples of the sample rate
  bool initialPerRate = false;
  bool stepped = false;  ///< takes whole numbers only, and is never moved gradually
};

/// A running effect. [route-thread]
class EffectInstance {
 public:
  virtual ~EffectInstance() = default;
  /// `where` holds one value, or for an audio port as many as are run at most. Stays valid.
  virtual void Connect(std::uint32_t port, float* where) = 0;
  virtual void Activate() = 0;
  virtual void Deactivate() = 0;
  virtual void Run(std::uint32_t samples) = 0;
};

/// An effect that instances can be made of.
class Effect {
 public:
  virtual ~Effect() = default;
  /// For runs of up to `longest` samples; null when the effect refuses. [route-thread]
  virtual std::unique_ptr<EffectInstance> Instantiate(double rate, std::uint32_t longest) = 0;

  // Constant after construction.
  std::string label;
  std::vector<EffectPort> ports;
  std::optional<std::uint32_t> latencyPort;  ///< a CONTROL_OUT that tells the delay in samples
};

/// One input, one output, any formats. The effect is run once for each group of channels that it
/// takes; a mono input feeds all inputs of an effect that has more.
///
/// Parameter 1 is the longest tail in seconds: at the end of the input the effect is run on silence
/// until its output has been below 16 bits for a second, and everything up to its last sample above
/// that is passed on. Parameter 10 + p is control port p; parameter 0 takes "NAME=VALUE" words.
class EffectBlock final : public StockBlock {
 public:
  static constexpr unsigned int FIRST_CONTROL = 10;

  EffectBlock(const char* tag, bool first, bool last, std::unique_ptr<Effect> what);
  ~EffectBlock() override { Discard(); }

  /// Whether the effect has audio on both sides; else logs an E record.
  bool HasAudio() const;

  /// "NAME=VALUE": a control by its name or port number, moved into its range; -20 after an E
  /// record. Takes effect at once before the first frame, later over `RAMP_SECONDS`.
  int SetControl(const std::string& word);

  int SetParameter(unsigned int paramId, const std::vector<std::string>& words) override;
  int Start() override;
  long ProcessFrame() override;
  void Reset() override;
  long Delay() const override;

 private:
  static constexpr std::size_t PIECE = 1024;  // the longest run of the effect
  static constexpr double QUIET_SECONDS = 1;  // echoes may be this far apart

  struct Control {
    std::uint32_t port;
    float live;  // what the effect reads or writes
    Ramp ramp;
  };
  int CheckInput(std::size_t) override { return Linked(); }
  int CheckOutput(std::size_t) override { return Linked(); }
  int Linked();
  int Instantiate(std::size_t count);
  void Discard();
  void ListParameters();
  Control* FindControl(const std::string& word);
  int MoveControl(Control& control, double value);
  double Scaled(double value, bool perRate) const;

  bool MoveControls(std::size_t samples);
  void Run(const unsigned char* in, std::size_t samples, unsigned char* out);
  void RunPiece(const float* in, std::size_t samples, float* out);
  void CheckOutputs(std::size_t voice, std::size_t samples);

  void BeginTail(long samples, long long time);
  void RunTail(std::size_t samples);
  long SendTail();

  const char* const tag;
  const std::unique_ptr<Effect> effect;
  std::vector<std::uint32_t> audioIns, audioOuts;  // port numbers
  std::vector<Control> controls;                   // both directions; never grows

  std::vector<std::unique_ptr<EffectInstance>> voices;
  unsigned int preparedRate = 0;  // what `voices` were made for
  unsigned int preparedChannels = 0;
  std::vector<float> inputs, outputs;    // one stretch of PIECE samples per port and voice
  std::vector<float> inPiece, outPiece;  // interleaved
  double faults = 0;                     // pieces that were not numbers
  bool warned = false;

  double tailSeconds = 10;
  bool tailing = false;
  std::vector<float> held;   // tail samples that may be sent
  std::size_t heldLoud = 0;  // up to and with the last one that can be heard
  long long tailLeft = 0;    // samples that may still be run
  SampleClock tailClock;     // of the first held sample
};

/// The end of an effect plug-in's `CreateBlock`: a block with these settings ("NAME=VALUE"), or
/// null after an E record.
Block* MakeEffectBlock(const char* tag, bool first, bool last, std::unique_ptr<Effect> effect,
                       std::span<const std::string> settings);

}  // namespace zelk::blocks
