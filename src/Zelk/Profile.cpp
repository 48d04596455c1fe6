#include <zelk/Profile.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

namespace {

constexpr int NOT_FOUND = -1;
constexpr std::size_t LONGEST_SECTION = 29;
constexpr std::size_t LONGEST_KEY = 31;

struct Close {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

std::size_t BlanksBefore(std::string_view text) {
  std::size_t count = 0;
  while (count < text.size() && std::isspace(static_cast<unsigned char>(text[count])))
    ++count;
  return count;
}

std::size_t LengthWithoutBlanksBehind(std::string_view text) {
  std::size_t length = text.size();
  while (length > 0 && std::isspace(static_cast<unsigned char>(text[length - 1])))
    --length;
  return length;
}

class Lines {
 public:
  explicit Lines(const char* path) : file(std::fopen(path, "re")) {}  // e: not for a forked child

  /// Reads the next line, or the next 255 characters of a longer one. False at the end, and when
  /// the file cannot be read: was never opened, is a directory, fails underneath.
  bool Next() {
    if (!file || std::fgets(buffer, sizeof buffer, file.get()) == nullptr) return false;
    const std::string_view line = buffer;  // a NUL in the file ends its line
    text = line.substr(BlanksBefore(line));
    return true;
  }

  /// Whether reading the current line has met the end of the file: it has no newline.
  bool AtEnd() const { return std::feof(file.get()) != 0; }

  /// The current line from its first character that is not blank, with its newline.
  std::string_view text;

 private:
  std::unique_ptr<std::FILE, Close> file;
  char buffer[256];
};

// A header that ends the file without a newline does not count: nothing can follow it.
bool FindSection(Lines& lines, std::string_view section) {
  while (lines.Next()) {
    const std::string_view text = lines.text;
    const bool found = text.starts_with('[') && text.substr(1).starts_with(section) &&
                       text.substr(1 + section.size()).starts_with(']');
    if (lines.AtEnd()) return false;
    if (found) return true;
  }
  return false;
}

// '|' and '^' end a key like a blank does: existing profiles rely on it.
std::string_view KeyOf(std::string_view text) {
  return text.substr(0, text.find_first_of("=|^ \t"));
}

// What follows the '=' of the entry, up to the end of its line. False if the section lacks the key.
bool FindEntry(Lines& lines, std::string_view key, std::string_view& value) {
  while (lines.Next()) {
    const std::string_view text = lines.text;
    if (text.starts_with('[')) return false;
    const std::size_t equals = text.find('=');
    if (!text.starts_with('#') && equals != text.npos && KeyOf(text) == key) {
      value = text.substr(equals + 1);
      value = value.substr(0, value.find('\n'));
      return true;
    }
    if (lines.AtEnd()) return false;
  }
  return false;
}

// An empty value leaves the caller's default in place; one of blanks only is not trimmed.
void Deliver(std::string_view text, char* value) {
  if (text.empty()) return;
  std::string_view trimmed = text.substr(BlanksBefore(text));
  trimmed = trimmed.substr(0, LengthWithoutBlanksBehind(trimmed));
  if (trimmed.empty()) trimmed = text;
  std::memcpy(value, trimmed.data(), trimmed.size());
  value[trimmed.size()] = '\0';
}

}  // namespace

int GetProfileString(const char* path, const char* section, const char* key, char* value) {
  if (path == nullptr || section == nullptr || key == nullptr || value == nullptr) return NOT_FOUND;
  if (std::strlen(section) > LONGEST_SECTION || std::strlen(key) > LONGEST_KEY) return NOT_FOUND;
  Lines lines(path);
  std::string_view text;
  if (!FindSection(lines, section) || !FindEntry(lines, key, text)) return NOT_FOUND;
  Deliver(text, value);
  return 0;
}
