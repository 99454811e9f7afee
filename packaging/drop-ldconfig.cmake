# Run by CPack after the .deb is built. CPack adds ldconfig calls to
# postinst and postrm for any library under /usr/lib, the program's private
# directory included; ldconfig never looks there, and the postrm would keep
# the package in dpkg's list ("rc") after dpkg -r. Rebuild without them.
foreach(deb IN LISTS CPACK_PACKAGE_FILES)
  if(NOT deb MATCHES "\\.deb$")
    continue()
  endif()
  set(root "${CPACK_TOPLEVEL_DIRECTORY}/drop-ldconfig")
  file(REMOVE_RECURSE "${root}")
  execute_process(COMMAND dpkg-deb -R "${deb}" "${root}" RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "dpkg-deb -R ${deb} failed")
  endif()
  foreach(script postinst postrm)
    set(path "${root}/DEBIAN/${script}")
    if(EXISTS "${path}")
      file(READ "${path}" text)
      # Only CPack's own ldconfig script goes; anything else stays.
      string(REGEX REPLACE "[ \t\r\n]" "" compact "${text}")
      if(compact MATCHES "^#!/bin/shset-eif\\[\"\\$1\"=\"(configure|remove)\"\\];thenldconfigfi$")
        file(REMOVE "${path}")
      endif()
    endif()
  endforeach()
  execute_process(COMMAND dpkg-deb --root-owner-group -b "${root}" "${deb}"
                  OUTPUT_QUIET RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "dpkg-deb -b ${deb} failed")
  endif()
  file(REMOVE_RECURSE "${root}")
endforeach()
