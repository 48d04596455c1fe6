// libsndfile, closed by itself.
#pragma once

#include <sndfile.h>

#include <memory>

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

}  // namespace zelk::blocks
