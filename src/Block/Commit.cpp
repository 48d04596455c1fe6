// The commit as blocks that are tested alone call it, and the dump of committed frames.
#include "Block/Commit.h"

#include "Boundary.h"
#include "Link/Link.h"
#include "Log.h"

namespace zelk {

static constexpr char LOG_TAG[] = "src/Block";

int Block::CommitFrame() {
  Commit();
  return 0;
}

void Block::Dump(OutputEndpoint& ep) {
  Guarded([&] { AppendToDump(ep); },
          [&](const char* what) {
            ZELK_LOG_AS('D', "CommitFrame", "%s: %s: Unable to dump data: %s", routeName.c_str(),
                        name.c_str(), what);
          });
}

namespace {

// Plain decimal whatever the host's global locale is.
std::string DumpFileName(const std::string& directory, const std::string& routeName,
                         const std::string& name, std::size_t index, const FrameBuffer& fb) {
  char endpoint[5];
  std::snprintf(endpoint, sizeof(endpoint), "-O%02zu", index % 100);
  return directory + routeName + "-" + name + endpoint + "-" + std::to_string(fb.rate) + "Hz-" +
         FormatToString(fb.format) + "-" + std::to_string(fb.channels) + "ch.pcm";
}

}  // namespace

void Block::AppendToDump(OutputEndpoint& ep) {
  std::FILE*& file = dumpFiles[ep.index];
  if (file == nullptr) {
    const std::string path = DumpFileName(*dumpPath, routeName, name, ep.index, ep.fb);
    file = std::fopen(path.c_str(), "wbe");  // "e": a child that the host starts does not keep it
    if (file == nullptr) {
      ZELK_LOG_AS('D', "CommitFrame", "%s: %s: Unable to open %s to dump data", routeName.c_str(),
                  name.c_str(), path.c_str());
      return;
    }
  }
  // The descriptor may claim more than the link holds; only what is there is written.
  const std::size_t samples = ep.link->SamplesInside(ep.fb);
  if (samples == 0) return;
  std::fwrite(ep.fb.data, ep.fb.channels * BytesPerSample(ep.fb.format), samples, file);
}

void Block::CloseDump() {
  for (std::FILE*& file : dumpFiles) {
    if (file != nullptr) std::fclose(file);
    file = nullptr;
  }
}

}  // namespace zelk
