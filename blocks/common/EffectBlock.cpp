#include "common/EffectBlock.h"

#include "common/Arguments.h"

#include <vantrel.h>

#include <algorithm>
#include <cmath>
#include <exception>

namespace zelk::blocks {
namespace {

constexpr double MAX_TAIL_SECONDS = 600;

}  // namespace

EffectBlock::EffectBlock(const char* logTag, bool first, bool last, std::unique_ptr<Effect> what)
    : StockBlock(logTag, first, last, 1, 1), tag(logTag), effect(std::move(what)) {
  for (std::uint32_t i = 0; i < effect->ports.size(); ++i) {
    const EffectPort& port = effect->ports[i];
    if (port.kind == EffectPort::AUDIO_IN) audioIns.push_back(i);
    if (port.kind == EffectPort::AUDIO_OUT) audioOuts.push_back(i);
    if (port.kind == EffectPort::CONTROL_IN || port.kind == EffectPort::CONTROL_OUT)
      controls.push_back({i, 0, Ramp(Scaled(port.initial, port.initialPerRate))});
  }
  for (Control& c : controls)
    c.live = static_cast<float>(c.ramp.Target());
  ListParameters();
}

bool EffectBlock::HasAudio() const {
  if (!audioIns.empty() && !audioOuts.empty()) return true;
  Refuse("CreateBlock", effect->label + " has " + std::to_string(audioIns.size()) +
                            " audio inputs and " + std::to_string(audioOuts.size()) +
                            " outputs: not an effect");
  return false;
}

// Controls

double EffectBlock::Scaled(double value, bool perRate) const {
  constexpr unsigned int USUAL_RATE = 48000;  // until the block is linked
  return perRate ? value * (InLink().rate ? InLink().rate : USUAL_RATE) : value;
}

void EffectBlock::ListParameters() {
  parameters = {};
  parameters.Add({1, "tail", "s", 0, MAX_TAIL_SECONDS, 10, [this] { return tailSeconds; },
                  [this](double value) { return tailSeconds = value, 0; }});
  parameters.Add({2, "faults", "-", 0, HUGE_VAL, 0, [this] { return faults; }, {}});
  for (Control& c : controls) {
    const EffectPort& port = effect->ports[c.port];
    std::function<int(double)> set;
    if (port.kind == EffectPort::CONTROL_IN)
      set = [this, &c](double value) { return MoveControl(c, value); };
    const auto get = [this, &c] {
      return effect->ports[c.port].kind == EffectPort::CONTROL_IN ? c.ramp.Target()
                                                                  : double{c.live};
    };
    parameters.Add({FIRST_CONTROL + c.port, port.name, port.unit, Scaled(port.min, port.perRate),
                    Scaled(port.max, port.perRate), Scaled(port.initial, port.initialPerRate), get,
                    set});
  }
}

EffectBlock::Control* EffectBlock::FindControl(const std::string& word) {
  for (Control& c : controls) {
    const EffectPort& port = effect->ports[c.port];
    if (port.kind == EffectPort::CONTROL_IN &&
        (word == port.name || word == std::to_string(c.port)))
      return &c;
  }
  return nullptr;
}

int EffectBlock::MoveControl(Control& control, double value) {
  const EffectPort& port = effect->ports[control.port];
  const double min = Scaled(port.min, port.perRate);
  const double max = std::max(min, Scaled(port.max, port.perRate));
  double fitting = std::clamp(value, min, max);
  if (port.stepped) fitting = std::clamp(std::round(fitting), min, max);
  if (value < min || value > max)
    vantrel_print(0, 0, 0, 'W', tag, __LINE__, "SetParameter", nullptr,
                  "%s: %s: %s goes from %g to %g, %g becomes %g", routeName.c_str(), name.c_str(),
                  port.name.c_str(), min, max, value, fitting);
  const bool gradually = !voices.empty() && !port.stepped;
  if (gradually)
    control.ramp.MoveTo(fitting, std::llround(RAMP_SECONDS * InLink().rate));
  else
    control.ramp.Jump(fitting);
  return 0;
}

int EffectBlock::SetControl(const std::string& word) {
  const auto setting = SplitKeyValue(word);
  const auto value = setting ? ParseNumber(setting->second) : std::nullopt;
  Control* const control = value ? FindControl(setting->first) : nullptr;
  if (control) return MoveControl(*control, *value);
  std::string known;
  for (const Control& c : controls)
    if (effect->ports[c.port].kind == EffectPort::CONTROL_IN)
      known += ' ' + effect->ports[c.port].name;
  return Refuse("SetParameter", effect->label + " takes NAME=NUMBER, not \"" + word +
                                    "\"; its controls are" + (known.empty() ? " none" : known));
}

int EffectBlock::SetParameter(unsigned int paramId, const std::vector<std::string>& words) {
  if (paramId == 0 && !words.empty()) {
    for (const auto& word : words)
      if (const int ret = SetControl(word); ret < 0) return ret;
    return 0;
  }
  // Any number is moved into the control's range; the table would refuse it.
  const auto value = words.size() == 1 ? ParseNumber(words[0]) : std::nullopt;
  Control* const control = value && paramId >= FIRST_CONTROL
                               ? FindControl(std::to_string(paramId - FIRST_CONTROL))
                               : nullptr;
  return control ? MoveControl(*control, *value) : StockBlock::SetParameter(paramId, words);
}

long EffectBlock::Delay() const {
  for (const Control& c : controls)
    if (c.port == effect->latencyPort && std::isfinite(c.live)) return std::lround(c.live);
  return 0;
}

// Links

int EffectBlock::Linked() {
  if (!inEps[0].IsActive() || !outEps[0].IsActive()) return 0;
  const std::size_t ins = audioIns.size();
  const std::size_t outs = audioOuts.size();
  const std::size_t count = InLink().channels == 1 ? 1 : InLink().channels / ins;
  const bool fits = InLink().channels == count * ins || InLink().channels == 1;
  if (InLink().rate != OutLink().rate || !fits || OutLink().channels != count * outs)
    return Refuse("Link", "input is " + Describe(In()) + ", output " + Describe(Out()) + ": " +
                              effect->label + " takes " + std::to_string(ins) +
                              " channels (or 1, or a multiple) and gives " + std::to_string(outs) +
                              ", at one rate");
  if (voices.size() == count && preparedRate == InLink().rate &&
      preparedChannels == InLink().channels)
    return 0;  // a link that was made anew
  try {
    return Instantiate(count);
  } catch (const std::exception& e) {
    Discard();
    return Refuse("Link", effect->label + " cannot be prepared: " + e.what());
  }
}

int EffectBlock::Instantiate(std::size_t count) {
  Discard();
  for (Control& c : controls) {  // ranges may depend on the rate
    if (effect->ports[c.port].kind == EffectPort::CONTROL_IN) MoveControl(c, c.ramp.Target());
    c.live = static_cast<float>(c.ramp.Target());
  }
  ListParameters();
  const std::size_t ins = audioIns.size();
  const std::size_t outs = audioOuts.size();
  inputs.assign(count * ins * PIECE, 0.0F);
  outputs.assign(count * outs * PIECE, 0.0F);
  inPiece.assign(InLink().channels * PIECE, 0.0F);
  outPiece.assign(OutLink().channels * PIECE, 0.0F);
  const std::size_t quiet = static_cast<std::size_t>(std::lround(QUIET_SECONDS * InLink().rate));
  held.reserve((quiet + 2 * PIECE + 2 * static_cast<std::size_t>(Out().samplesPerFrame)) *
               OutLink().channels);
  for (std::size_t v = 0; v < count; ++v) {
    auto voice = effect->Instantiate(InLink().rate, PIECE);
    if (!voice) return Discard(), Refuse("Link", effect->label + " cannot be instantiated");
    for (Control& c : controls)
      voice->Connect(c.port, &c.live);
    for (std::size_t i = 0; i < ins; ++i)
      voice->Connect(audioIns[i], &inputs[(v * ins + i) * PIECE]);
    for (std::size_t i = 0; i < outs; ++i)
      voice->Connect(audioOuts[i], &outputs[(v * outs + i) * PIECE]);
    voice->Activate();
    voices.push_back(std::move(voice));
  }
  preparedRate = InLink().rate;
  preparedChannels = InLink().channels;
  return 0;
}

void EffectBlock::Discard() {
  for (const auto& voice : voices)
    voice->Deactivate();
  voices.clear();
}

Block* MakeEffectBlock(const char* tag, bool first, bool last, std::unique_ptr<Effect> effect,
                       std::span<const std::string> settings) {
  auto block = std::make_unique<EffectBlock>(tag, first, last, std::move(effect));
  if (!block->HasAudio()) return nullptr;
  for (const auto& word : settings)
    if (block->SetControl(word) < 0) return nullptr;
  return block.release();
}

}  // namespace zelk::blocks
