// Where the prompt's history is kept.
#include <cstdlib>
#include <filesystem>

#include "Prompt.h"

namespace vosh {

std::string HistoryFile() {
  const char* state = std::getenv("XDG_STATE_HOME");
  const char* home = std::getenv("HOME");
  std::filesystem::path folder;
  // A relative directory is to be ignored, as the base directory rules ask.
  if (state && state[0] == '/') {
    folder = state;
  } else if (home && home[0] == '/') {
    folder = std::filesystem::path(home) / ".local" / "state";
  } else {
    return {};
  }
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  folder /= "vosh";
  // Nobody else's business, from the first moment on: libedit would create the file for all.
  if (std::filesystem::create_directory(folder, error)) {
    std::filesystem::permissions(folder, std::filesystem::perms::owner_all, error);
  }
  return error ? std::string() : (folder / "history").string();
}

}  // namespace vosh
