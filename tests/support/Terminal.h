// A pseudo-terminal with a program on it, and the screen that an operator would see.
#pragma once

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __APPLE__
#include <util.h>
#else
#include <pty.h>
#endif

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "support/Program.h"

namespace test {

/// Follows as much of a VT100 as line editors and full-screen programs of its kind use.
class Terminal {
 public:
  Terminal(std::vector<std::string> arguments, unsigned short height, unsigned short width)
      : cells(height, std::string(width, ' ')) {
    winsize size{};
    size.ws_row = height;
    size.ws_col = width;
    child = forkpty(&fd, nullptr, nullptr, &size);
    if (child != 0) return;
    setenv("TERM", "vt100", 1);
    execv(arguments[0].c_str(), Argv(arguments).data());
    _exit(127);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;
  ~Terminal() { close(fd); }

  void Type(const std::string& keys) {
    if (write(fd, keys.data(), keys.size()) < 0) std::abort();
  }

  /// Follows the output until `text` is on the screen; false when it never comes.
  bool Shows(const std::string& text) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (Screen().find(text) == std::string::npos) {
      if (std::chrono::steady_clock::now() > end || !Follow()) return false;
    }
    return true;
  }

  /// Follows the output to the program's end; its exit status.
  int Wait() {
    while (Follow()) {
    }
    return WaitForExit(child);
  }

  /// The lines without the blanks at their ends.
  std::string Screen() const {
    std::string text;
    for (const std::string& line : cells) {
      text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
  }

  /// Everything that was written, as it came.
  const std::string& Raw() const { return raw; }

 private:
  bool Follow() {
    pollfd waiting{fd, POLLIN, 0};
    if (poll(&waiting, 1, 1000) == 0) return true;
    char bytes[4096];
    const ssize_t got = read(fd, bytes, sizeof bytes);
    if (got <= 0) return false;
    raw.append(bytes, static_cast<std::size_t>(got));
    for (ssize_t i = 0; i < got; ++i)
      Take(bytes[i]);
    return true;
  }

  void Take(char c) {
    if (!escape.empty()) {
      escape += c;
      if (escape[1] == '[' ? escape.size() > 2 && c >= '@' : IsShortEscape()) Obey();
    } else if (c == '\x1b') {
      escape = c;
    } else if (c == '\r') {
      column = 0;
    } else if (c == '\n') {
      LineFeed();
    } else if (c == '\b') {
      column -= column > 0;
    } else if (static_cast<unsigned char>(c) >= ' ') {
      Put(c);
    }
  }

  bool IsShortEscape() const {
    return escape.size() == (escape[1] == '(' || escape[1] == ')' ? 3u : 2u);
  }

  void Put(char c) {
    if (column == cells[0].size()) {
      column = 0;
      LineFeed();
    }
    cells[row][column++] = c;
  }

  void LineFeed() {
    if (row + 1 < cells.size()) {
      ++row;
      return;
    }
    cells.erase(cells.begin());
    cells.emplace_back(cells[0].size(), ' ');
  }

  void Obey() {
    const std::string sequence = std::exchange(escape, {});
    if (sequence[1] != '[') return;
    const std::size_t semicolon = sequence.find(';');
    const auto first = static_cast<std::size_t>(std::max(0, std::atoi(&sequence[2])));
    const std::size_t second = semicolon == std::string::npos
                                   ? 0
                                   : static_cast<std::size_t>(std::atoi(&sequence[semicolon + 1]));
    const std::size_t count = std::max<std::size_t>(first, 1);
    std::string& line = cells[row];
    column = std::min(column, line.size() - 1);
    switch (sequence.back()) {
      case 'A':
        row -= std::min(row, count);
        break;
      case 'B':
        row = std::min(row + count, cells.size() - 1);
        break;
      case 'C':
        column = std::min(column + count, line.size() - 1);
        break;
      case 'D':
        column -= std::min(column, count);
        break;
      case 'H':
        row = std::min(count, cells.size()) - 1;
        column = std::clamp<std::size_t>(second, 1, line.size()) - 1;
        break;
      case 'J':
        for (std::size_t i = row + 1; i < cells.size(); ++i)
          cells[i].assign(line.size(), ' ');
        [[fallthrough]];
      case 'K':
        if (first == 1) {
          std::fill_n(line.begin(), column + 1, ' ');
        } else {
          std::fill(line.begin() + static_cast<long>(column), line.end(), ' ');
        }
        break;
      default:
        break;
    }
  }

  std::vector<std::string> cells;
  std::size_t row = 0;
  std::size_t column = 0;
  std::string escape;
  std::string raw;
  int fd = -1;
  pid_t child = -1;
};

}  // namespace test
