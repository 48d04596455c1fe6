// Visibility of the library's public names.
#pragma once

#if defined(__GNUC__) || defined(__clang__)
#define ZELK_EXPORT [[gnu::visibility("default")]]
#else
#define ZELK_EXPORT
#endif

/// Put before the definition of a plug-in's `CreateBlock`: exported, and under its plain name.
#define ZELK_PLUGIN extern "C" ZELK_EXPORT
