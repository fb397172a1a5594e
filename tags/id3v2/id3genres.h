#pragma once
// The genre names of ID3v2 genre numbers 0 to 125 (not the ID3v1 engine's list).

#include <cstddef>

namespace id3parser {

inline constexpr size_t kGenreCount = 126;
extern const char* const genreNames[kGenreCount];

}  // namespace id3parser
