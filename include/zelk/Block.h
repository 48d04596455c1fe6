// The base class of every processing block, and the contract of a plug-in.
#pragma once

#include <zelk/Endpoint.h>
#include <zelk/Export.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace zelk {

/// What `Block::ProcessFrame()` answers. Zero and every positive value mean: done, downstream
/// blocks run next. Every negative value that is not named here is a failure and stops the route.
enum FrameResult : std::int32_t {
  FRAME_PENDING = -1,              ///< inputs not ready; call again later in this frame
  FRAME_DONE_WITHOUT_OUTPUT = -3,  ///< done, with nothing for downstream
  FRAME_TIMEOUT = -10,             ///< gave up waiting: an error frame, every block is reset
  FRAME_END_OF_FILE = -21,         ///< a source reached its end; the route stops
  FRAME_FADED_OUT = -22,           ///< faded out; this frame counts, then the route stops
};

/// A processing block. Derive from it, implement `ProcessFrame()`, and export `CreateBlock`.
///
/// Threads: every operation, hook and destructor runs on the thread of the block's route, one at a
/// time [route-thread]. A block may keep threads of its own, but endpoints and their descriptors
/// belong to the route's thread. A hook must never call an operation of its own route: the call is
/// refused. It should not block for longer than a frame: every request to the route waits for it.
///
/// Errors: hooks answer 0 for success or a negative code, which travels up unchanged; -20 is the
/// general failure. An exception that leaves a hook ends there and counts as -20.
///
/// Lifetime: created by `CreateBlock`, named, linked, started, driven, stopped (and perhaps started
/// again), unlinked, deleted by the route. Its code stays loaded for longer than it lives.
class alignas(64) ZELK_EXPORT Block {
 public:
  using enum FrameResult;

  /// `isFirst` makes the block a source of its route, `isLast` a sink; pass on what `CreateBlock`
  /// was given.
  Block(bool isFirst, bool isLast);
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;

  // The order of the virtual operations is part of the binary interface.

  /// Extension call for hosts that hold the pointer; the library never calls it. A host may call it
  /// from its own thread, so a block that implements it says what is allowed when. Returns -20 for
  /// a command that the block does not know.
  virtual int ioctl(unsigned int cmd, void* arg);

  virtual ~Block();

  /// Extra word for the generated name, null or empty for none: "gain" with "left" becomes
  /// "gain_left_0". Asked again for every candidate number.
  virtual const char* Subname() const;

  /// A port was linked or unlinked. The port counts as active while `On…Linked` runs, and no longer
  /// while `On…Unlinked` runs. A negative result refuses the link.
  virtual int OnInEpLinked(std::size_t index);
  virtual void OnInEpUnlinked(std::size_t index);   ///< see `OnInEpLinked()`
  virtual int OnOutEpLinked(std::size_t index);     ///< the same for an output
  virtual void OnOutEpUnlinked(std::size_t index);  ///< the same for an output

  /// Prepares for frames. Anything but 0 leaves the block stopped. A negative code refuses the
  /// start of the route. While the route runs, -20 stops it, -2 is asked again before each frame,
  /// which never comes, and any other negative code ends the route's thread.
  virtual int Start();

  /// Processes one frame; see `FrameResult`. May be called more than once in a frame, so a block
  /// tells from its inputs whether there is anything to do. Runs without any lock held, and should
  /// neither allocate nor block unless the block is what paces the route.
  virtual long ProcessFrame() = 0;

  /// Ends what `Start()` began. Anything but 0 leaves the block started.
  virtual int Stop();

  /// Sets or gets a parameter; the meaning of ids and texts is the block's own. Runs between two
  /// frames, also while the route is running. The base logs and answers 0.
  virtual int SetParameter(unsigned int paramId, const std::vector<std::string>& params);
  virtual int GetParameter(unsigned int paramId,
                           std::vector<std::string>& params);  ///< see `SetParameter()`

  /// Drops what earlier frames left behind. Called after an error frame and by `Route::Reset`.
  virtual void Reset();

  /// Processing delay in samples at the block's output rate. For hosts; the library never calls it.
  virtual long Delay() const;

  // Called by the library. Public so that a block can be tested without a route.

  /// Gives the block its names and the route's dump directory, which is borrowed and must outlive
  /// the block. Call it once, before the first frame.
  void SetName(const std::string& routeName, const std::string& name, const std::string* dumpPath);

  /// Mark a port as linked or unlinked around the hooks above. `index` is below `MAX_EPS`. Linking
  /// returns the hook's result, or -20 for a port that is linked already.
  int BaseOnInEpLinked(std::size_t index);
  void BaseOnInEpUnlinked(std::size_t index);   ///< see `BaseOnInEpLinked()`
  int BaseOnOutEpLinked(std::size_t index);     ///< the same for an output
  void BaseOnOutEpUnlinked(std::size_t index);  ///< the same for an output

  /// Start and stop once: 0 without calling the hook when there is nothing to do, else its result.
  int BaseStart();
  int BaseStop();  ///< see `BaseStart()`

  /// Calls `Reset()` and empties every active port.
  void BaseReset();

  /// Passes the descriptors of all active ports to the other ends of their links: inputs back to
  /// their producers, outputs on to their consumers. With dumping on, appends each output frame to
  /// its file. Always 0. Real-time safe while dumping is off.
  int CommitFrame();

  /// Closes the dump files. The next commit with dumping on starts new ones.
  void CloseDump();

  /// The active ports by index.
  const std::map<std::size_t, InputEndpoint*>& ActiveInEps() const noexcept { return activeInEps; }
  /// The same for outputs.
  const std::map<std::size_t, OutputEndpoint*>& ActiveOutEps() const noexcept {
    return activeOutEps;
  }

  /// True when every active input holds a frame, and when there is no active input.
  bool ActiveInEpsDataIsReady() const noexcept;

  /// True as soon as any one active output is empty; false without active outputs.
  bool ActiveOutEpsDataIsEmpty() const noexcept;

  /// Takes the frames of all active inputs: sets their `validSamples` to 0.
  void ClearActiveInEpsData() noexcept;

 private:
  friend class Link;
  friend class LiveBlocks;
  friend class RouteImpl;

  // The order of the fields is part of the binary interface. A frame touches three cache lines of a
  // block whose ports 0 are linked: this group with the virtual table, and one for each port.

  std::uint32_t activeIns = 0;   // bit i: input i is active
  std::uint32_t activeOuts = 0;  // bit i: output i is active
  const char* nameText = "";     // the text of `name`
  const std::string* dumpPath = nullptr;

 protected:
  // Constant after construction.
  bool isFirst;  ///< a source of its route
  bool isLast;   ///< a sink of its route

  InputEndpoint inEps[MAX_EPS];    ///< the inputs, linked or not
  OutputEndpoint outEps[MAX_EPS];  ///< the outputs, linked or not

 private:
  std::map<std::size_t, InputEndpoint*> activeInEps;
  std::map<std::size_t, OutputEndpoint*> activeOutEps;

 protected:
  // Constant after `SetName`.
  std::string routeName;  ///< "RouteA"
  std::string name;       ///< "gain_0", unique in its route

 private:
  std::FILE* dumpFiles[MAX_EPS] = {};
  bool started = false;
  bool* startCheck = nullptr;  // the route's note that a block waits to be started

  template <typename Map, typename Port, typename Hook>
  int Linked(const char* function, const char* side, Map& active, std::uint32_t& mask, Port& ep,
             Hook&& hook);
  void Commit();
  void Prefetch() const;
  void Dump(OutputEndpoint& ep);
  void AppendToDump(OutputEndpoint& ep);
};

/// What a plug-in exports, unmangled, under the name "CreateBlock". Returns a new block that the
/// route will own, or null after logging why not. `first` and `last` belong to `Block`'s
/// constructor; `args` are the words of the request and are valid during the call only.
using CreateBlockFunction = Block* (*)(bool first, bool last, const std::vector<std::string>& args);

}  // namespace zelk
