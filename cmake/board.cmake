# Static programs with musl in place of the distribution's C library: an eighth of the size, and made
# for any kernel from 2.6 on. The distribution's compiler, told of the other library.
set(CMAKE_SYSTEM_NAME Linux)

# arm-linux-gnueabihf-: hard float; arm-linux-gnueabi-: soft float; x86_64-linux-gnu-: to try it.
set(Q7_CROSS "arm-linux-gnueabihf-" CACHE STRING "Prefix of the compiler's commands")
# Where Debian's package musl-dev of the board's architecture is unpacked; tools/arm does that.
set(Q7_MUSL "/" CACHE PATH "Folder of musl's usr/include and usr/lib")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES Q7_CROSS Q7_MUSL)

string(REGEX MATCH "^[^-]*" CMAKE_SYSTEM_PROCESSOR "${Q7_CROSS}")
set(CMAKE_CXX_COMPILER "${Q7_CROSS}g++")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)

string(REGEX REPLACE "gnu(.*)-$" "musl\\1" triplet "${Q7_CROSS}")
set(include "${Q7_MUSL}/usr/include/${triplet}")
set(lib "${Q7_MUSL}/usr/lib/${triplet}")
if(NOT EXISTS "${lib}/libc.a")
  message(FATAL_ERROR "musl is missing: ${lib}/libc.a (tools/arm fetches it)")
endif()

# Where the compiler finds its headers by itself: libstdc++'s, its own, the C library's, the kernel's.
execute_process(COMMAND ${CMAKE_CXX_COMPILER} -E -v -x c++ /dev/null
  OUTPUT_QUIET ERROR_VARIABLE said RESULT_VARIABLE failed)
if(failed)
  message(FATAL_ERROR "${CMAKE_CXX_COMPILER} does not work: ${said}")
endif()
string(REGEX MATCHALL "\n /[^\n]*" folders "${said}")
list(TRANSFORM folders STRIP)
set(libstdcxx ${folders})
list(FILTER libstdcxx INCLUDE REGEX "/c\\+\\+/")
list(JOIN libstdcxx " -isystem " libstdcxx)

# The kernel's headers stand beside the C library's, which must not be seen: a folder of links.
set(kernel "${CMAKE_BINARY_DIR}/kernel-headers")
file(MAKE_DIRECTORY "${kernel}")
foreach(part linux asm asm-generic)
  find_path(header ${part}/types.h PATHS ${folders} NO_DEFAULT_PATH NO_CACHE REQUIRED)
  file(CREATE_LINK "${header}/${part}" "${kernel}/${part}" SYMBOLIC)
  unset(header)
endforeach()

set(CMAKE_CXX_FLAGS_INIT "-nostdinc -isystem ${libstdcxx} -isystem ${include} -isystem ${kernel}")
# What libstdc++'s headers expect of the other library.
string(APPEND CMAKE_CXX_FLAGS_INIT " -include ${CMAKE_CURRENT_LIST_DIR}/musl_shim.h")
# Nothing is thrown or asked for its type, and a program at a fixed address needs no relocation.
string(APPEND CMAKE_CXX_FLAGS_INIT " -fno-exceptions -fno-rtti")
string(APPEND CMAKE_CXX_FLAGS_INIT " -fno-pie -fno-unwind-tables -fno-asynchronous-unwind-tables")
string(APPEND CMAKE_CXX_FLAGS_INIT " -ffunction-sections -fdata-sections")
# The short instructions, which soft float does not have by default.
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "arm")
  string(APPEND CMAKE_CXX_FLAGS_INIT " -mthumb")
endif()

# Not libstdc++: what a program takes of it beyond the headers is an error at linking.
set(CMAKE_EXE_LINKER_FLAGS_INIT
  "-static -nostdlib -s -Wl,--gc-sections ${lib}/crt1.o ${lib}/crti.o ${lib}/crtn.o")
set(CMAKE_CXX_STANDARD_LIBRARIES "-Wl,--start-group ${lib}/libc.a -lgcc -Wl,--end-group")

# For CMakeLists.txt: what the product can be linked with by itself, and the name of the tarball.
set(Q7_MUSL_LIBRARY "${lib}/libc.a")
set(Q7_SYSTEM "${triplet}")
