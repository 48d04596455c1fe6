// `top` in full screen, on ncurses.
#include <curses.h>
#include <algorithm>
#include <cstdio>

#include "Text.h"
#include "Top.h"

namespace vosh {

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr const char* kKeys =
    "up/down choose  s start  t stop  o order  space pause  +/- pace  q end";

class Screen {
 public:
  Screen(const Session& host, const TopOptions& options)
      : session(host), poller(host, options.interval) {}

  void Run();

 private:
  void Poll();
  void Draw() const;
  void DrawLine(int row, const TopLine& line) const;
  std::size_t FirstLine(const std::vector<TopLine>& lines, std::size_t room) const;
  bool HandleKey(int key);
  void Choose(int step);
  void Command(const char* word);
  void ChangeInterval(double factor);

  const Session& session;
  TopPoller poller;
  std::string message = kKeys;
  Clock::time_point nextPoll;
};

void Screen::Run() {
  bool goOn = true;
  while (goOn) {
    if (!poller.state.paused && Clock::now() >= nextPoll) Poll();
    Draw();
    const Seconds left = poller.state.paused ? Seconds(1) : nextPoll - Clock::now();
    timeout(static_cast<int>(std::clamp(left.count() * 1000, 1.0, 1000.0)));
    const int key = getch();
    if (key != ERR) goOn = HandleKey(key);
  }
}

void Screen::Poll() {
  const Outcome outcome = poller.Poll();
  if (outcome.result != SUCCESS) {
    message = outcome.text;
  } else if (message.starts_with("No host") || message.starts_with("The host")) {
    message = kKeys;
  }
  const auto& routes = poller.state.report.routes;
  if (!poller.state.report.Find(poller.state.selected)) {
    poller.state.selected = routes.empty() ? "" : routes[0].name;
  }
  nextPoll =
      Clock::now() + std::chrono::duration_cast<Clock::duration>(Seconds(poller.state.interval));
}

void Screen::DrawLine(int row, const TopLine& line) const {
  int style = A_NORMAL;
  if (line.style == TopLine::TITLE || line.style == TopLine::ALARM) style = A_BOLD;
  if (line.style == TopLine::HEADER) style = A_UNDERLINE;
  if (line.style == TopLine::SELECTED) style = A_REVERSE;
  if (line.style == TopLine::ALARM && has_colors()) style |= COLOR_PAIR(1);
  attrset(style);
  mvaddstr(row, 0, line.text.c_str());
  attrset(A_NORMAL);
}

// Scrolls so far that the chosen route is in sight.
std::size_t Screen::FirstLine(const std::vector<TopLine>& lines, std::size_t room) const {
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].style == TopLine::SELECTED && i + 1 > room) {
      return std::min(i, lines.size() - room);
    }
  }
  return 0;
}

void Screen::Draw() const {
  erase();
  const auto width = static_cast<std::size_t>(std::max(COLS, 1));
  const auto room = static_cast<std::size_t>(std::max(LINES - 1, 1));
  const std::vector<TopLine> lines = RenderTop(poller.state, width);
  const std::size_t first = FirstLine(lines, room);
  for (std::size_t i = first; i < lines.size() && i - first < room; ++i) {
    DrawLine(static_cast<int>(i - first), lines[i]);
  }
  std::string shown = Printable(message);
  std::replace(shown.begin(), shown.end(), '\n', ' ');
  // One column less: writing the last cell of the last line would scroll some terminals.
  mvaddstr(LINES - 1, 0, Clip(shown, width - 1).c_str());
  refresh();
}

void Screen::Choose(int step) {
  const auto& routes = poller.state.report.routes;
  const auto chosen = std::find_if(routes.begin(), routes.end(), [this](const RouteStatus& route) {
    return route.name == poller.state.selected;
  });
  if (chosen == routes.end()) return;
  const auto last = static_cast<long>(routes.size()) - 1;
  const long index = std::clamp<long>(chosen - routes.begin() + step, 0, last);
  poller.state.selected = routes[static_cast<std::size_t>(index)].name;
}

void Screen::Command(const char* word) {
  if (poller.state.selected.empty()) return;
  message = session.Execute(std::string(word) + " " + poller.state.selected).text;
  nextPoll = Clock::now();
}

void Screen::ChangeInterval(double factor) {
  poller.state.interval = std::clamp(poller.state.interval * factor, 0.125, 64.0);
  nextPoll = Clock::now();
}

bool Screen::HandleKey(int key) {
  switch (key) {
    case 'q':
      return false;
    case KEY_UP:
    case 'k':
      Choose(-1);
      break;
    case KEY_DOWN:
    case 'j':
      Choose(1);
      break;
    case 's':
      Command("start");
      break;
    case 't':
      Command("stop");
      break;
    case 'o':
      poller.state.order = Next(poller.state.order);
      SortRoutes(poller.state);
      break;
    case ' ':
    case 'p':
      poller.state.paused = !poller.state.paused;
      break;
    case '+':
      ChangeInterval(0.5);
      break;
    case '-':
      ChangeInterval(2);
      break;
    case 'h':
    case '?':
      message = kKeys;
      break;
    default:
      break;
  }
  return true;
}

}  // namespace

bool RunTopScreen(const TopOptions& options) {
  SCREEN* terminal = newterm(nullptr, stdout, stdin);
  if (!terminal) return false;
  set_term(terminal);
  cbreak();
  noecho();
  keypad(stdscr, TRUE);
  curs_set(0);
  if (has_colors()) {
    start_color();
    use_default_colors();
    init_pair(1, COLOR_RED, -1);
  }
  // Keys are not read while the host is asked: it gets less time than elsewhere.
  const Session session{Client(std::chrono::seconds(2))};
  Screen(session, options).Run();
  endwin();
  delscreen(terminal);
  return true;
}

}  // namespace vosh
