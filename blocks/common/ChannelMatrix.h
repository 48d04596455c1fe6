// From any number of channels to any other, by a matrix of factors that may change without a click.
#pragma once

#include "common/Level.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace zelk::blocks {

/// [route-thread]; real-time safe but for `Begin()`.
class ChannelMatrix {
 public:
  /// Equal channels pass as they are. Otherwise output channel o is the mean of the input channels
  /// o, o + outputs, ..., or, when there are fewer inputs, input channel o modulo inputs: mono goes
  /// to all channels, and all channels are averaged to mono.
  void Begin(unsigned int inputs, unsigned int outputs) {
    ins = inputs;
    outs = outputs;
    target.assign(ins * outs, 0);
    for (std::size_t o = 0; ins > 0 && o < outs; ++o) {
      const std::size_t parts = o < ins ? (ins - o + outs - 1) / outs : 1;
      for (std::size_t p = 0; p < parts; ++p)
        target[o * ins + o % ins + p * outs] = 1.0 / static_cast<double>(parts);
    }
    before = now = target;
    Settle();
  }

  /// The factors of all inputs for each output in turn.
  const std::vector<double>& Factors() const { return target; }

  /// Reaches `factors`, as many as there are, in `samples` samples.
  void MoveTo(const std::vector<double>& factors, long long samples) {
    std::copy(now.begin(), now.end(), before.begin());
    std::copy(factors.begin(), factors.end(), target.begin());
    change.Jump(0);
    change.MoveTo(1, samples);
    if (samples <= 0) Settle();
    identity = IsIdentity();
  }

  /// Reaches them at once.
  void Settle() {
    std::copy(target.begin(), target.end(), now.begin());
    change.Jump(1);
    identity = IsIdentity();
  }

  /// Whether channels pass as they are.
  bool Passes() const { return identity && !change.Moving(); }

  template <class Real>
  void Multiply(const Real* in, Real* out, std::size_t samples) {
    for (; samples > 0 && change.Moving(); --samples, in += ins, out += outs) {
      const double part = change.Next();
      for (std::size_t k = 0; k < now.size(); ++k)
        now[k] = change.Moving() ? before[k] + (target[k] - before[k]) * part : target[k];
      Product(in, out, 1, ins, outs);
    }
    // Loops of known length vectorise.
    if (ins == 1 && outs == 2) return Product(in, out, samples, Fixed<1>(), Fixed<2>());
    if (ins == 2 && outs == 1) return Product(in, out, samples, Fixed<2>(), Fixed<1>());
    if (ins == 2 && outs == 2) return Product(in, out, samples, Fixed<2>(), Fixed<2>());
    Product(in, out, samples, ins, outs);
  }

 private:
  template <std::size_t N>
  struct Fixed {
    constexpr operator std::size_t() const { return N; }
  };

  template <class Real, class Ins, class Outs>
  void Product(const Real* __restrict in, Real* __restrict out, std::size_t samples, Ins inputs,
               Outs outputs) const {
    const double* const factors = now.data();
    for (std::size_t i = 0; i < samples; ++i) {
      for (std::size_t o = 0; o < outputs; ++o) {
        Real sum = 0;
        for (std::size_t c = 0; c < inputs; ++c)
          sum += static_cast<Real>(factors[o * inputs + c]) * in[i * inputs + c];
        out[i * outputs + o] = sum;
      }
    }
  }

  bool IsIdentity() const {
    if (ins != outs) return false;
    for (std::size_t k = 0; k < target.size(); ++k)
      if (target[k] != (k / ins == k % ins ? 1 : 0)) return false;
    return true;
  }

  std::size_t ins = 0;
  std::size_t outs = 0;
  std::vector<double> target;
  std::vector<double> before;
  std::vector<double> now;
  Ramp change{1};  // from before to the target
  bool identity = true;
};

}  // namespace zelk::blocks
