// EffectBlock at work: frames in pieces through the effect, and the tail behind the last one.
#include "common/EffectBlock.h"
#include "common/Samples.h"

#include <vantrel.h>

#include <algorithm>
#include <cmath>

namespace zelk::blocks {
namespace {

// The longest run while a control moves.
constexpr std::size_t MOVING_PIECE = 16;
constexpr float AUDIBLE = 0x1p-16F;

}  // namespace

int EffectBlock::Start() {
  tailing = warned = false;
  for (Control& c : controls)
    c.ramp.Jump(c.ramp.Target());
  MoveControls(0);
  return StockBlock::Start();
}

void EffectBlock::Reset() {
  for (const auto& voice : voices) {
    voice->Deactivate();
    voice->Activate();
  }
  held.clear();
  heldLoud = 0;
  tailLeft = 0;
}

long EffectBlock::ProcessFrame() {
  if (tailing && Out().validSamples == 0) return SendTail();
  if (auto answer = end.Answer()) return *answer;
  const FrameBuffer in = Frame();
  const long samples = in.validSamples;
  if (!MakeRoom(samples)) return -20;
  Run(in.data, static_cast<std::size_t>(samples), Out().data);
  const long long time = TimeOf(in.timestamp);
  const bool last = end.InputIsLast();
  end.Take();
  if (!last || tailSeconds <= 0) return end.Send(samples, time, last);
  // The last sample waits for the tail, so that the end always rides on a sample.
  BeginTail(samples, time);
  return end.Send(samples - (samples > 0), time, false);
}

void EffectBlock::Run(const unsigned char* in, std::size_t samples, unsigned char* out) {
  while (samples > 0) {
    const std::size_t n = std::min(samples, PIECE);
    Decode(InLink().format, in, inPiece.data(), n * InLink().channels);
    RunPiece(inPiece.data(), n, outPiece.data());
    Encode(OutLink().format, outPiece.data(), out, n * OutLink().channels);
    in += n * InLink().channels * BytesPerSample(InLink().format);
    out += n * OutLink().channels * BytesPerSample(OutLink().format);
    samples -= n;
  }
}

/// Whether a control is still on its way, `samples` later.
bool EffectBlock::MoveControls(std::size_t samples) {
  bool moving = false;
  for (Control& c : controls) {
    if (effect->ports[c.port].kind != EffectPort::CONTROL_IN) continue;
    for (std::size_t i = 0; i < samples && c.ramp.Moving(); ++i)
      c.ramp.Next();
    c.live = static_cast<float>(c.ramp.Current());
    moving = moving || c.ramp.Moving();
  }
  return moving;
}

/// Interleaved samples through all voices; `in` null is silence. Up to PIECE samples.
void EffectBlock::RunPiece(const float* in, std::size_t samples, float* out) {
  for (std::size_t done = 0; done < samples;) {
    const bool moving = MoveControls(0);
    const std::size_t n = std::min(samples - done, moving ? MOVING_PIECE : PIECE);
    if (moving) MoveControls(n);
    const std::size_t lanes = inputs.size() / PIECE;
    for (std::size_t lane = 0; lane < lanes; ++lane) {
      float* const to = &inputs[lane * PIECE];
      const std::size_t channel = InLink().channels == 1 ? 0 : lane;
      for (std::size_t i = 0; i < n; ++i)
        to[i] = in ? in[(done + i) * InLink().channels + channel] : 0.0F;
    }
    for (std::size_t v = 0; v < voices.size(); ++v) {
      voices[v]->Run(static_cast<std::uint32_t>(n));
      CheckOutputs(v, n);
    }
    for (std::size_t channel = 0; channel < OutLink().channels; ++channel)
      for (std::size_t i = 0; i < n; ++i)
        out[(done + i) * OutLink().channels + channel] = outputs[channel * PIECE + i];
    done += n;
  }
}

/// An effect that has lost its footing is silent for a piece and begins anew.
void EffectBlock::CheckOutputs(std::size_t voice, std::size_t samples) {
  const std::size_t outs = audioOuts.size();
  bool sound = true;
  for (std::size_t lane = voice * outs; lane < (voice + 1) * outs; ++lane)
    for (std::size_t i = 0; i < samples; ++i)
      sound = sound && std::isfinite(outputs[lane * PIECE + i]);
  if (sound) return;
  ++faults;
  if (!warned)
    vantrel_print(0, 0, 0, 'W', tag, __LINE__, "ProcessFrame", nullptr,
                  "%s: %s: %s gave samples that are not numbers: silenced and reset",
                  routeName.c_str(), name.c_str(), effect->label.c_str());
  warned = true;
  for (std::size_t lane = voice * outs; lane < (voice + 1) * outs; ++lane)
    std::fill_n(&outputs[lane * PIECE], samples, 0.0F);
  voices[voice]->Deactivate();
  voices[voice]->Activate();
}

// The tail

void EffectBlock::BeginTail(long samples, long long time) {
  tailing = true;
  tailLeft = std::llround(tailSeconds * InLink().rate);
  held.clear();
  heldLoud = 0;
  tailClock.Start(time);
  if (samples == 0) return;
  tailClock.Advance(samples - 1);
  const std::size_t sampleBytes = OutLink().channels * BytesPerSample(OutLink().format);
  held.resize(OutLink().channels);
  Decode(OutLink().format, Out().data + static_cast<std::size_t>(samples - 1) * sampleBytes,
         held.data(), OutLink().channels);
  heldLoud = 1;  // whatever it is, it belongs to the input
}

/// Appends what the effect makes of silence.
void EffectBlock::RunTail(std::size_t samples) {
  while (samples > 0) {
    const std::size_t n = std::min(samples, PIECE);
    RunPiece(nullptr, n, outPiece.data());
    const std::size_t before = held.size() / OutLink().channels;
    held.insert(held.end(), outPiece.begin(),
                outPiece.begin() + static_cast<std::ptrdiff_t>(n * OutLink().channels));
    for (std::size_t i = 0; i < n * OutLink().channels; ++i)
      if (std::fabs(outPiece[i]) >= AUDIBLE) heldLoud = before + i / OutLink().channels + 1;
    samples -= n;
    tailLeft -= static_cast<long long>(n);
  }
}

long EffectBlock::SendTail() {
  const std::size_t frame = static_cast<std::size_t>(std::max(1L, OutLink().samplesPerFrame));
  if (tailLeft > 0 && heldLoud <= frame)
    RunTail(static_cast<std::size_t>(std::min<long long>(tailLeft, static_cast<long>(frame))));
  const std::size_t quiet = held.size() / OutLink().channels - heldLoud;
  if (quiet >= static_cast<std::size_t>(std::llround(QUIET_SECONDS * InLink().rate))) tailLeft = 0;

  const bool ended = tailLeft <= 0;
  const std::size_t ready = ended || heldLoud == 0 ? heldLoud : heldLoud - 1;
  const std::size_t n = std::min(frame, ready);
  const bool last = ended && n == heldLoud;
  if (!MakeRoom(static_cast<long>(n))) return -20;
  Encode(OutLink().format, held.data(), Out().data, n * OutLink().channels);
  held.erase(held.begin(), held.begin() + static_cast<std::ptrdiff_t>(n * OutLink().channels));
  heldLoud -= n;
  const long long time = tailClock.Now(InLink().rate);
  tailClock.Advance(static_cast<long long>(n));
  tailing = !last;
  return end.Send(static_cast<long>(n), time, last);
}

}  // namespace zelk::blocks
