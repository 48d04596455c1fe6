// Routes of stock blocks between memories.
#pragma once

#include "support/Memory.h"
#include "support/RouteFixture.h"

namespace test {

/// A route between memories.
class Graph : public RouteFixture {
 protected:
  using RouteFixture::Sink;
  using RouteFixture::Source;
  zelk::Block* Source(Memory& memory) { return New(Address(memory), true, false); }
  zelk::Block* Sink(Memory& memory) { return New(Address(memory), false, true); }

  /// Whether a block refuses such a link at one of its ports.
  bool RefusesInput(zelk::Block* to, unsigned long in, const Format& f) {
    return Refuses(to, in, f, true);
  }
  bool RefusesOutput(zelk::Block* from, unsigned long out, const Format& f) {
    return Refuses(from, out, f, false);
  }

  /// Why the route stopped; its blocks are gone afterwards unless they are to be kept.
  std::optional<zelk::Route::StopReason> Run(bool keep = false) {
    const auto reason = RouteFixture::Run();
    if (!keep) {
      EXPECT_EQ(0, route->DeleteAll());
    }
    return reason;
  }

  /// Source, one block, sink; returns what came out.
  Memory Through(const Words& words, Memory& source, const Format& in, const Format& out) {
    Memory sink;
    zelk::Block* const from = Source(source);
    block = New(words);
    EXPECT_NE(nullptr, block) << words[0];
    zelk::Block* const to = Sink(sink);
    EXPECT_TRUE(Join(from, 0, block, 0, in));
    EXPECT_TRUE(Join(block, 0, to, 0, out));
    EXPECT_EQ(zelk::Route::END_OF_FILE, Run());
    return sink;
  }

  double Parameter(zelk::Block* of, unsigned int id) {
    return std::stod(RouteFixture::Parameter(of, id).at(0));
  }

  zelk::Block* block = nullptr;

 private:
  bool Refuses(zelk::Block* tested, unsigned long port, const Format& f, bool input) {
    zelk::Block* const spare = New({"tee"});
    const bool joined = input ? Join(spare, 0, tested, port, f) : Join(tested, port, spare, 0, f);
    EXPECT_EQ(0, route->Delete(spare));
    return !joined;
  }
  static Words Address(Memory& memory) {
    return {"memory", std::to_string(reinterpret_cast<std::uintptr_t>(&memory))};
  }
};

}  // namespace test
