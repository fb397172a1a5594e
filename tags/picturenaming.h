#pragma once
// Pictures live in IDTags under an art key: "_albumart_", a number from 1,
// "_" and a picture type name, then optionally "<subdesc>" and a description.
// Data holds the image file's bytes.

#include "support/clString.h"

inline constexpr char16_t kArtKeyPrefix[] = u"_albumart_";
inline constexpr char16_t kSubdescMarker[] = u"<subdesc>";
inline constexpr int kPictureTypeCount = 20;
inline constexpr int kFrontAlbumCover = 3;
inline constexpr int kBackAlbumCover = 4;

// "_" + the type name for 1 to 20, else empty.
clString PictureTypeKeyPart(int number);
// The type name for 1 to 20, else empty.
clString PictureTypeName(int number);
// The number of a type name, ASCII case ignored; an unknown name is 3, the front cover.
int PictureTypeFromName(const clString& name);
// Takes an art key apart into its type name and description; both empty when
// the key has no "_" behind the number.
void SplitArtKey(const clString& key, clString& typeName, clString& description);
// "_albumart_%i_%s" [+ "<subdesc>" + description].
clString MakeArtKey(int number, const clString& typeName, const clString& description);
// True when `name` begins with "_albumart_", ASCII case ignored.
bool IsArtKey(const clString& name);
