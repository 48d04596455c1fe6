// bench_loop gain|mixer|convert IN OUT: the task of a stock block as the plain loop that one would
// write for these two formats alone, in a form that the compiler vectorises: the input halved, the
// sum of two inputs halved, or the input as it is. It knows no channels, no levels that move, no
// NaN.
#include <zelk/Block.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <type_traits>

namespace {

using Byte = unsigned char;
constexpr auto LITTLE = std::endian::little;
constexpr auto BIG = std::endian::big;

template <typename Word, std::endian ORDER>
struct Integer {
  static constexpr int BITS = 8 * sizeof(Word);
  static constexpr std::size_t BYTES = sizeof(Word);
  // Not the built-in functions: what the compiler takes for a byte swap it does not vectorise.
  static Word Swap(Word word) {
    if constexpr (ORDER == std::endian::native || BYTES == 1) return word;
    if constexpr (BYTES == 2) return static_cast<Word>(word << 8 | word >> 8);
    std::uint32_t halves = word;
    halves = (halves >> 8 & 0xFF00FF) | (halves & 0xFF00FF) * 256;
    return static_cast<Word>(halves << 16 | halves >> 16);
  }
  static std::make_signed_t<Word> Load(const Byte* p) {
    Word word;
    std::memcpy(&word, p, BYTES);
    return static_cast<std::make_signed_t<Word>>(Swap(word));
  }
  static void Store(Byte* p, std::int32_t value) {
    const Word word = Swap(static_cast<Word>(value));
    std::memcpy(p, &word, BYTES);
  }
};

template <std::endian ORDER>
struct Float {
  static constexpr int BITS = 0;
  static constexpr std::size_t BYTES = 4;
  using Bits = Integer<std::uint32_t, ORDER>;
  static float Load(const Byte* p) { return std::bit_cast<float>(Bits::Load(p)); }
  static void Store(Byte* p, float value) { Bits::Store(p, std::bit_cast<std::int32_t>(value)); }
};

// Between the loops, packed 24 bits are the lower bits of words.
struct Word24 : Integer<std::uint32_t, std::endian::native> {
  static constexpr int BITS = 24;
};
template <std::endian ORDER>
struct Packed24 {
  static constexpr std::size_t BYTES = 3;
};

// Adding a large number rounds, and leaves the integer in the sum's lowest bits.
template <int BITS>
std::int32_t Round(float value) {
  if constexpr (BITS <= 16) return std::bit_cast<std::int32_t>(value + 0x1.8p23F);
  const float large = value < 0 ? -0x1p23F : 0x1p23F;
  return static_cast<std::int32_t>((value + large) - large);
}
template <int BITS>
std::int32_t Round(double value) {
  return static_cast<std::int32_t>(
      static_cast<std::uint32_t>(std::bit_cast<std::uint64_t>(value + 0x1.8p52)));
}

template <typename Out, typename Sum>
void Put(Byte* out, Sum value) {
  if constexpr (Out::BITS == 0) {
    Out::Store(out, static_cast<float>(value));
  } else {
    constexpr auto scale = static_cast<Sum>(1LL << (Out::BITS - 1));
    Out::Store(out, Round<Out::BITS>(std::min(std::max(value, -scale), scale - 1)));
  }
}

template <typename In, typename Out>
using Sum = std::conditional_t<(Out::BITS == 32), double, float>;
template <typename Codec>
constexpr double SCALE = Codec::BITS == 0 ? 1 : static_cast<double>(1LL << (Codec::BITS - 1));

struct Gain {
  template <typename In, typename Out>
  static void Loop(Byte* __restrict out, const Byte* __restrict a, const Byte*, std::size_t count) {
    using Real = Sum<In, Out>;
    for (std::size_t i = 0; i < count; ++i)
      Put<Out>(out + i * Out::BYTES, Real{0.5} * static_cast<Real>(In::Load(a + i * In::BYTES)));
  }
};

struct Mixer {
  template <typename In, typename Out>
  static void Loop(Byte* __restrict out, const Byte* __restrict a, const Byte* __restrict b,
                   std::size_t count) {
    using Real = Sum<In, Out>;
    for (std::size_t i = 0; i < count; ++i) {
      const Real sum = static_cast<Real>(In::Load(a + i * In::BYTES)) +
                       static_cast<Real>(In::Load(b + i * In::BYTES));
      Put<Out>(out + i * Out::BYTES, Real{0.5} * sum);
    }
  }
};

struct Convert {
  template <typename In, typename Out>
  static void Loop(Byte* __restrict out, const Byte* __restrict a, const Byte*, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      const auto value = In::Load(a + i * In::BYTES);
      if constexpr (In::BITS == 0 || Out::BITS == 0) {
        using Real = Sum<In, Out>;
        constexpr Real factor = static_cast<Real>(SCALE<Out> / SCALE<In>);
        Put<Out>(out + i * Out::BYTES, static_cast<Real>(value) * factor);
      } else if constexpr (Out::BITS < In::BITS) {
        constexpr int drop = In::BITS - Out::BITS;
        using Number = decltype(In::Load(a));
        constexpr Number half = 1 << (drop - 1);
        constexpr Number most = static_cast<Number>((1LL << (In::BITS - 1)) - 1 - half);
        Out::Store(out + i * Out::BYTES,
                   (std::min(value, most) + (half - 1) + (value >> drop & 1)) >> drop);
      } else {
        Out::Store(out + i * Out::BYTES, static_cast<std::int32_t>(static_cast<std::uint32_t>(value)
                                                                   << (Out::BITS - In::BITS)));
      }
    }
  }
};

template <typename Codec>
struct Plain {
  using Type = Codec;
};
template <std::endian ORDER>
struct Plain<Packed24<ORDER>> {
  using Type = Word24;
};

// One word is read or written per sample, four in a row; the last ones have no byte to spare. Bytes
// are swapped by the built-in function here, since nothing is vectorised.
template <std::endian ORDER>
std::int32_t LoadWord(const Byte* p) {
  std::uint32_t word;
  std::memcpy(&word, p, 4);
  if constexpr (ORDER != std::endian::native) word = __builtin_bswap32(word);
  return static_cast<std::int32_t>(ORDER == BIG ? word : word << 8) >> 8;
}
template <std::endian ORDER>
void StoreWord(Byte* p, std::int32_t value) {
  std::uint32_t word = static_cast<std::uint32_t>(value) << (ORDER == BIG ? 8 : 0);
  if constexpr (ORDER != std::endian::native) word = __builtin_bswap32(word);
  std::memcpy(p, &word, 4);
}

template <typename Codec>
const Byte* Unpack(const Byte* from, std::int32_t*, std::size_t, Codec) {
  return from;
}
template <std::endian ORDER>
const Byte* Unpack(const Byte* from, std::int32_t* to, std::size_t count, Packed24<ORDER>) {
  std::size_t i = 0;
  for (; i + 4 < count; i += 4)
    for (std::size_t k = i; k < i + 4; ++k)
      to[k] = LoadWord<ORDER>(from + 3 * k);
  for (; i < count; ++i) {
    Byte last[4] = {};
    std::memcpy(last, from + 3 * i, 3);
    to[i] = LoadWord<ORDER>(last);
  }
  return reinterpret_cast<const Byte*>(to);
}

template <typename Codec>
void Pack(const std::int32_t*, Byte*, std::size_t, Codec) {}
template <std::endian ORDER>
void Pack(const std::int32_t* from, Byte* to, std::size_t count, Packed24<ORDER>) {
  std::size_t i = 0;
  for (; i + 4 < count; i += 4)
    for (std::size_t k = i; k < i + 4; ++k)
      StoreWord<ORDER>(to + 3 * k, from[k]);
  for (; i < count; ++i) {
    Byte last[4];
    StoreWord<ORDER>(last, from[i]);
    std::memcpy(to + 3 * i, last, 3);
  }
}

using Loop = void (*)(Byte* out, const Byte* a, const Byte* b, std::size_t count);

/// `Task`'s loop over all samples; packed ones, which do not vectorise, in pieces of words.
template <typename Task, typename In, typename Out>
void Whole(Byte* out, const Byte* a, const Byte* b, std::size_t count) {
  using PlainIn = typename Plain<In>::Type;
  using PlainOut = typename Plain<Out>::Type;
  constexpr bool packs = !std::is_same_v<Out, PlainOut>;
  constexpr bool plain = std::is_same_v<In, PlainIn> && !packs;
  if constexpr (plain) return Task::template Loop<In, Out>(out, a, b, count);
  std::int32_t one[512], two[512], sum[512];
  for (std::size_t n; count > 0; count -= n) {
    n = std::min(count, std::size(one));
    const Byte* const first = Unpack(a, one, n, In());
    const Byte* const second = b == nullptr ? nullptr : Unpack(b, two, n, In());
    Task::template Loop<PlainIn, PlainOut>(packs ? reinterpret_cast<Byte*>(sum) : out, first,
                                           second, n);
    Pack(sum, out, n, Out());
    a += n * In::BYTES;
    if (b != nullptr) b += n * In::BYTES;
    out += n * Out::BYTES;
  }
}

template <typename Use>
Loop With(const std::string& format, Use use) {
  if (format == "S16_LE") return use(Integer<std::uint16_t, LITTLE>());
  if (format == "S16_BE") return use(Integer<std::uint16_t, BIG>());
  if (format == "S24_3LE") return use(Packed24<LITTLE>());
  if (format == "S24_3BE") return use(Packed24<BIG>());
  if (format == "S32_LE") return use(Integer<std::uint32_t, LITTLE>());
  if (format == "S32_BE") return use(Integer<std::uint32_t, BIG>());
  if (format == "FLOAT_LE") return use(Float<LITTLE>());
  if (format == "FLOAT_BE") return use(Float<BIG>());
  return use(Integer<std::uint8_t, LITTLE>());
}

Loop For(const std::string& task, const std::string& in, const std::string& out) {
  return With(in, [&](auto from) {
    using In = decltype(from);
    if (task == "gain") return Loop(Whole<Gain, In, In>);
    if (task == "mixer") return Loop(Whole<Mixer, In, In>);
    return With(out, [](auto to) { return Loop(Whole<Convert, In, decltype(to)>); });
  });
}

class LoopBlock final : public zelk::Block {
 public:
  LoopBlock(bool first, bool last, Loop body) : Block(first, last), loop(body) {}

  long ProcessFrame() override {
    zelk::FrameBuffer& in = *inEps[0].FB();
    zelk::FrameBuffer& out = *outEps[0].FB();
    loop(out.data, in.data, inEps[1].IsActive() ? inEps[1].FB()->data : nullptr,
         static_cast<std::size_t>(in.validSamples) * in.channels);
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
  if (args.size() != 3) return nullptr;
  return new LoopBlock(first, last, For(args[0], args[1], args[2]));
}
