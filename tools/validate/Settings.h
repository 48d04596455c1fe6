// What the command line of zelk-validate asks for.
#pragma once

#include <zelk/SampleFormat.h>

#include <string>
#include <vector>

namespace validate {

/// One kind of link. The block under test gets it at every port.
struct LinkKind {
  unsigned int rate = 48000;
  zelk::SampleFormat format = zelk::FLOAT_LE;
  unsigned int channels = 2;
  long samples = 480;
};

struct Settings {
  std::string file;
  std::vector<std::string> words;
  LinkKind link;
  bool first = false;
  bool last = false;
  bool rolesGiven = false;  ///< else the first check finds out what the block is
  bool fifo = false;        ///< bind a FIFO by `IOCTL_BIND_FIFO`
  bool once = false;        ///< it need not start again after a stop
  long limit = 5000;        ///< milliseconds for one call of the block
  bool verbose = false;
  std::vector<std::string> only;
};

}  // namespace validate
