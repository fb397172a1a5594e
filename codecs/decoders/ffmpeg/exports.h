#pragma once
// The types of the nine entry points, so that the plug-in and its hosts agree
// on them at compile time. A host resolves the functions by name at run time
// and needs nothing but this header and records.h.

#include <cstdint>

#include "codecs/decoders/ffmpeg/records.h"

// Create returns the decoder object, opaque to the host; it owns the pointer
// until it hands it to Destroy.
using DecoderCreateFn = void*(const DecoderCreateInfo* info);
using DecoderDestroyFn = int64_t(void* decoder);
using DecoderGetFn = int64_t(void* decoder, const char16_t* key, DecoderParam* param);
using DecoderSetFn = int64_t(void* decoder, const char16_t* key, DecoderParam* param);
using DecoderOpenFn = int64_t(void* decoder, DecoderOpenInfo* info);
using DecoderCloseFn = int64_t(void* decoder);
using DecoderDecodeBlockFn = int64_t(void* decoder, DecoderBlockInfo* block);
using DecoderSetPositionFn = int64_t(void* decoder, int64_t position);
using DecoderDeleteATagFn = int64_t(void* decoder, const char16_t* path, const char16_t* names);
