#pragma once
// Base64 (RFC 4648, with padding) for binary tag data inside fdhost's JSON.

#include <optional>
#include <string>
#include <string_view>

namespace host {

std::string Base64Encode(std::string_view bytes);
// Empty when the text is no base64; blanks and line ends are skipped.
std::optional<std::string> Base64Decode(std::string_view text);

}  // namespace host
