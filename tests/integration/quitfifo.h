#pragma once
// The host's side of a quit event: on Linux a FIFO set by writing a byte and
// reset by reading it back, on Windows a named event; failures throw.

#include <string>

namespace it {

class QuitFifo {
public:
    explicit QuitFifo(const std::string& path);
    QuitFifo(const QuitFifo&) = delete;
    QuitFifo& operator=(const QuitFifo&) = delete;
    ~QuitFifo();
    const std::string& Path() const { return path_; }
    void Set();
    bool IsSet() const;
    void Reset();

private:
    std::string path_;
    int fd_ = -1;
};

}  // namespace it
