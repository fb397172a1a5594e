# The plug-in runs the worker "ffmpeg-lgpl" from the parent folder of its own
# folder and never searches PATH. Build and install trees get that name as a
# symbolic link to the system's ffmpeg, found here once.
find_program(FD_FFMPEG_EXECUTABLE NAMES ffmpeg)
if(NOT FD_FFMPEG_EXECUTABLE)
  message(WARNING
    "ffmpeg was not found on this system. The plug-in builds, but it cannot decode "
    "until ffmpeg is installed (Debian: apt-get install ffmpeg) and CMake is re-run.")
endif()

function(fd_make_worker_link dir)
  if(FD_FFMPEG_EXECUTABLE AND NOT WIN32)
    file(CREATE_LINK ${FD_FFMPEG_EXECUTABLE} ${dir}/ffmpeg-lgpl SYMBOLIC)
  endif()
endfunction()

function(fd_install_worker_link reldir)
  if(FD_FFMPEG_EXECUTABLE AND NOT WIN32)
    install(CODE "
      set(_dir \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${reldir}\")
      file(MAKE_DIRECTORY \"\${_dir}\")
      file(CREATE_LINK \"${FD_FFMPEG_EXECUTABLE}\" \"\${_dir}/ffmpeg-lgpl\" SYMBOLIC)
      message(STATUS \"Worker link: \${_dir}/ffmpeg-lgpl -> ${FD_FFMPEG_EXECUTABLE}\")")
  endif()
endfunction()
