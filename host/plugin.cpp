#include "host/plugin.h"

#include <utility>

#include "host/errors.h"
#include "host/library.h"

namespace host {

Plugin::Plugin(const std::string& path) : path_(path) {
    std::string reason;
    library_ = library::Load(path, reason);
    if (library_ == nullptr) throw HostError("cannot load the plug-in: " + reason);
    try {
        Create = reinterpret_cast<DecoderCreateFn*>(Resolve("Create"));
        Destroy = reinterpret_cast<DecoderDestroyFn*>(Resolve("Destroy"));
        Get = reinterpret_cast<DecoderGetFn*>(Resolve("Get"));
        Set = reinterpret_cast<DecoderSetFn*>(Resolve("Set"));
        Open = reinterpret_cast<DecoderOpenFn*>(Resolve("Open"));
        Close = reinterpret_cast<DecoderCloseFn*>(Resolve("Close"));
        DecodeBlock = reinterpret_cast<DecoderDecodeBlockFn*>(Resolve("DecodeBlock"));
        SetPosition = reinterpret_cast<DecoderSetPositionFn*>(Resolve("SetPosition"));
        DeleteATag = reinterpret_cast<DecoderDeleteATagFn*>(Resolve("DeleteATag"));
    } catch (...) {
        Unload();
        throw;
    }
}

Plugin::Plugin(Plugin&& other) noexcept { *this = std::move(other); }

Plugin& Plugin::operator=(Plugin&& other) noexcept {
    if (this == &other) return *this;
    Unload();
    path_ = std::move(other.path_);
    library_ = std::exchange(other.library_, nullptr);
    Create = std::exchange(other.Create, nullptr);
    Destroy = std::exchange(other.Destroy, nullptr);
    Get = std::exchange(other.Get, nullptr);
    Set = std::exchange(other.Set, nullptr);
    Open = std::exchange(other.Open, nullptr);
    Close = std::exchange(other.Close, nullptr);
    DecodeBlock = std::exchange(other.DecodeBlock, nullptr);
    SetPosition = std::exchange(other.SetPosition, nullptr);
    DeleteATag = std::exchange(other.DeleteATag, nullptr);
    return *this;
}

Plugin::~Plugin() { Unload(); }

void Plugin::Unload() {
    library::Unload(library_);
    library_ = nullptr;
}

void* Plugin::Resolve(const char* name) {
    void* symbol = library::Symbol(library_, name);
    if (symbol == nullptr) {
        throw HostError("the plug-in " + path_ + " lacks the entry point " + name);
    }
    return symbol;
}

Decoder::Decoder(const Plugin& plugin, const DecoderCreateInfo& info) : plugin_(plugin) {
    handle_ = plugin_.Create(&info);
    if (handle_ == nullptr) throw HostError("the plug-in could not create a decoder");
}

Decoder::~Decoder() { plugin_.Destroy(handle_); }

int64_t Decoder::Get(const char16_t* key, DecoderParam& param) const {
    return plugin_.Get(handle_, key, &param);
}

int64_t Decoder::Set(const char16_t* key, DecoderParam& param) const {
    return plugin_.Set(handle_, key, &param);
}

int64_t Decoder::Open(DecoderOpenInfo& info) const { return plugin_.Open(handle_, &info); }

int64_t Decoder::Close() const { return plugin_.Close(handle_); }

int64_t Decoder::DecodeBlock(DecoderBlockInfo& block) const {
    return plugin_.DecodeBlock(handle_, &block);
}

int64_t Decoder::SetPosition(int64_t position) const {
    return plugin_.SetPosition(handle_, position);
}

int64_t Decoder::DeleteATag(const char16_t* path, const char16_t* names) const {
    return plugin_.DeleteATag(handle_, path, names);
}

}  // namespace host
