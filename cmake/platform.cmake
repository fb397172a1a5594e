# Target-OS selection of seam sources and the system libraries they need.
if(WIN32)
  set(FD_SEAM "win32")
  set(FD_SEAM_EXCLUDE "_posix\\.cpp$")
  # The compiler's runtime goes into every binary: the plug-in and its tests
  # need nothing but system DLLs.
  add_link_options(-static -static-libgcc -static-libstdc++)
else()
  set(FD_SEAM "posix")
  set(FD_SEAM_EXCLUDE "_win32\\.cpp$")
endif()

# fd_collect_sources(OUT dir...) gathers the .cpp files of the given folders,
# dropping the other platform's seam files.
function(fd_collect_sources out)
  set(result "")
  foreach(dir IN LISTS ARGN)
    file(GLOB found CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/${dir}/*.cpp)
    list(APPEND result ${found})
  endforeach()
  list(FILTER result EXCLUDE REGEX "${FD_SEAM_EXCLUDE}")
  set(${out} ${result} PARENT_SCOPE)
endfunction()

add_library(fd_platform_libs INTERFACE)
if(WIN32)
  target_link_libraries(fd_platform_libs INTERFACE ws2_32 ole32)
else()
  find_package(Threads REQUIRED)
  target_link_libraries(fd_platform_libs INTERFACE Threads::Threads ${CMAKE_DL_LIBS})
endif()

set(FD_PLUGIN_DIR ${CMAKE_BINARY_DIR}/plugins)

# Only the nine entry points leave the plug-in.
function(fd_export_only_entry_points target)
  if(WIN32)
    target_sources(${target} PRIVATE ${CMAKE_SOURCE_DIR}/cmake/exports.def)
  else()
    target_link_options(${target} PRIVATE
      "LINKER:--version-script=${CMAKE_SOURCE_DIR}/cmake/exports.map")
    # A missing symbol fails the link, not the host's dlopen. Sanitizer
    # runtimes leave their symbols to the executable, so those builds can't.
    if(NOT FD_SANITIZE)
      target_link_options(${target} PRIVATE "LINKER:--no-undefined")
    endif()
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${CMAKE_SOURCE_DIR}/cmake/exports.map)
  endif()
endfunction()
