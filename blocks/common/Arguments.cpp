#include "common/Arguments.h"

#include <charconv>
#include <cmath>
#include <locale>
#include <sstream>

namespace zelk::blocks {
namespace {

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::optional<std::string> PercentDecode(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out += text[i];
      continue;
    }
    const int high = i + 2 < text.size() ? HexDigit(text[i + 1]) : -1;
    const int low = i + 2 < text.size() ? HexDigit(text[i + 2]) : -1;
    if (high < 0 || low < 0 || (high == 0 && low == 0)) return std::nullopt;
    out += static_cast<char>(high * 16 + low);
    i += 2;
  }
  return out;
}

}  // namespace

std::optional<double> ParseNumber(std::string_view word) {
  if (word.starts_with('+') && !word.starts_with("+-")) word.remove_prefix(1);
  double value = 0;
#if defined(__cpp_lib_to_chars)
  const char* const end = word.data() + word.size();
  const auto [stop, error] = std::from_chars(word.data(), end, value);
  if (error != std::errc{} || stop != end) return std::nullopt;
#else
  std::istringstream stream{std::string(word)};
  stream.imbue(std::locale::classic());
  stream >> std::noskipws >> value;
  if (!stream || stream.peek() != std::istringstream::traits_type::eof()) return std::nullopt;
#endif
  if (!std::isfinite(value)) return std::nullopt;
  return value;
}

std::optional<double> ParseNumber(std::string_view word, double min, double max) {
  const auto value = ParseNumber(word);
  if (!value || *value < min || *value > max) return std::nullopt;
  return value;
}

std::string FormatNumber(double value) {
#if defined(__cpp_lib_to_chars)
  char text[32];
  const auto [end, error] = std::to_chars(text, text + sizeof(text), value);
  return error == std::errc{} ? std::string(text, end) : std::string("?");
#else
  std::ostringstream stream;
  stream.imbue(std::locale::classic());
  stream.precision(15);
  stream << value;
  return stream.str();
#endif
}

std::optional<std::pair<std::string, std::string>> SplitKeyValue(std::string_view word) {
  const std::size_t at = word.find('=');
  if (at == std::string_view::npos || at == 0) return std::nullopt;
  return std::pair{std::string(word.substr(0, at)), std::string(word.substr(at + 1))};
}

std::optional<std::string> PathFromWord(std::string_view word) {
  constexpr std::string_view scheme = "file:";
  if (!word.starts_with(scheme)) {
    if (word.empty() || word.find('\0') != std::string_view::npos) return std::nullopt;
    return std::string(word);
  }
  word.remove_prefix(scheme.size());
  if (word.starts_with("//")) {
    word.remove_prefix(2);
    const std::string_view host = word.substr(0, word.find('/'));
    if (!host.empty() && host != "localhost") return std::nullopt;
    word.remove_prefix(host.size());
  }
  if (word.empty()) return std::nullopt;
  return PercentDecode(word);
}

}  // namespace zelk::blocks
