#pragma once
// The names that APE item keys and tag names translate to, both ways. Covers
// become art keys: the format knows only a front and a back cover.

#include "support/clString.h"

// Item key to tag name. `artCounter` counts the cover items of one read;
// `isArt` tells that the item is one.
clString TagNameOfApeKey(const clString& key, int& artCounter, bool& isArt);
// Tag name to item key.
clString ApeKeyOfTagName(const clString& name, bool& isArt);
