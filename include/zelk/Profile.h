// Reads one value from an INI-style profile file.
#pragma once

#include <zelk/Export.h>

/// Copies the value of `key` in the first section `[section]` of the file `path` to `value`, a
/// buffer of at least 256 bytes, without the white space around it.
///
/// Returns 0 when the key was found; a key with nothing behind its '=' counts as found and leaves
/// `value` as it was. Returns -1, with `value` untouched, when the file cannot be read, the section
/// or the key is missing, the section name is longer than 29 characters, or the key longer than 31.
/// [any-thread]
extern "C" ZELK_EXPORT int GetProfileString(const char* path, const char* section, const char* key,
                                            char* value);
