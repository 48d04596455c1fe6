// Drives a block through its contract, check by check.
#include <getopt.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <exception>
#include <sstream>

#include "Checks.h"

namespace {

using namespace validate;

enum Status { OK = 0, FAULTY = 1, USAGE = 2 };

constexpr const char* kUsage =
    "Usage: zelk-validate [OPTION ...] FILE.so [WORD ...]\n"
    "Creates the block with these words, drives it through its contract, each check in a process "
    "of\n"
    "its own, and reports in TAP. A file in this folder is ./FILE.so.\n\n"
    "  -l, --link=RATE:FORMAT:CHANNELS:SAMPLES\n"
    "                      the kind of its links (48000:FLOAT_LE:2:480)\n"
    "  -F, --first         create it as a source; else the first check finds out\n"
    "  -L, --last          create it as a sink; likewise\n"
    "  -b, --bind-fifo     bind a FIFO to it, as hosts do with fifosrc and fifosink\n"
    "  -1, --once          it need not start again after a stop\n"
    "  -t, --time=MS       how long one call of the block may take (5000)\n"
    "  -o, --only=CHECK    this check and the first; may be repeated\n"
    "  -c, --checks        list the checks\n"
    "  -v, --verbose       show the log of every check\n"
    "  -h, --help          this text\n"
    "  -V, --version       the version\n\n"
    "Exit status: 0 every check passed, 1 a check found a fault, 2 wrong usage.\n";

template <typename Number>
bool Parse(const std::string& text, Number& number) {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && stop == end && number > 0;
}

bool ParseLink(const std::string& text, LinkKind& kind) {
  std::istringstream words(text);
  std::string rate, format, channels, samples;
  std::getline(words, rate, ':');
  std::getline(words, format, ':');
  std::getline(words, channels, ':');
  std::getline(words, samples);
  std::uint32_t value = 0;
  while (value < zelk::SAMPLE_FORMATS && format != zelk::FormatToString(zelk::SampleFormat(value)))
    ++value;
  kind.format = zelk::SampleFormat(value);
  return value < zelk::SAMPLE_FORMATS && Parse(rate, kind.rate) && Parse(channels, kind.channels) &&
         Parse(samples, kind.samples);
}

int Misused(const std::string& why) {
  std::fprintf(stderr, "zelk-validate: %s\nSee zelk-validate --help.\n", why.c_str());
  return USAGE;
}

/// -1 to go on, else the exit status.
int ParseOptions(int argc, char** argv, Settings& settings) {
  static const option kLong[] = {
      {"link", required_argument, nullptr, 'l'}, {"first", no_argument, nullptr, 'F'},
      {"last", no_argument, nullptr, 'L'},       {"bind-fifo", no_argument, nullptr, 'b'},
      {"once", no_argument, nullptr, '1'},       {"time", required_argument, nullptr, 't'},
      {"only", required_argument, nullptr, 'o'}, {"checks", no_argument, nullptr, 'c'},
      {"verbose", no_argument, nullptr, 'v'},    {"help", no_argument, nullptr, 'h'},
      {"version", no_argument, nullptr, 'V'},    {nullptr, 0, nullptr, 0},
  };
  // "+": words after the file may begin with a minus.
  for (int key; (key = getopt_long(argc, argv, "+l:FLb1t:o:cvhV", kLong, nullptr)) != -1;) {
    if (key == 'l' && !ParseLink(optarg, settings.link))
      return Misused("no link is like " + std::string(optarg));
    if (key == 't' && !Parse(optarg, settings.limit))
      return Misused("no time is like " + std::string(optarg));
    if (key == 'o') settings.only.emplace_back(optarg);
    settings.first = settings.first || key == 'F';
    settings.last = settings.last || key == 'L';
    settings.fifo = settings.fifo || key == 'b';
    settings.once = settings.once || key == '1';
    settings.verbose = settings.verbose || key == 'v';
    if (key == 'c') {
      for (const Check& check : AllChecks())
        std::printf("%-12s%s\n", check.word, check.name);
    }
    if (key == 'h') std::fputs(kUsage, stdout);
    if (key == 'V') std::puts("zelk-validate " ZELK_VALIDATE_VERSION);
    if (key == 'c' || key == 'h' || key == 'V') return OK;
    if (key == '?') return Misused("an option is unknown or incomplete");
  }
  settings.rolesGiven = settings.first || settings.last;
  if (optind == argc) return Misused("no block is named");
  settings.file = argv[optind];
  settings.words.assign(argv + optind + 1, argv + argc);
  return -1;
}

int Main(int argc, char** argv) {
  Settings settings;
  if (const int status = ParseOptions(argc, argv, settings); status >= 0) return status;
  std::vector<Check> checks = AllChecks();
  for (const std::string& word : settings.only) {
    if (std::none_of(checks.begin(), checks.end(), [&](auto& c) { return word == c.word; }))
      return Misused("there is no check " + word);
  }
  const auto wanted = [&](const Check& check) {
    const auto& only = settings.only;
    return only.empty() || std::find(only.begin(), only.end(), check.word) != only.end();
  };
  // The first stays: the others rest on what it finds out.
  checks.erase(std::remove_if(checks.begin() + 1, checks.end(), std::not_fn(wanted)), checks.end());
  return RunChecks(checks, settings) == 0 ? OK : FAULTY;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zelk-validate: %s\n", error.what());
    return USAGE;
  }
}
