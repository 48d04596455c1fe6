// The one door to the logging library.
//
// A source file names its tag once, before it logs:   static constexpr char LOG_TAG[] =
// "src/Block"; The function name of a record is the name of the operation that it documents; in a
// lambda or a helper pass it explicitly through ZELK_LOG_AS.
#pragma once

#include <vantrel.h>

#define ZELK_LOG_AS(level, function, ...) \
  vantrel_print(0, 0, 0, level, LOG_TAG, __LINE__, function, nullptr, __VA_ARGS__)

#define LOG_E(...) ZELK_LOG_AS('E', __func__, __VA_ARGS__)
#define LOG_W(...) ZELK_LOG_AS('W', __func__, __VA_ARGS__)
#define LOG_I(...) ZELK_LOG_AS('I', __func__, __VA_ARGS__)
#define LOG_D(...) ZELK_LOG_AS('D', __func__, __VA_ARGS__)
#define LOG_V(...) ZELK_LOG_AS('V', __func__, __VA_ARGS__)
