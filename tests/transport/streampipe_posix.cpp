#include <fcntl.h>
#include <unistd.h>

#include <stdexcept>

#include "streampipe.h"

StreamPipe::StreamPipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) throw std::runtime_error("pipe2");
    in.handle = ends[0];
    out.handle = ends[1];
}

StreamPipe::~StreamPipe() {
    CloseWriteEnd();
    ::close(static_cast<int>(in.handle));
}

void StreamPipe::CloseWriteEnd() {
    if (out.handle != Qel::kNoPipe) ::close(static_cast<int>(out.handle));
    out.handle = Qel::kNoPipe;
}
