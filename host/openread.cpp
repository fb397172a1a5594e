#include "host/openread.h"

#include <optional>

#include "host/plugin.h"
#include "host/quittimer.h"
#include "host/text.h"

namespace host {

bool OpenAndRead(const Session& session, const CommonOptions& options, const std::string& path, uint32_t flags,
                 OpenResult& result) {
    const Decoder decoder(session.plugin(), session.CreateInfo());
    std::optional<QuitTimer> quit;
    if (options.quitAfterMs >= 0) quit.emplace(decoder, options.quitAfterMs);
    const std::u16string widePath = Utf8ToUtf16(path);
    DecoderOpenInfo open{};
    open.path = widePath.c_str();
    open.flags = flags;
    if (decoder.Open(open) == 0) {
        decoder.Close();
        return false;
    }
    result.format = open.format;
    if (flags & kOpenWantTags) result.tags = ReadTagBlob(open.tags, open.tagsSize);
    if (flags & kOpenWantInfo) result.info = ReadTagBlob(open.info, open.infoSize);
    decoder.Close();
    return true;
}

}  // namespace host
