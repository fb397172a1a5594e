#include "host/openread.h"

#include <cstdio>
#include <optional>

#include "host/errors.h"
#include "host/plugin.h"
#include "host/quittimer.h"
#include "host/session.h"
#include "host/text.h"

namespace host {

bool OpenAndRead(const CommandContext& context, const std::string& path, uint32_t flags, OpenResult& result) {
    const Session session(context.options);
    const Decoder decoder(session.plugin(), session.CreateInfo());
    std::optional<QuitTimer> quit;
    if (context.options.quitAfterMs >= 0) quit.emplace(decoder, context.options.quitAfterMs);
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

int OpenFailed(const CommonOptions& options, const std::string& path) {
    std::fprintf(stderr, "fdhost: the plug-in could not open %s (%s)\n", path.c_str(), WhereToSeeWhy(options).c_str());
    return kExitFailed;
}

}  // namespace host
