#pragma once
// The genre table of ID3v1, indexed by the genre byte. Rows 126 "Undefined"
// and 127 "[No Genre]" belong to it; 127 stands for "no genre" on writing.

#include <string_view>

inline constexpr int kId3v1GenreCount = 128;
inline constexpr int kId3v1NoGenreRow = 127;

std::u16string_view Id3v1Genre(int row);
// The row of a genre name, ASCII case ignored; -1 when it isn't in the table.
int Id3v1GenreRow(std::u16string_view name);
