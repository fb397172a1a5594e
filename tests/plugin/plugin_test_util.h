#pragma once
// Shared by the tests that drive the built plug-in and fdhost from outside:
// the capability tables a host expects, as the JSON that `caps` prints.

#include <string>

#include "tests/integration/testkit.h"

inline std::string ExpectedCapsJson() {
    return R"({"description":"FFmpeg Decoder","decodes":[[".tak","Tom's Audio Kompressor"],[".shn","Shorten"],)"
           R"([".ac3","AC-3"],[".eac3","E-AC-3"],[".mka","Matroska Audio"],[".weba","Web Audio"],[".vqf","TwinVQ"],)"
           R"([".dts","DTS"],[".dtshd","DTS-HD"],[".tta","True Audio"],[".mlp","MLP"],[".ts","MPEG-TS"],)"
           R"([".ra","Real Audio"],[".rm","Real Audio"],[".voc","Creative Voice"],[".au","AU/SND"],[".snd","AU/SND"],)"
           R"([".amr","AMR"],[".awb","AMR"]],"streaming":["application/vnd.apple.mpegurl","audio/mpegurl",)"
           R"("audio/x-mpegurl","application/mpegurl","application/x-mpegurl"],"warnings":[]})"
           "\n";
}
