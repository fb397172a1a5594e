// What the plug-in does when Windows loads and unloads it: Winsock 2.2 is
// started (its result ignored) and cleaned up again. The plug-in opens no
// socket itself. Linked into the DLL alone, so a static library can't drop it.

#include <winsock2.h>

namespace {

class WinsockScope {
public:
    WinsockScope() {
        WSADATA data{};
        (void)::WSAStartup(MAKEWORD(2, 2), &data);
    }
    WinsockScope(const WinsockScope&) = delete;
    WinsockScope& operator=(const WinsockScope&) = delete;
    ~WinsockScope() { ::WSACleanup(); }
};

const WinsockScope winsock;

}  // namespace
