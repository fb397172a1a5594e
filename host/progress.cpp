#include "host/progress.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "host/console.h"

namespace host {
namespace {

constexpr int kBarWidth = 40;
constexpr auto kRedrawEvery = std::chrono::milliseconds(100);

std::string Clock(int64_t ms) {
    const int64_t seconds = ms / 1000;
    char text[32];
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", static_cast<long long>(seconds / 3600),
                  static_cast<long long>(seconds / 60 % 60), static_cast<long long>(seconds % 60));
    return text;
}

}  // namespace

ProgressBar::ProgressBar(bool wanted, int64_t totalMs)
    : enabled_(wanted && console::StandardErrorIsTerminal()), totalMs_(totalMs > 0 ? totalMs : 0) {}

void ProgressBar::Update(int64_t doneMs) {
    doneMs_ = doneMs;
    if (!enabled_) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - lastDraw_ < kRedrawEvery) return;
    lastDraw_ = now;
    Draw();
}

void ProgressBar::Finish() {
    if (!enabled_) return;
    Draw();
    std::fputc('\n', stderr);
}

void ProgressBar::Draw() {
    if (totalMs_ == 0) {
        std::fprintf(stderr, "\r%s", Clock(doneMs_).c_str());
        return;
    }
    const int64_t done = std::min(doneMs_, totalMs_);
    const int filled = static_cast<int>(done * kBarWidth / totalMs_);
    const std::string bar = std::string(static_cast<size_t>(filled), '#') +
                            std::string(static_cast<size_t>(kBarWidth - filled), '.');
    std::fprintf(stderr, "\r[%s] %s / %s %3d%%", bar.c_str(), Clock(done).c_str(), Clock(totalMs_).c_str(),
                 static_cast<int>(done * 100 / totalMs_));
}

}  // namespace host
