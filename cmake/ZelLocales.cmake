# The named C locales the tests use, generated with localedef into the build
# tree, so no test depends on what the machine has installed. Tests find them
# through LOCPATH (set to ZEL_LOCALE_DIR). The generated files are the C
# library's own data, the same for x86-64 and i686 builds.
#
# zel_locales(<target>) adds a custom target <target> that builds them; when
# localedef is missing the target does nothing and the tests that need a
# named locale skip themselves.
set(ZEL_LOCALE_DIR "${CMAKE_BINARY_DIR}/locales")
set(ZEL_TEST_LOCALES
  "de_DE.ISO-8859-1:de_DE:ISO-8859-1"
  "de_DE.UTF-8:de_DE:UTF-8"
  "nl_NL.ISO-8859-1:nl_NL:ISO-8859-1"
  "en_US.UTF-8:en_US:UTF-8")

find_program(ZEL_LOCALEDEF localedef)

function(zel_locales target)
  set(outputs)
  if(ZEL_LOCALEDEF)
    foreach(entry IN LISTS ZEL_TEST_LOCALES)
      string(REPLACE ":" ";" parts "${entry}")
      list(GET parts 0 name)
      list(GET parts 1 input)
      list(GET parts 2 charmap)
      set(out "${ZEL_LOCALE_DIR}/${name}/LC_CTYPE")
      # localedef exits with 1 for mere warnings; what counts is the output.
      add_custom_command(OUTPUT "${out}"
        COMMAND ${CMAKE_COMMAND} -E make_directory "${ZEL_LOCALE_DIR}"
        COMMAND sh -c "'${ZEL_LOCALEDEF}' --no-archive -c -i ${input} -f ${charmap} '${ZEL_LOCALE_DIR}/${name}' >/dev/null 2>&1; test -f '${out}'"
        COMMENT "Generating the ${name} locale for the tests"
        VERBATIM)
      list(APPEND outputs "${out}")
    endforeach()
  else()
    message(WARNING "localedef not found: tests that need named locales will skip")
  endif()
  add_custom_target(${target} DEPENDS ${outputs})
endfunction()
