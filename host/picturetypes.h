#pragma once
// The picture types a host names pictures by, numbered 0 to 20 as the picture
// type byte of ID3v2, each with a short name for the command line.

#include <string>
#include <string_view>

namespace host {

// The type name of an art key for a number from 0 to 20, a short name
// ("front") or a full type name ("Front Album Cover"), ASCII case ignored;
// throws UsageError for anything else.
std::string PictureTypeName(std::string_view nameOrNumber);

// The table for --help: one line per type, "  3  front  Front Album Cover".
std::string PictureTypeList();

}  // namespace host
