// The binary interface that symbol names do not show: order of virtual operations, sizes, values.
#include <gtest/gtest.h>
#include <zelk/Zelk.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace {

using namespace zelk;

// In the Itanium ABI a pointer to a virtual member function holds its place in the table.
template <typename Function>
std::size_t Slot(Function function) {
  std::size_t word = 0;
  std::memcpy(&word, &function, sizeof(word));
#if defined(__aarch64__) || defined(__arm__)
  return word / sizeof(void*);
#else
  return (word - 1) / sizeof(void*);
#endif
}

TEST(Abi, VirtualOperationsKeepTheirPlaces) {
  // Destructors take two places: after ioctl in a block, else first.
  EXPECT_EQ(0u, Slot(&Block::ioctl));
  EXPECT_EQ(3u, Slot(&Block::Subname));
  EXPECT_EQ(4u, Slot(&Block::OnInEpLinked));
  EXPECT_EQ(5u, Slot(&Block::OnInEpUnlinked));
  EXPECT_EQ(6u, Slot(&Block::OnOutEpLinked));
  EXPECT_EQ(7u, Slot(&Block::OnOutEpUnlinked));
  EXPECT_EQ(8u, Slot(&Block::Start));
  EXPECT_EQ(9u, Slot(&Block::ProcessFrame));
  EXPECT_EQ(10u, Slot(&Block::Stop));
  EXPECT_EQ(11u, Slot(&Block::SetParameter));
  EXPECT_EQ(12u, Slot(&Block::GetParameter));
  EXPECT_EQ(13u, Slot(&Block::Reset));
  EXPECT_EQ(14u, Slot(&Block::Delay));

  EXPECT_EQ(2u, Slot(&Route::NewBlock));
  EXPECT_EQ(3u, Slot(&Route::NewLink));
  EXPECT_EQ(4u, Slot(&Route::Start));
  EXPECT_EQ(5u, Slot(&Route::SetParameter));
  EXPECT_EQ(6u, Slot(&Route::GetParameter));
  EXPECT_EQ(7u, Slot(&Route::Reset));
  EXPECT_EQ(8u, Slot(&Route::Stop));
  EXPECT_EQ(9u, Slot(&Route::Delete));
  EXPECT_EQ(10u, Slot(&Route::DeleteAll));
  EXPECT_EQ(11u, Slot(&Route::SetDump));
  EXPECT_EQ(12u, Slot(&Route::ExecuteActions));
  EXPECT_EQ(0u, Slot(&Route::Callbacks::OnStarted));
  EXPECT_EQ(1u, Slot(&Route::Callbacks::OnStopped));
  EXPECT_EQ(2u, Slot(&Route::Callbacks::OnExit));

  EXPECT_EQ(0u, Slot(&Zelk::NewRoute));
  EXPECT_EQ(1u, Slot(&Zelk::DeleteRoute));
  EXPECT_EQ(2u, Slot(&Zelk::NewFIFO));
  EXPECT_EQ(3u, Slot(&Zelk::DeleteFIFO));
  EXPECT_EQ(2u, Slot(&DataProducer::Produce));
  EXPECT_EQ(2u, Slot(&DataConsumer::Consume));
  EXPECT_EQ(3u, Slot(&FIFO::Shutdown));
}

TEST(Abi, TypesKeepTheirSizes) {
  if (sizeof(void*) != 8) GTEST_SKIP() << "the sizes of 64 bit machines";
  EXPECT_EQ(48u, sizeof(FrameBuffer));
  EXPECT_EQ(32u, offsetof(FrameBuffer, rate));
  EXPECT_EQ(64u, sizeof(Route::NewLinkAction));
  EXPECT_EQ(72u, sizeof(Route::Action));
  EXPECT_EQ(8u, offsetof(Route::Action, newLink));
  EXPECT_EQ(88u, sizeof(InputEndpoint));
  EXPECT_EQ(88u, sizeof(OutputEndpoint));
#if defined(__GLIBCXX__)
  EXPECT_EQ(64u, alignof(Block));
  EXPECT_EQ(6144u, sizeof(Block));
  EXPECT_EQ(80u, sizeof(FIFO));
#endif
}

}  // namespace
