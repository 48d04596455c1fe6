// bench_loop IN OUT: adds up all inputs, halved, as one loop per input that the compiler
// vectorises: what a stock block of the same task would be if it could do nothing else.
#include <zelk/Block.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

namespace {

using zelk::SampleFormat;

// Rounds to nearest: the sum's lowest bits are the integer.
inline std::int32_t Round(float value) {
  return std::bit_cast<std::int32_t>(value + 0x1.8p23F) - 0x4B400000;
}
inline std::int32_t Round(double value) {
  return static_cast<std::int32_t>(
      static_cast<std::uint32_t>(std::bit_cast<std::uint64_t>(value + 0x1.8p52)));
}

// The narrowest arithmetic that keeps every value of the format is `Real`; 24 bits are rounded in
// double, since the float's sum has no room for them.
template <int BITS>
struct Integer {
  using Real = std::conditional_t<BITS == 32, double, float>;
  using Rounded = std::conditional_t<BITS == 16, float, double>;
  static constexpr std::size_t BYTES = BITS / 8;
  static constexpr double SCALE = static_cast<double>(1LL << (BITS - 1));

  template <typename Sum>
  static Sum Load(const unsigned char* bytes) {
    std::int32_t value = 0;
    if constexpr (BITS == 24) {
      value =
          static_cast<std::int32_t>(std::uint32_t{bytes[0]} << 8 | std::uint32_t{bytes[1]} << 16 |
                                    std::uint32_t{bytes[2]} << 24) >>
          8;
    } else {
      std::conditional_t<BITS == 16, std::int16_t, std::int32_t> stored;
      std::memcpy(&stored, bytes, sizeof stored);
      value = stored;
    }
    return static_cast<Sum>(value) * static_cast<Sum>(1 / SCALE);
  }

  template <typename Sum>
  static void Store(unsigned char* bytes, Sum value) {
    constexpr auto scale = static_cast<Rounded>(SCALE);
    Rounded scaled = static_cast<Rounded>(value) * scale;
    scaled = scaled < -scale ? -scale : scaled;
    scaled = scaled > scale - 1 ? scale - 1 : scaled;
    const std::int32_t rounded = Round(scaled);
    if constexpr (BITS == 24) {
      bytes[0] = static_cast<unsigned char>(rounded);
      bytes[1] = static_cast<unsigned char>(rounded >> 8);
      bytes[2] = static_cast<unsigned char>(rounded >> 16);
    } else {
      const auto stored =
          static_cast<std::conditional_t<BITS == 16, std::int16_t, std::int32_t>>(rounded);
      std::memcpy(bytes, &stored, sizeof stored);
    }
  }
};

struct Float {
  using Real = float;
  static constexpr std::size_t BYTES = 4;
  template <typename Sum>
  static Sum Load(const unsigned char* bytes) {
    float value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
  }
  template <typename Sum>
  static void Store(unsigned char* bytes, Sum sum) {
    const auto value = static_cast<float>(sum);
    std::memcpy(bytes, &value, sizeof value);
  }
};

using Loop = void (*)(unsigned char* out, const unsigned char* const* ins, std::size_t inputs,
                      std::size_t count);

template <typename In, typename Out>
using Sum = std::common_type_t<typename In::Real, typename Out::Real>;

template <typename In, typename Out>
void One(unsigned char* __restrict out, const unsigned char* __restrict a, std::size_t count) {
  using Real = Sum<In, Out>;
  for (std::size_t i = 0; i < count; ++i)
    Out::Store(out + i * Out::BYTES, Real{0.5} * In::template Load<Real>(a + i * In::BYTES));
}

template <typename In, typename Out>
void Two(unsigned char* __restrict out, const unsigned char* __restrict a,
         const unsigned char* __restrict b, std::size_t count) {
  using Real = Sum<In, Out>;
  for (std::size_t i = 0; i < count; ++i) {
    const Real sum =
        In::template Load<Real>(a + i * In::BYTES) + In::template Load<Real>(b + i * In::BYTES);
    Out::Store(out + i * Out::BYTES, Real{0.5} * sum);
  }
}

template <typename In, typename Out>
void AddUp(unsigned char* out, const unsigned char* const* ins, std::size_t inputs,
           std::size_t count) {
  if (inputs == 1) {
    One<In, Out>(out, ins[0], count);
  } else {
    Two<In, Out>(out, ins[0], ins[1], count);
  }
}

template <typename In>
Loop For(const std::string& out) {
  if (out == "S16_LE") return AddUp<In, Integer<16>>;
  if (out == "S24_3LE") return AddUp<In, Integer<24>>;
  if (out == "S32_LE") return AddUp<In, Integer<32>>;
  return AddUp<In, Float>;
}

Loop For(const std::string& in, const std::string& out) {
  if (in == "S16_LE") return For<Integer<16>>(out);
  if (in == "S24_3LE") return For<Integer<24>>(out);
  if (in == "S32_LE") return For<Integer<32>>(out);
  return For<Float>(out);
}

class LoopBlock final : public zelk::Block {
 public:
  LoopBlock(bool first, bool last, Loop body) : Block(first, last), loop(body) {}

  long ProcessFrame() override {
    const unsigned char* ins[2] = {};
    std::size_t inputs = 0;
    for (; inputs < 2 && inEps[inputs].IsActive(); ++inputs)
      ins[inputs] = inEps[inputs].FB()->data;
    zelk::FrameBuffer& in = *inEps[0].FB();
    zelk::FrameBuffer& out = *outEps[0].FB();
    loop(out.data, ins, inputs, static_cast<std::size_t>(in.validSamples) * in.channels);
    out.timestamp = in.timestamp;
    out.validSamples = in.validSamples;
    ClearActiveInEpsData();
    return 0;
  }

 private:
  const Loop loop;
};

}  // namespace

ZELK_PLUGIN zelk::Block* CreateBlock(bool first, bool last, const std::vector<std::string>& args) {
  return args.size() == 2 ? new LoopBlock(first, last, For(args[0], args[1])) : nullptr;
}
