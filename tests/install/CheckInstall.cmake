# Installs the build into an empty prefix (cmake -DBUILD_DIR=… -DPREFIX=… -P CheckInstall.cmake) and
# checks that a desktop finds what it needs there: the programs side by side, the menu entry naming a
# program and an icon that are installed, and the metainfo naming that entry.
file(REMOVE_RECURSE "${PREFIX}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${PREFIX}"
  RESULT_VARIABLE failed OUTPUT_QUIET)
if(failed)
  message(FATAL_ERROR "cmake --install failed: ${failed}")
endif()

function(expect path)
  if(NOT EXISTS "${PREFIX}/${path}")
    message(SEND_ERROR "not installed: ${path}")
  endif()
endfunction()

foreach(program vellumark vellumark-cli vellumark-reader)
  expect(bin/${program})
endforeach()

set(entry share/applications/org.vellumark.Vellumark.desktop)
expect(${entry})
file(STRINGS "${PREFIX}/${entry}" icon REGEX "^Icon=")
string(REGEX REPLACE "^Icon=" "" icon "${icon}")
expect(share/icons/hicolor/scalable/apps/${icon}.svg)
file(STRINGS "${PREFIX}/${entry}" exec REGEX "^Exec=")
string(REGEX REPLACE "^Exec=([^ ]+).*" "\\1" exec "${exec}")
expect(bin/${exec})

set(metainfo share/metainfo/org.vellumark.Vellumark.metainfo.xml)
expect(${metainfo})
file(READ "${PREFIX}/${metainfo}" text)
string(REGEX MATCH "<launchable type=\"desktop-id\">([^<]+)</launchable>" launchable "${text}")
expect(share/applications/${CMAKE_MATCH_1})
