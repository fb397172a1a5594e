# Cross build for Windows x64 with Debian's mingw-w64, posix thread model
# (package g++-mingw-w64-x86-64-posix): std::thread and std::mutex need it.
# Tests run through Wine; scripts/test-windows.sh prepares its prefix.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(FD_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${FD_MINGW_PREFIX}-gcc-posix)
set(CMAKE_CXX_COMPILER ${FD_MINGW_PREFIX}-g++-posix)
set(CMAKE_RC_COMPILER ${FD_MINGW_PREFIX}-windres)
set(CMAKE_OBJDUMP ${FD_MINGW_PREFIX}-objdump CACHE FILEPATH "")

set(CMAKE_FIND_ROOT_PATH /usr/${FD_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The 64-bit loader of Debian's wine package; every test binary runs in it.
set(CMAKE_CROSSCOMPILING_EMULATOR /usr/bin/wine CACHE FILEPATH "")
