// libsndfile: its files, closed by themselves, and its formats.
#pragma once

#include <sndfile.h>

#include <memory>
#include <string>

namespace zelk::blocks {

struct CloseSoundFile {
  void operator()(SNDFILE* file) const { sf_close(file); }
};
using SoundFile = std::unique_ptr<SNDFILE, CloseSoundFile>;

/// Whether the file's samples are integers, so that reading them as such is exact.
constexpr bool HoldsIntegers(const SF_INFO& info) {
  switch (info.format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8:
    case SF_FORMAT_PCM_16:
    case SF_FORMAT_PCM_24:
    case SF_FORMAT_PCM_32:
      return true;
    default:
      return false;
  }
}

/// What to write for the words wav16, wav24, wavf and flac; without a word what the path's
/// extension asks for: FLAC for ".flac", else WAV with 16 bits. FLAC comes without a depth. 0 for
/// any other.
inline int SoundFileFormat(const std::string& path, const std::string& word) {
  if (word == "wav16") return SF_FORMAT_WAV | SF_FORMAT_PCM_16;
  if (word == "wav24") return SF_FORMAT_WAV | SF_FORMAT_PCM_24;
  if (word == "wavf") return SF_FORMAT_WAV | SF_FORMAT_FLOAT;
  if (word == "flac") return SF_FORMAT_FLAC;
  if (!word.empty()) return 0;
  std::string tail = path.substr(path.size() < 5 ? 0 : path.size() - 5);
  for (char& c : tail)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return SoundFileFormat(path, tail == ".flac" ? "flac" : "wav16");
}

}  // namespace zelk::blocks
