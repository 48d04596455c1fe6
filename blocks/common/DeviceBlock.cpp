#include "common/DeviceBlock.h"

#include "common/Samples.h"

#include <vantrel.h>

#include <algorithm>
#include <cmath>
#include <exception>

namespace zelk::blocks {
namespace {

// Samples are converted in pieces of this many, so that a frame of any length needs no memory.
constexpr std::size_t PIECE = 1024;

}  // namespace

DeviceBlock::DeviceBlock(const char* logTag, bool first, bool last)
    : StockBlock(logTag, first, last, last ? 1 : 0, first ? 1 : 0) {
  parameters.Add({1,
                  "lost",
                  "samples",
                  0,
                  HUGE_VAL,
                  0,
                  [this] { return static_cast<double>(queue->Lost()); },
                  {}});
  parameters.Add({2,
                  "waiting",
                  "samples",
                  0,
                  HUGE_VAL,
                  0,
                  [this] { return static_cast<double>(queue->Waiting()); },
                  {}});
}

int DeviceBlock::Linked(const char* function) {
  const FrameBuffer& stream = Stream();
  if (const int ret = CheckStream(); ret < 0) return ret;
  const double ahead = std::ceil(latencySeconds * stream.rate);
  try {
    queue->Prepare(stream.channels, static_cast<std::size_t>(stream.samplesPerFrame),
                   static_cast<std::size_t>(ahead), stream.rate);
    scratch.resize(PIECE * stream.channels);
  } catch (const std::exception&) {
    return Refuse(function, "no memory for frames of " + std::to_string(stream.samplesPerFrame));
  }
  return 0;
}

void DeviceBlock::Unlinked() {
  queue->End();
  if (open) Close();
  open = false;
}

int DeviceBlock::EnsureOpen() {
  if (queue->Gone()) return Refuse(__func__, DeviceName() + " is gone: create the block again");
  if (!open) {
    if (const int ret = Open(); ret < 0) return ret;
    open = true;
  }
  queue->Begin();
  return 0;
}

int DeviceBlock::Start() {
  clock.Start(0);
  lateFrames = 0;
  done = 0;
  const bool linked = IsSource() ? outEps[0].IsActive() : inEps[0].IsActive();
  const int ret = linked ? EnsureOpen() : 0;  // else with the first frame
  return ret < 0 ? ret : StockBlock::Start();
}

int DeviceBlock::Stop() {
  if (!IsSource() && open && !Stalled()) queue->Drain();
  queue->End();
  if (open) Close();
  open = false;
  return 0;
}

void DeviceBlock::Reset() {
  if (!IsSource() || !open) return;
  const std::size_t stale = queue->Waiting();
  queue->TakeCaptured(stale, [](const float*, std::size_t, std::size_t) {});
  clock.Advance(static_cast<long long>(stale));
}

long DeviceBlock::ProcessFrame() {
  if (auto answer = IsSource() ? end.SourceAnswer() : end.Answer()) return *answer;
  if (!open)
    if (const int ret = EnsureOpen(); ret < 0) return ret;
  return IsSource() ? Capture() : Play();
}

long DeviceBlock::Capture() {
  const FrameBuffer& stream = Stream();
  std::uint64_t gap = 0;
  if (!MakeRoom(stream.samplesPerFrame)) return -20;
  const std::size_t wanted = static_cast<std::size_t>(stream.samplesPerFrame);
  const std::size_t samples = queue->WaitForCapture(wanted, gap);
  clock.Advance(static_cast<long long>(gap));
  if (samples == 0) return Late();
  lateFrames = 0;
  const std::size_t sampleBytes = stream.channels * BytesPerSample(stream.format);
  queue->TakeCaptured(samples, [&](const float* from, std::size_t first, std::size_t n) {
    Encode(stream.format, from, Out().data + first * sampleBytes, n * stream.channels);
  });
  const long long time = clock.Now(stream.rate);
  clock.Advance(static_cast<long long>(samples));
  return end.Send(static_cast<long>(samples), time, false);
}

long DeviceBlock::Play() {
  const FrameBuffer in = Frame();
  const std::size_t sampleBytes = in.channels * BytesPerSample(in.format);
  const std::size_t samples = static_cast<std::size_t>(in.validSamples);
  // After a time-out the rest of the same frame follows.
  while (done < samples) {
    if (!queue->WaitToPlay()) return Late();
    for (std::size_t room = queue->RoomToPlay(); room > 0 && done < samples;) {
      const std::size_t n = std::min({room, samples - done, PIECE});
      Decode(in.format, in.data + done * sampleBytes, scratch.data(), n * in.channels);
      queue->Play(n, [&](float* to, std::size_t first, std::size_t count) {
        std::copy_n(&scratch[first * in.channels], count * in.channels, to);
      });
      done += n;
      room -= n;
    }
  }
  lateFrames = 0;
  done = 0;
  end.Take();
  return 0;
}

long DeviceBlock::Late() {
  if (!queue->Gone() && !Alive()) queue->SetGone();
  if (queue->Gone()) return Refuse("ProcessFrame", DeviceName() + " is gone");
  ++lateFrames;
  if (!Stalled()) return FRAME_TIMEOUT;
  return Refuse("ProcessFrame", DeviceName() + " does not answer any more");
}

bool IsSourceOrSink(const char* tag, bool first, bool last) {
  if (first != last) return true;
  vantrel_print(0, 0, 0, 'E', tag, __LINE__, "CreateBlock", nullptr,
                "is a source when created first, a sink when created last, and nothing else");
  return false;
}

}  // namespace zelk::blocks
