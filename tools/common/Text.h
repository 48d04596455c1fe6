// Words and terminal-safe text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vosh {

/// The words of a line, separated as the host separates them: by the white space of the C locale.
std::vector<std::string> SplitWords(std::string_view line);

/// The words again, with one space between two.
std::string JoinWords(const std::vector<std::string>& words, std::size_t from = 0);

/// Length in bytes of the valid UTF-8 sequence at the start of `text`; 0 when there is none.
std::size_t Utf8Length(std::string_view text) noexcept;

/// `text` as a terminal may show it: control characters and bytes that are no UTF-8 become "\xNN",
/// so that a name chosen by someone else cannot drive the terminal. New lines and tabs stay.
std::string Printable(std::string_view text);

/// At most `columns` characters of `text`, which is never cut inside a character.
std::string Clip(std::string_view text, std::size_t columns);

}  // namespace vosh
