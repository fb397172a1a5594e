#pragma once
// SHA-256 of a byte range, as lower-case hex: how fdhost names binary tag
// data in its output without printing it.

#include <cstddef>
#include <string>

namespace host {

std::string Sha256Hex(const void* data, size_t size);

}  // namespace host
