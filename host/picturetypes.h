#pragma once
// The picture types a host names pictures by, numbered 1 to 20 as the picture
// type byte of ID3v2.

#include <string>
#include <string_view>

namespace host {

// The type name for a name (ASCII case ignored) or a number from 1 to 20;
// throws UsageError for anything else.
std::string PictureTypeName(std::string_view nameOrNumber);

}  // namespace host
