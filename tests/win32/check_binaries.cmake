cmake_minimum_required(VERSION 3.22)
# Run by CTest on the build machine: the DLL exports exactly the nine entry
# points, and the DLL and fdhost.exe import nothing but Windows system DLLs
# (the compiler's runtime is linked in).
#   cmake -DOBJDUMP=... -DPLUGIN=... -DHOST=... -P check_binaries.cmake
set(expected_exports Close Create DecodeBlock DeleteATag Destroy Get Open Set SetPosition)
set(system_dlls advapi32.dll bcrypt.dll kernel32.dll msvcrt.dll ntdll.dll ole32.dll oleaut32.dll
  shell32.dll user32.dll ws2_32.dll)

function(dump binary out)
  execute_process(COMMAND ${OBJDUMP} -p ${binary} OUTPUT_VARIABLE text RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${OBJDUMP} -p ${binary} failed")
  endif()
  set(${out} "${text}" PARENT_SCOPE)
endfunction()

function(check_imports binary text)
  string(REGEX MATCHALL "DLL Name: [^\n]+" lines "${text}")
  if(NOT lines)
    message(FATAL_ERROR "${binary}: no import table found")
  endif()
  foreach(line IN LISTS lines)
    string(REGEX REPLACE "DLL Name: " "" dll "${line}")
    string(STRIP "${dll}" dll)
    string(TOLOWER "${dll}" lower)
    if(NOT lower IN_LIST system_dlls AND NOT lower MATCHES "^api-ms-win-")
      message(FATAL_ERROR "${binary} imports ${dll}, which is not a Windows system DLL")
    endif()
  endforeach()
  message(STATUS "${binary}: imports ${lines}")
endfunction()

dump(${PLUGIN} plugin_text)
# The names stand between the "[Ordinal/Name Pointer] Table" line and the
# next blank line, one per line as "[ n] Name".
string(REGEX MATCH "\\[Ordinal/Name Pointer\\] Table\n([^\n]+\n)+" table "${plugin_text}")
string(REGEX MATCHALL "\\[ *[0-9]+\\] [^\n]+" names "${table}")
list(TRANSFORM names REPLACE "^\\[ *[0-9]+\\] " "")
list(TRANSFORM names STRIP)
list(SORT names)
if(NOT names STREQUAL expected_exports)
  message(FATAL_ERROR "${PLUGIN} exports '${names}', expected '${expected_exports}'")
endif()
message(STATUS "${PLUGIN}: exports ${names}")
check_imports(${PLUGIN} "${plugin_text}")

dump(${HOST} host_text)
check_imports(${HOST} "${host_text}")
