// The logging library's five calls.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__) || defined(__clang__)
#define VANTREL_PRINTF(text, args) __attribute__((format(printf, text, args)))
#define VANTREL_EXPORT __attribute__((visibility("default")))
#else
#define VANTREL_PRINTF(text, args)
#define VANTREL_EXPORT
#endif

/// Option bits of `vantrel_enable_options`.
enum {
  VANTREL_STDOUT = 1,    ///< write to standard output
  VANTREL_STDERR = 2,    ///< write to standard error
  VANTREL_SHORT = 16384  ///< time, level and message only; off adds source, line and function
};

/// Emits one record to every enabled output if `level` passes the threshold: 'E' from 2 on, 'W'
/// from 3, 'I' from 4, 'D' from 5, 'V' from 6. One record is one `write`. The three leading
/// integers and `reserved` are not used: pass 0 and null. Callable from any thread, in a forked
/// child, and during static destruction; `errno` stays as it was. A suppressed record costs one
/// comparison. A record has the time in UTC, the level's letter and the message, verbatim, and ends
/// in one newline; it is in colour where the output is a terminal. An output that is gone, or full
/// and non-blocking, loses the record in silence.
VANTREL_EXPORT void vantrel_print(int reserved1, int reserved2, int reserved3, char level,
                                  const char* file, int line, const char* function,
                                  const void* reserved, const char* format, ...)
    VANTREL_PRINTF(9, 10);

/// Sets the threshold: 0 off, 2 E, 3 W, 4 I (the setting at start), 5 D, 6 V. 1 lets no record pass
/// either. A value out of range is clamped. Returns the threshold now in force.
VANTREL_EXPORT int vantrel_set_level(int level);

/// Switch option bits on or off; other bits stay as they are (at start: 16384 and 2). Return the
/// options now in force. Switching an output on looks anew whether it is a terminal.
VANTREL_EXPORT int vantrel_enable_options(int mask);
VANTREL_EXPORT int vantrel_disable_options(int mask);

/// From now on appends every record to the file `path` too, in place of an earlier file; null ends
/// that. Returns 0, or a negative value when the file cannot be opened; an earlier file then stays.
/// Other threads may print meanwhile. [one-at-a-time]
VANTREL_EXPORT int vantrel_set_file(const char* path);

#ifdef __cplusplus
}
#endif
