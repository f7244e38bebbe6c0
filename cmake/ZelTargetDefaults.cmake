# What every zel target is built with: the warning set (ZEL_WERROR, on in
# every preset, turns them into errors) and source paths reported relative to
# the source tree, so a throw site reads src/memory.cpp.
function(zel_target_defaults target)
  target_compile_options(${target} PRIVATE "-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=")
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
    -Wcast-qual -Wformat=2 -Wimplicit-fallthrough -Wmissing-declarations)
  if(ZEL_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
