// The worker stand-in on Windows: binary standard streams, no commands.
#include <fcntl.h>
#include <io.h>
#include <cstdio>
#include "tests/integration/fake_worker.h"

void PrepareOutputs() {
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
}
int RunCommands(int /*argc*/, char** /*argv*/) { return 2; }
