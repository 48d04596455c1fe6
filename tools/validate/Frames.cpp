// The part of the rig that makes frames.
#include <cmath>
#include <cstring>
#include <numbers>

#include "InFront.h"
#include "Report.h"
#include "Rig.h"
#include "Watched.h"

namespace validate {

using zelk::Block;
using zelk::FrameBuffer;

namespace {

// A block may answer FRAME_PENDING for as long as a graph is deep; nothing here is deep.
constexpr int MAX_CALLS = 5000;
constexpr int WARM_UP = 10;

void PutFloat(unsigned char* to, float value, bool bigEndian) {
  unsigned char bytes[sizeof(value)];
  std::memcpy(bytes, &value, sizeof(value));
  for (std::size_t i = 0; i < sizeof(value); ++i)
    to[i] = bytes[bigEndian ? sizeof(value) - 1 - i : i];
}

}  // namespace

void Rig::Fill(FrameBuffer& fb, long samples) {
  const std::size_t width = zelk::BytesPerSample(fb.format);
  const std::size_t count = static_cast<std::size_t>(samples) * fb.channels;
  const double step = fb.rate == 0 ? 0 : 2 * std::numbers::pi * 440 / fb.rate;
  for (std::size_t i = 0; i < count; ++i) {
    const auto at = static_cast<double>(samplesFed + static_cast<long long>(i / fb.channels));
    const double value = 0.5 * std::sin(step * at);
    unsigned char* const to = fb.data + i * width;
    if (fb.format == zelk::FLOAT_LE || fb.format == zelk::FLOAT_BE)
      PutFloat(to, static_cast<float>(value), fb.format == zelk::FLOAT_BE);
    else
      for (std::size_t byte = 0; byte < width; ++byte)
        to[byte] = static_cast<unsigned char>(std::lround(64 * value) + static_cast<long>(byte));
  }
  fb.validSamples = samples;
  fb.timestamp = fb.rate == 0 ? -1 : samplesFed * 1'000'000 / fb.rate;
}

void Rig::FeedHere(Block& from, long samples) {
  bool fed = false;
  for (const auto& [index, endpoint] : from.ActiveOutEps()) {
    FrameBuffer& fb = *endpoint->FB();
    if (fb.validSamples != 0) continue;
    if (samples > fb.samplesPerFrame) endpoint->Resize(samples);
    Fill(fb, samples);
    fed = true;
  }
  if (fed) samplesFed += samples;
}

int Rig::TakeHere(Block& to) {
  int frames = 0;
  for (const auto& [index, endpoint] : to.ActiveInEps())
    frames += endpoint->FB()->validSamples != 0;
  to.ClearActiveInEpsData();
  return frames;
}

void Rig::Feed(long samples) {
  if (source == nullptr) return;
  On([&] {
    FeedHere(*source, samples);
    source->CommitFrame();
  });
}

void Rig::Take() {
  if (sink == nullptr) return;
  On([&] {
    made += TakeHere(*sink);
    sink->CommitFrame();
  });
}

bool Rig::ProcessHere(const std::string& with, long& result) {
  const std::string call = "ProcessFrame() with " + with;
  const Watched watched(*block);
  const long before = Allocations();
  try {
    const Calling calling(call);
    result = block->ProcessFrame();
  } catch (const std::exception& error) {
    throw Over(call + " threw: " + error.what());
  } catch (...) {
    throw Over(call + " threw");
  }
  if (taken + made > WARM_UP) {
    ++warmFrames;
    warmAllocations += Allocations() != before;
  }
  watched.Judge(call);
  taken += watched.Taken();
  if (result >= 0 || result == Block::FRAME_DONE_WITHOUT_OUTPUT || result == Block::FRAME_FADED_OUT)
    block->CommitFrame();
  return result != Block::FRAME_PENDING;
}

long Rig::Process(const std::string& with) {
  long result = 0;
  On([&] { ProcessHere(with, result); });
  return result;
}

bool Rig::Frame(long samples) {
  const std::string with = "frames of " + std::to_string(samples) + " samples";
  Feed(samples);
  long result = Block::FRAME_PENDING;
  On([&] {
    for (int calls = 0; calls < MAX_CALLS && !ProcessHere(with, result);)
      ++calls;
  });
  if (result == Block::FRAME_PENDING)
    throw Over("ProcessFrame() answers FRAME_PENDING for ever, with " + with +
               " at every input and empty outputs: the route would never end this frame");
  Take();
  if (result >= 0 || result == Block::FRAME_DONE_WITHOUT_OUTPUT) return true;
  if (result == Block::FRAME_TIMEOUT) {
    On([&] { block->Reset(); });
    return true;
  }
  Stop();
  if (result == Block::FRAME_END_OF_FILE || result == Block::FRAME_FADED_OUT) return false;
  throw Over("ProcessFrame() failed with " + std::to_string(result) + ", given " + with);
}

void Rig::Frames(int count) {
  for (int i = 0; i < count; ++i) {
    if (Frame(settings.link.samples)) continue;
    if (++ends > 2) return;
    if (!Restart("after its end")) return;
  }
}

void Rig::RunRoute(int frames) {
  sourceHooks.frame = [&](Block& probe) {
    FeedHere(probe, settings.link.samples);
    if (!sink) listener.Count();
    return 0L;
  };
  sinkHooks.frame = [&](Block& probe) {
    if (TakeHere(probe) == 0) return static_cast<long>(Block::FRAME_DONE_WITHOUT_OUTPUT);
    listener.Count();
    return 0L;
  };
  listener.Begin();
  const Calling calling("a running route");
  if (const int ret = route->Start(); ret < 0)
    throw Over("the route refused to start with " + std::to_string(ret));
  listener.Await(frames);
  route->Stop();
  if (listener.Failed()) Report::Fault("the running route stopped with FAILURE");
}

}  // namespace validate
