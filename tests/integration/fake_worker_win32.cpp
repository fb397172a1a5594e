// The worker stand-in has no commands on Windows: the tests that use them are Linux ones.

#include "tests/integration/fake_worker.h"

int RunCommands(int /*argc*/, char** /*argv*/) { return 2; }
