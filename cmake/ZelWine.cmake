# A Windows build made on Linux runs its programs under Wine (ctest, test
# discovery, the scripts) through build/<preset>/wine-run, which gives the
# build a Wine prefix of its own and puts libzel.dll and the compiler's
# runtime DLLs on the program path.
if(NOT (WIN32 AND CMAKE_CROSSCOMPILING))
  return()
endif()

# The compiler's runtime DLLs: libstdc++, libgcc_s and winpthread.
set(ZEL_RUNTIME_DLLS)
foreach(dll libstdc++-6.dll libgcc_s_seh-1.dll libgcc_s_dw2-1.dll libwinpthread-1.dll)
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${dll}
    OUTPUT_VARIABLE found OUTPUT_STRIP_TRAILING_WHITESPACE)
  if(IS_ABSOLUTE "${found}" AND EXISTS "${found}")
    get_filename_component(found "${found}" REALPATH)
    list(APPEND ZEL_RUNTIME_DLLS "${found}")
  endif()
endforeach()
if(NOT ZEL_WINE)
  find_program(ZEL_WINE NAMES wine64 wine PATHS /usr/lib/wine)
endif()
if(NOT ZEL_WINE)
  message(WARNING "wine not found: the Windows programs are built but not run")
  return()
endif()

# The directories of the runtime DLLs (ZelInstall.cmake installs them too).
set(zel_wine_path "${CMAKE_BINARY_DIR}")
foreach(dll IN LISTS ZEL_RUNTIME_DLLS)
  get_filename_component(dir "${dll}" DIRECTORY)
  list(APPEND zel_wine_path "${dir}")
endforeach()
list(REMOVE_DUPLICATES zel_wine_path)
set(ZEL_WINEPATH "${zel_wine_path}")  # Wine separates with ";" too
set(ZEL_WINEPREFIX "${CMAKE_BINARY_DIR}/wineprefix")
configure_file(${CMAKE_CURRENT_LIST_DIR}/wine-run.in ${CMAKE_BINARY_DIR}/wine-run
  @ONLY FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
  WORLD_READ WORLD_EXECUTE)
set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_BINARY_DIR}/wine-run")
