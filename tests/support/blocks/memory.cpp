// memory ADDRESS: plays, or hears, the test::Memory at that address in this process.
#include "../Memory.h"
#include "common/StockBlock.h"

namespace {

using namespace zelk;
using namespace zelk::blocks;

class MemorySource final : public StockBlock {
 public:
  MemorySource(bool first, bool last, test::Memory& m)
      : StockBlock("tests/memory", first, last, 0, 1), memory(m) {}

  int Start() override {
    at = frames = 0;
    return StockBlock::Start();
  }

  long ProcessFrame() override {
    if (auto answer = end.SourceAnswer()) return *answer;
    const std::size_t unit = OutLink().channels * BytesPerSample(OutLink().format);
    const std::size_t total = memory.bytes.size() / unit;
    const long wanted = memory.sizes[frames % memory.sizes.size()];
    const long samples = std::min(wanted, static_cast<long>(total - at));
    if (!MakeRoom(samples)) return -20;
    std::memcpy(Out().data, memory.bytes.data() + at * unit,
                static_cast<std::size_t>(samples) * unit);
    const long long time = static_cast<long long>(at) * 1'000'000 / OutLink().rate;
    at += static_cast<std::size_t>(samples);
    const long ret = end.Send(samples, time, at == total);
    if (memory.before) memory.before(frames, Out());
    ++frames;
    return ret;
  }

 private:
  test::Memory& memory;
  std::size_t at = 0;
  std::size_t frames = 0;
};

class MemorySink final : public StockBlock {
 public:
  MemorySink(bool first, bool last, test::Memory& m)
      : StockBlock("tests/memory", first, last, 1, 0), memory(m) {}

  long ProcessFrame() override {
    if (auto answer = end.Answer()) return *answer;
    const FrameBuffer in = Frame();
    const std::size_t bytes =
        static_cast<std::size_t>(in.validSamples) * in.channels * BytesPerSample(in.format);
    memory.bytes.insert(memory.bytes.end(), in.data, in.data + bytes);
    memory.sizes.push_back(in.validSamples);
    memory.times.push_back(TimeOf(in.timestamp));
    end.Take();
    if (memory.before) memory.before(memory.sizes.size(), *inEps[0].FB());
    return 0;
  }

 private:
  test::Memory& memory;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  auto& memory = *reinterpret_cast<test::Memory*>(std::stoull(args.at(0)));
  if (first) return new MemorySource(first, last, memory);
  return new MemorySink(first, last, memory);
}
