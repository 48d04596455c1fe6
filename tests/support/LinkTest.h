// Two blocks and the ports that a test joins, without a route.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Link/Link.h"
#include "support/LogRecorder.h"
#include "support/ScriptedBlock.h"

namespace test {

using Lines = std::vector<std::string>;

/// Output 3 of "src" and input 5 of "dst" are free to be joined.
class LinkTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Scripts().clear();
    Make();
  }
  // Blocks read their scripts when they are made.
  void Make() {
    source = std::make_unique<ScriptedBlock>("src", true, false);
    sink = std::make_unique<ScriptedBlock>("dst", false, true);
    source->SetName("RouteA", "src_0", &dumpPath);
    sink->SetName("RouteA", "dst_0", &dumpPath);
    out = source->OutEp(3);
    in = sink->InEp(5);
    TakeTrace();
  }
  std::unique_ptr<zelk::Link> NewLink(zelk::SampleFormat format, unsigned channels, long samples,
                                      const char* name = "lnk_0") {
    return std::make_unique<zelk::Link>("RouteA", name, 48000, format, channels, samples);
  }
  void ExpectInactive() {
    EXPECT_FALSE(out->IsActive());
    EXPECT_FALSE(in->IsActive());
    EXPECT_TRUE(source->ActiveOutEps().empty());
    EXPECT_TRUE(sink->ActiveInEps().empty());
  }

  std::string dumpPath;
  std::unique_ptr<ScriptedBlock> source, sink;
  zelk::OutputEndpoint* out = nullptr;
  zelk::InputEndpoint* in = nullptr;
};

}  // namespace test
