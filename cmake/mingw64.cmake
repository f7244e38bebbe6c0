# Cross-compiles zel for 64-bit Windows with MinGW-w64 and runs what it
# builds under Wine. The posix threads variant of the compiler is used: its
# runtime has std::thread and std::mutex, which the tests use beside zel's
# own threads. ZEL_MINGW_ARCH=i686 selects the 32-bit compilers instead.
set(CMAKE_SYSTEM_NAME Windows)
if(NOT ZEL_MINGW_ARCH)
  set(ZEL_MINGW_ARCH x86_64)
endif()
set(CMAKE_SYSTEM_PROCESSOR ${ZEL_MINGW_ARCH})
set(zel_mingw_triple ${ZEL_MINGW_ARCH}-w64-mingw32)

find_program(CMAKE_C_COMPILER NAMES ${zel_mingw_triple}-gcc-posix ${zel_mingw_triple}-gcc REQUIRED)
find_program(CMAKE_CXX_COMPILER NAMES ${zel_mingw_triple}-g++-posix ${zel_mingw_triple}-g++ REQUIRED)
find_program(CMAKE_RC_COMPILER NAMES ${zel_mingw_triple}-windres)

set(CMAKE_FIND_ROOT_PATH /usr/${zel_mingw_triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The compiler's runtime stays in its DLLs (libstdc++-6, libgcc_s, libwinpthread),
# shared by libzel.dll and the programs: one new-handler, one terminate
# handler and one set of exception types for both. cmake/ZelWine.cmake puts
# them on Wine's program path.
