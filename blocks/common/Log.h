// The stock blocks' door to the logging library.
//
// A block's file names its tag once:  static constexpr char LOG_TAG[] = "blocks/gain";
#pragma once

#include <vantrel.h>

// In a lambda the function's name is to be given.
#define BLOCK_LOG_AS(level, function, ...) \
  vantrel_print(0, 0, 0, level, LOG_TAG, __LINE__, function, nullptr, __VA_ARGS__)
#define BLOCK_LOG(level, ...) BLOCK_LOG_AS(level, __func__, __VA_ARGS__)

#define LOG_E(...) BLOCK_LOG('E', __VA_ARGS__)
#define LOG_W(...) BLOCK_LOG('W', __VA_ARGS__)
#define LOG_I(...) BLOCK_LOG('I', __VA_ARGS__)
#define LOG_D(...) BLOCK_LOG('D', __VA_ARGS__)
