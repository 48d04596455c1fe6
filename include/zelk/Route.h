// One processing graph and the thread that drives it.
#pragma once

#include <zelk/Export.h>
#include <zelk/SampleFormat.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace zelk {

class Block;
class Link;

/// A graph of blocks joined by links, driven by a thread of its own from `Zelk::NewRoute` to
/// `Zelk::DeleteRoute`.
///
/// Threads: every operation may be called from any thread and returns after the route's thread has
/// executed it between two frames, so it takes effect at once and waits for at most one frame. A
/// call from the route's own thread (a callback, a block) cannot be served: it is logged and
/// returns the failure value. None is real-time safe. Once a route's thread has ended (a block
/// refused to start a running route with a code other than -20), calls wait for ever.
///
/// Errors: null, or a negative code: -20 for a block or link that is not in this route, else the
/// code of the block that refused. The reason is logged.
///
/// Ownership: the route owns its blocks and links; pointers are valid until they are deleted here
/// or the route is.
class ZELK_EXPORT Route {
 public:
  /// Why a route stopped.
  enum StopReason : std::uint32_t {
    NORMAL = 0,       ///< on request, or a block faded out
    FAILURE = 1,      ///< a block failed or refused to start, or the graph is broken
    END_OF_FILE = 2,  ///< a source reached the end of its input
  };

  /// Hears about a route's life. Borrowed by the route; must outlive it.
  ///
  /// All are called on the route's thread, with or without its lock held. They must return soon and
  /// must not call an operation of their own route, nor delete it: that is refused. They may post
  /// to another thread. An exception that leaves one is logged and ends there. [route-thread]
  class ZELK_EXPORT Callbacks {
   public:
    /// The route is running: on request, or again after its broken graph was mended.
    virtual void OnStarted();
    /// Every block has stopped.
    virtual void OnStopped(StopReason reason);
    /// The route is being deleted; the last call.
    virtual void OnExit();
    virtual ~Callbacks();
  };

  /// What an action does. The values are part of the binary interface.
  enum ActionType : std::uint32_t {
    NEW_BLOCK = 0,      ///< `NewBlock()`
    NEW_LINK = 1,       ///< `NewLink()`
    START = 2,          ///< `Start()`
    SET_PARAMETER = 3,  ///< `SetParameter()`
    GET_PARAMETER = 4,  ///< `GetParameter()`
    RESET = 5,          ///< `Reset()`
    STOP = 6,           ///< `Stop()`
    DELETE = 7,         ///< `Delete()`
    DELETE_ALL = 8,     ///< `DeleteAll()`
    EXIT = 9,           ///< ends the route's thread; for `Zelk::DeleteRoute()`
    SET_DUMP = 10,      ///< `SetDump()`
  };

  // The parameters of one action, per type. Fields marked "out" are written by the route's thread.

  /// NEW_BLOCK: as `NewBlock()`.
  struct NewBlockAction {
    const char* soFileName;                ///< the plug-in
    bool first;                            ///< a source of the route
    bool last;                             ///< a sink of the route
    const std::vector<std::string>* args;  ///< words for `CreateBlock`
    Block** block;                         ///< where the new block, or null, is stored
  };
  /// NEW_LINK: as `NewLink()`.
  struct NewLinkAction {
    unsigned int rate;      ///< in Hz
    SampleFormat format;    ///< of the samples
    unsigned int channels;  ///< interleaved
    long samplesPerFrame;   ///< per channel
    Block** source;         ///< read when the action executes: a NEW_BLOCK before it may fill it in
    unsigned long sourceBlkOutEpIdx;  ///< output of `source`, below `MAX_EPS`
    Block** sink;                     ///< read when the action executes
    unsigned long sinkBlkInEpIdx;     ///< input of `sink`, below `MAX_EPS`
    Link* link;                       ///< out: the new link, or null
  };
  /// START, STOP, DELETE_ALL: as the operations of these names.
  struct ResultAction {
    int ret;  ///< out: 0 or a negative code
  };
  /// SET_PARAMETER: as `SetParameter()`.
  struct SetParameterAction {
    Block* block;                            ///< in this route
    unsigned int paramId;                    ///< what the block understands by it
    const std::vector<std::string>* params;  ///< the values
    int ret;                                 ///< out: the block's result, or -20
  };
  /// GET_PARAMETER: as `GetParameter()`.
  struct GetParameterAction {
    Block* block;                      ///< in this route
    unsigned int paramId;              ///< what the block understands by it
    std::vector<std::string>* params;  ///< out: filled by the block
    int ret;                           ///< out: the block's result, or -20
  };
  /// RESET: as `Reset()`.
  struct ResetAction {
    Block* block;  ///< in this route
    int ret;       ///< out: 0 or -20
  };
  /// DELETE: as `Delete()`.
  struct DeleteAction {
    void* instance;  ///< a block or a link
    int ret;         ///< out: 0 or -20
  };
  /// SET_DUMP: as `SetDump()`.
  struct SetDumpAction {
    const char* path;  ///< directory; null switches dumping off
  };

  /// One request, for `ExecuteActions`. Zero in every byte when default-constructed.
  ///
  /// Set `type` and the group of that type. Pointers are borrowed and must stay valid until
  /// `ExecuteActions` returns. Preset an out field with what you want to read if the action could
  /// not be executed (-20, null).
  struct Action {
    /// Zero in every byte.
    Action() noexcept { std::memset(static_cast<void*>(this), 0, sizeof(*this)); }

    ActionType type;  ///< says which of the groups is used; EXIT has none
    union {
      NewBlockAction newBlock;          ///< NEW_BLOCK
      NewLinkAction newLink;            ///< NEW_LINK
      ResultAction start;               ///< START
      SetParameterAction setParameter;  ///< SET_PARAMETER
      GetParameterAction getParameter;  ///< GET_PARAMETER
      ResetAction reset;                ///< RESET
      ResultAction stop;                ///< STOP
      DeleteAction del;                 ///< DELETE
      ResultAction deleteAll;           ///< DELETE_ALL
      SetDumpAction setDump;            ///< SET_DUMP
    };
  };

  virtual ~Route();

  // The order of the virtual operations is part of the binary interface.

  /// Loads the plug-in `soFileName` (a bare name is searched for where the dynamic loader looks and
  /// in the library's own plug-in folder) and adds a new block of it. `first` makes it a source,
  /// `last` a sink. Null when the file cannot be loaded or the plug-in refuses the arguments.
  virtual Block* NewBlock(const char* soFileName, bool first, bool last,
                          const std::vector<std::string>& args) = 0;

  /// Joins output `sourceBlkOutEpIdx` of `source` to input `sinkBlkInEpIdx` of `sink`, with frames
  /// of up to `samplesPerFrame` samples per channel at `rate` Hz. Null when an index is 32 or more,
  /// an endpoint is in use, the size is negative or cannot be allocated, or a block refuses.
  virtual Link* NewLink(unsigned int rate, SampleFormat format, unsigned int channels,
                        long samplesPerFrame, Block* source, unsigned long sourceBlkOutEpIdx,
                        Block* sink, unsigned long sinkBlkInEpIdx) = 0;

  /// Starts all blocks; the first frame follows at once. 0, or the code of the block that refused.
  /// A graph that cannot run is reported afterwards, through `OnStopped(FAILURE)`.
  virtual int Start() = 0;

  /// Hands a parameter to a block; the block's result, or -20.
  virtual int SetParameter(Block* block, unsigned int paramId,
                           const std::vector<std::string>& params) = 0;

  /// Asks a block for a parameter; the block's result, or -20.
  virtual int GetParameter(Block* block, unsigned int paramId,
                           std::vector<std::string>& params) = 0;

  /// Resets a block and empties its ports; 0 or -20.
  virtual int Reset(Block* block) = 0;

  /// Stops all blocks; 0 (also when stopped already) or the code of the block that refused.
  virtual int Stop() = 0;

  /// Deletes a block with its links, or a link; 0 or -20. A running route goes on if its graph is
  /// still whole, else waits for it to be mended.
  virtual int Delete(void* instance) = 0;

  /// Deletes all links, then all blocks; 0.
  virtual int DeleteAll() = 0;

  /// From the next frame on, appends every frame that leaves an output to a raw file in the
  /// directory `path`; null closes the files.
  virtual void SetDump(const char* path) = 0;

  /// Executes `count` actions in order with nothing in between, and returns after the last.
  virtual void ExecuteActions(Action* actions, unsigned long count) = 0;
};

}  // namespace zelk
