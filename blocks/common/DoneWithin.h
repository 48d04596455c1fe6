// For calls into libraries that may take for ever.
#pragma once

#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <future>
#include <memory>
#include <thread>

namespace zelk::blocks {

/// Runs `work` on a thread of its own; true when it ends within `limit`. Else it goes on by itself,
/// counted in `overdue` until it ends: the plug-in must stay loaded. Where no thread is to be had,
/// `work` runs on this one. [any-thread]
inline bool DoneWithin(std::chrono::seconds limit, const std::function<void()>& work,
                       std::atomic<int>& overdue) {
  struct State {
    std::promise<void> ended;
    std::atomic<bool> halfway = false;  // of the two sides the second does what is left
  };
  const auto state = std::make_shared<State>();
  std::thread thread;
  try {
    thread = std::thread([work, state, &overdue] {
      work();
      if (state->halfway.exchange(true)) --overdue;
      state->ended.set_value();
    });
  } catch (const std::exception&) {
    work();
    return true;
  }
  if (state->ended.get_future().wait_for(limit) == std::future_status::timeout) {
    ++overdue;
    if (!state->halfway.exchange(true)) {
      thread.detach();
      return false;
    }
    --overdue;
  }
  thread.join();
  return true;
}

}  // namespace zelk::blocks
