#pragma once
// The names that APE item keys and tag names translate to, both ways. Covers
// become art keys: the format knows only a front and a back cover.

#include <string_view>

#include "support/clString.h"

// Item key to tag name. `artCounter` counts the cover items of one read;
// `isArt` tells that the item is one.
clString TagNameOfApeKey(const clString& key, int& artCounter, bool& isArt);
// Tag name to item key.
clString ApeKeyOfTagName(const clString& name, bool& isArt);
// The format's rule for a key as it is stored: 2 to 255 characters from space
// to tilde, and none of the words that mark other tags ("ID3", "TAG", "OggS",
// "MP+", in any case), which would make readers take the tag for another.
bool IsWritableApeKey(std::string_view key);
