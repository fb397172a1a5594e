#pragma once
// A one-line progress bar on standard error for `fdhost decode`, drawn only
// when standard error is a terminal and the user didn't ask for quiet.

#include <chrono>
#include <cstdint>

namespace host {

class ProgressBar {
public:
    // `totalMs` 0 (unknown length) shows the time done without a bar.
    ProgressBar(bool wanted, int64_t totalMs);
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;
    // Redraws at most ten times a second.
    void Update(int64_t doneMs);
    // Draws the last state and ends the line.
    void Finish();

private:
    void Draw();

    bool enabled_;
    int64_t totalMs_;
    int64_t doneMs_ = 0;
    std::chrono::steady_clock::time_point lastDraw_{};
};

}  // namespace host
