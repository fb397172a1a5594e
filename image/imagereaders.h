#pragma once
// One reader per image format. Each starts where the dispatcher left the
// stream (told per reader) and fills width, height, depth and alpha; any
// failure raises Qel::invalid_input.

#include "image/imageinfo.h"
#include "transport/streams.h"

namespace imagedetect {

void ReadGif(Qel::streamIn& stream, ImageInfo& info);    // behind "GI"
void ReadJpeg(Qel::streamIn& stream, ImageInfo& info);   // behind FF D8
void ReadPng(Qel::streamIn& stream, ImageInfo& info);    // behind 89 "P"
void ReadWebp(Qel::streamIn& stream, ImageInfo& info);   // behind "RI"
void ReadBmp(Qel::streamIn& stream, ImageInfo& info);    // behind "BM"
void ReadIco(Qel::streamIn& stream, ImageInfo& info);    // from the file's start
void ReadTiff(ImageSource& source, bool bigEndian, ImageInfo& info);   // behind "MM" / "II"
// From the file's start; returns true for AVIF, false for HEIC.
bool ReadIsoImage(Qel::streamIn& stream, ImageInfo& info);
void ReadJxlCodestream(Qel::streamIn& stream, ImageInfo& info);   // from FF 0A
void ReadJxlContainer(Qel::streamIn& stream, ImageInfo& info);    // from the file's start

}  // namespace imagedetect
