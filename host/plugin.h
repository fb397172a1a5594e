#pragma once
// The plug-in as fdhost sees it: a library loaded by path at run time and its
// nine entry points resolved by name. fdhost has no link-time dependency on
// the plug-in.

#include <string>

#include "codecs/decoders/ffmpeg/exports.h"

namespace host {

class Plugin {
public:
    // Loads the library now (every symbol bound at once) and resolves the
    // nine entry points; throws HostError naming what is missing.
    explicit Plugin(const std::string& path);
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;
    Plugin(Plugin&& other) noexcept;
    Plugin& operator=(Plugin&& other) noexcept;
    ~Plugin();

    const std::string& Path() const { return path_; }

    DecoderCreateFn* Create = nullptr;
    DecoderDestroyFn* Destroy = nullptr;
    DecoderGetFn* Get = nullptr;
    DecoderSetFn* Set = nullptr;
    DecoderOpenFn* Open = nullptr;
    DecoderCloseFn* Close = nullptr;
    DecoderDecodeBlockFn* DecodeBlock = nullptr;
    DecoderSetPositionFn* SetPosition = nullptr;
    DecoderDeleteATagFn* DeleteATag = nullptr;

private:
    void Unload();
    void* Resolve(const char* name);

    std::string path_;
    void* library_ = nullptr;
};

// One decoder object of the plug-in, destroyed with its owner. The plug-in
// must outlive it.
class Decoder {
public:
    // Throws HostError when Create gives no object.
    Decoder(const Plugin& plugin, const DecoderCreateInfo& info);
    Decoder(const Decoder&) = delete;
    Decoder& operator=(const Decoder&) = delete;
    ~Decoder();

    void* Handle() const { return handle_; }

    int64_t Get(const char16_t* key, DecoderParam& param) const;
    int64_t Set(const char16_t* key, DecoderParam& param) const;
    int64_t Open(DecoderOpenInfo& info) const;
    int64_t Close() const;
    int64_t DecodeBlock(DecoderBlockInfo& block) const;
    int64_t SetPosition(int64_t position) const;
    int64_t DeleteATag(const char16_t* path, const char16_t* names) const;

private:
    const Plugin& plugin_;
    void* handle_ = nullptr;
};

}  // namespace host
