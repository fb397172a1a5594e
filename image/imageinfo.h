#pragma once
// Image type detection: format, size and depth of a picture from the first
// bytes of its file, without decoding picture data. Knows AVIF, HEIC, TIFF,
// ICO, JPEG, GIF, PNG, WebP, JPEG XL and BMP.

#include <cstddef>
#include <cstdint>

#include "transport/streams.h"

struct ImageInfo {
    uint32_t width = 0;
    uint32_t height = 0;
    uint32_t depth = 0;              // bits per pixel, as far as the format tells
    bool alpha = false;              // has or may have transparency
    const char* name = nullptr;      // static texts
    const char* extension = nullptr;
    const char* mime = nullptr;
};

// A source of picture bytes; random access where it can.
class ImageSource : public Qel::streamIn {
public:
    virtual bool seekable() const { return false; }
    virtual void seek(uint64_t position);   // raises Qel::invalid_input
};

// Picture bytes in memory, not owned.
class MemoryImageSource : public ImageSource {
public:
    MemoryImageSource(const void* data, size_t size) : data_(static_cast<const uint8_t*>(data)), size_(data ? size : 0) {}
    size_t read(void* buffer, size_t count) override;
    uint64_t skip(uint64_t count) override;
    bool seekable() const override { return true; }
    void seek(uint64_t position) override;

private:
    const uint8_t* data_;
    size_t size_;
    size_t position_ = 0;
};

// Raises Qel::invalid_input for bytes that are no known image, and
// Qel::user_abort when the thread's aborter is set.
ImageInfo DetectImageType(ImageSource& stream);
