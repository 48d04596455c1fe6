#include "Text.h"

#include <algorithm>

namespace vosh {

namespace {

constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";

// A sequence that is valid but moves the cursor or starts a command: C0, DEL and C1.
bool IsControl(std::string_view sequence) {
  const auto first = static_cast<unsigned char>(sequence[0]);
  if (sequence.size() == 1) return first < 0x20 || first == 0x7F;
  return first == 0xC2 && static_cast<unsigned char>(sequence[1]) < 0xA0;
}

std::size_t ExpectedLength(unsigned char first) {
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first < 0xE0) return 2;
  if (first >= 0xE0 && first < 0xF0) return 3;
  if (first >= 0xF0 && first < 0xF5) return 4;
  return 0;
}

// Overlong forms, surrogates and values past U+10FFFF show in the second byte.
bool IsSecondByteAllowed(unsigned char first, unsigned char second) {
  switch (first) {
    case 0xE0:
      return second >= 0xA0;
    case 0xED:
      return second < 0xA0;
    case 0xF0:
      return second >= 0x90;
    case 0xF4:
      return second < 0x90;
    default:
      return true;
  }
}

}  // namespace

std::vector<std::string> SplitWords(std::string_view line) {
  std::vector<std::string> words;
  std::size_t begin = line.find_first_not_of(kWhiteSpace);
  while (begin != std::string_view::npos) {
    const std::size_t end = std::min(line.find_first_of(kWhiteSpace, begin), line.size());
    words.emplace_back(line.substr(begin, end - begin));
    begin = line.find_first_not_of(kWhiteSpace, end);
  }
  return words;
}

std::string JoinWords(const std::vector<std::string>& words, std::size_t from) {
  std::string line;
  for (std::size_t i = from; i < words.size(); ++i) {
    if (i > from) line += ' ';
    line += words[i];
  }
  return line;
}

std::size_t Utf8Length(std::string_view text) noexcept {
  if (text.empty()) return 0;
  const auto first = static_cast<unsigned char>(text[0]);
  const std::size_t length = ExpectedLength(first);
  if (length == 0 || length > text.size()) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if ((byte & 0xC0) != 0x80 || (i == 1 && !IsSecondByteAllowed(first, byte))) return 0;
  }
  return length;
}

std::string Printable(std::string_view text) {
  static constexpr char kHex[] = "0123456789abcdef";
  std::string out;
  while (!text.empty()) {
    const std::size_t valid = Utf8Length(text);
    const std::string_view sequence = text.substr(0, valid == 0 ? 1 : valid);
    const bool layout = sequence == "\n" || sequence == "\t";
    if (layout || (valid != 0 && !IsControl(sequence))) {
      out += sequence;
    } else {
      for (const char c : sequence) {
        const auto byte = static_cast<unsigned char>(c);
        out += "\\x";
        out += kHex[byte >> 4];
        out += kHex[byte & 15];
      }
    }
    text.remove_prefix(sequence.size());
  }
  return out;
}

std::string Clip(std::string_view text, std::size_t columns) {
  std::size_t bytes = 0;
  for (std::size_t used = 0; used < columns && bytes < text.size(); ++used) {
    bytes += std::max<std::size_t>(1, Utf8Length(text.substr(bytes)));
  }
  return std::string(text.substr(0, bytes));
}

}  // namespace vosh
