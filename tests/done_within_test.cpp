#include "common/DoneWithin.h"

#include <gtest/gtest.h>

namespace {

TEST(DoneWithin, LeavesWorkThatTakesTooLongAndCountsItUntilItEnds) {
  std::atomic<int> overdue = 0;
  EXPECT_TRUE(zelk::blocks::DoneWithin(
      std::chrono::seconds(60), [] {}, overdue));
  EXPECT_EQ(0, overdue);
  std::promise<void> go;
  const auto work = [held = go.get_future().share()] { held.wait(); };
  EXPECT_FALSE(zelk::blocks::DoneWithin(std::chrono::seconds(0), work, overdue));
  EXPECT_EQ(1, overdue);
  go.set_value();
  while (overdue != 0)
    std::this_thread::yield();
}

}  // namespace
