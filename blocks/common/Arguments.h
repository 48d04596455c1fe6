// The words a block is created with, read the same way whatever the process's locale.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace zelk::blocks {

/// A finite decimal number ("-6", "+1.5", "1e3") that fills the whole word; nothing for any other
/// word. [any-thread]
std::optional<double> ParseNumber(std::string_view word);

/// The same, and within `min` to `max`.
std::optional<double> ParseNumber(std::string_view word, double min, double max);

/// The shortest text that reads back as `value`, with a point whatever the locale.
std::string FormatNumber(double value);

/// Splits "key=value" at the first '='; nothing when there is none or the key is empty.
std::optional<std::pair<std::string, std::string>> SplitKeyValue(std::string_view word);

/// The path a word names: itself, or, for a "file:" URL ("file:///a%20b.wav", "file:a.wav"), its
/// percent-decoded path. Nothing for an empty path, a host other than "localhost", a broken
/// percent sign, or a decoded zero byte.
std::optional<std::string> PathFromWord(std::string_view word);

}  // namespace zelk::blocks
