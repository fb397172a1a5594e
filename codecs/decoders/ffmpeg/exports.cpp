// The plug-in's nine entry points. This is a C border: every result is a
// 64-bit number, a null decoder answers at once, and no exception leaves.

#include <exception>
#include <memory>
#include <new>
#include <type_traits>

#include "codecs/decoders/ffmpeg/decoder.h"
#include "codecs/decoders/ffmpeg/exports.h"
#include "support/clLog.h"
#include "support/clString.h"
#include "transport/exceptions.h"

// ELF objects export by visibility (the build hides everything else);
// elsewhere cmake/exports.def lists the entry points.
#if defined(__ELF__)
#define FD_EXPORT __attribute__((visibility("default")))
#else
#define FD_EXPORT
#endif

namespace {

clDecoder_ffmpeg* AsDecoder(void* decoder) { return static_cast<clDecoder_ffmpeg*>(decoder); }

// Logging a failure must not itself let anything escape.
void LogFailure(const clDecoder_ffmpeg& decoder, const char* label, const char* what) noexcept {
    try {
        clLog::Error(clString::FromUtf8(what), decoder.Log(), label);
    } catch (...) {
    }
}

// Runs one method of the decoder. A quit request ends it silently; any other
// exception is logged under the export's label and gives 0.
template <class Body>
int64_t Guarded(clDecoder_ffmpeg& decoder, const char* label, Body&& body) noexcept {
    try {
        return body() ? 1 : 0;
    } catch (const Qel::user_abort&) {
        return 0;
    } catch (const std::exception& error) {
        LogFailure(decoder, label, error.what());
        return 0;
    } catch (...) {
        LogFailure(decoder, label, "unknown failure");
        return 0;
    }
}

}  // namespace

extern "C" {

// Never null in practice; an exhausted heap gives null here instead of an
// exception, since nothing may be thrown across this border.
FD_EXPORT void* Create(const DecoderCreateInfo* info) {
    try {
        const DecoderCreateInfo words = info != nullptr ? *info : DecoderCreateInfo{};
        return std::make_unique<clDecoder_ffmpeg>(words).release();
    } catch (...) {
        return nullptr;
    }
}

FD_EXPORT int64_t Destroy(void* decoder) {
    // The host hands back the ownership it got from Create.
    std::unique_ptr<clDecoder_ffmpeg> owned(AsDecoder(decoder));
    return 1;
}

FD_EXPORT int64_t Get(void* decoder, const char16_t* key, DecoderParam* param) {
    if (decoder == nullptr) return 0;
    clDecoder_ffmpeg& self = *AsDecoder(decoder);
    return Guarded(self, "clDecoder_ffmpeg::Get", [&] { return self.Get(key, param); });
}

FD_EXPORT int64_t Set(void* decoder, const char16_t* key, DecoderParam* param) {
    if (decoder == nullptr) return 0;
    clDecoder_ffmpeg& self = *AsDecoder(decoder);
    return Guarded(self, "clDecoder_ffmpeg::Set", [&] { return self.Set(key, param); });
}

FD_EXPORT int64_t Open(void* decoder, DecoderOpenInfo* info) {
    if (decoder == nullptr || info == nullptr) return 0;
    clDecoder_ffmpeg& self = *AsDecoder(decoder);
    return Guarded(self, "clDecoder_ffmpeg::Open", [&] { return self.Open(info); });
}

FD_EXPORT int64_t Close(void* decoder) {
    if (decoder == nullptr) return 0;
    clDecoder_ffmpeg& self = *AsDecoder(decoder);
    return Guarded(self, "clDecoder_ffmpeg::Close", [&] { return self.Close(); });
}

FD_EXPORT int64_t DecodeBlock(void* decoder, DecoderBlockInfo* block) {
    if (decoder == nullptr || block == nullptr) return 0;
    clDecoder_ffmpeg& self = *AsDecoder(decoder);
    return Guarded(self, "clDecoder_ffmpeg::DecodeBlock", [&] { return self.DecodeBlock(block); });
}

FD_EXPORT int64_t SetPosition(void* decoder, int64_t position) {
    if (decoder == nullptr) return 0;
    clDecoder_ffmpeg& self = *AsDecoder(decoder);
    return Guarded(self, "clDecoder_ffmpeg::SetPosition", [&] { return self.SetPosition(position); });
}

FD_EXPORT int64_t DeleteATag(void* decoder, const char16_t* path, const char16_t* names) {
    if (decoder == nullptr) return 0;
    clDecoder_ffmpeg& self = *AsDecoder(decoder);
    return Guarded(self, "clDecoder_ffmpeg::DeleteATag", [&] { return self.DeleteATag(path, names); });
}

}  // extern "C"

// The host resolves these by name and calls them through exports.h's types.
static_assert(std::is_same_v<decltype(Create), DecoderCreateFn>);
static_assert(std::is_same_v<decltype(Destroy), DecoderDestroyFn>);
static_assert(std::is_same_v<decltype(Get), DecoderGetFn>);
static_assert(std::is_same_v<decltype(Set), DecoderSetFn>);
static_assert(std::is_same_v<decltype(Open), DecoderOpenFn>);
static_assert(std::is_same_v<decltype(Close), DecoderCloseFn>);
static_assert(std::is_same_v<decltype(DecodeBlock), DecoderDecodeBlockFn>);
static_assert(std::is_same_v<decltype(SetPosition), DecoderSetPositionFn>);
static_assert(std::is_same_v<decltype(DeleteATag), DecoderDeleteATagFn>);
