#pragma once
// Names of musical acts that hold a slash, which the slash split of ID3v2.3
// text would otherwise take apart.

namespace id3parser {

extern const char16_t* const slashArtistNames[];   // ends with an empty row

}  // namespace id3parser
