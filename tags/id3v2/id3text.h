#pragma once
// The strings in a frame body: the four text encodings, counting and walking
// the NUL-separated strings, the URL behind a description and the fields of
// a picture. Failures are parseError; the caller sits one frame up.

#include <cstdint>
#include <string>

#include "tags/id3v2/id3frames.h"

namespace id3parser {

// Lets a caller walk the strings of one frame without rescanning it.
struct TextCursor {
    uint64_t count = 0;      // the string that starts at `position`
    uint64_t position = 0;   // in units (bytes, or 16-bit units) from the text's start
};

// The text of `length` bytes up to its first NUL, as UTF-8.
void decodeText(std::string& out, uint8_t encoding, const uint8_t* bytes, uint64_t length, bool strict);
// Where the text begins: behind the encoding byte, and the language for COMM and USLT.
uint64_t frameTextOffset(const id3frame& frame);
uint64_t frameTextCount(const id3frame& frame);
void frameText(const id3frame& frame, bool strict, std::string& out, uint64_t index, TextCursor& cursor);
void frameUrlAfterDescription(const id3frame& frame, std::string& out);
void pictureFields(const uint8_t* bytes, uint64_t size, uint8_t& type, const uint8_t*& image, uint64_t& imageSize);

// UTF-8 to and from the system's ANSI code page and ISO-8859-1.
std::string ansiToUtf8(const std::string& bytes);
std::string utf8ToAnsi(const std::string& text);
std::string latin1ToUtf8(const std::string& bytes);
std::string utf8ToLatin1(const std::string& text);

}  // namespace id3parser
