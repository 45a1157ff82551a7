# The script of the page `--html` writes: viewer/ bundled with esbuild into
# one file and linked into `target` as a C++ string. Without node and npm (or
# with VELMORA_VIEWER off) the string is empty and --html says so.
include(${PROJECT_SOURCE_DIR}/cmake/VelmoraNpm.cmake)
option(VELMORA_VIEWER "Build the HTML viewer (needs node and npm)" ON)

function(velmora_add_viewer target)
  set(dir ${PROJECT_BINARY_DIR}/viewer)
  set(VELMORA_VIEWER_BUILT FALSE CACHE INTERNAL "")
  if(VELMORA_VIEWER)
    velmora_npm_ci(${PROJECT_SOURCE_DIR}/viewer ${dir} installed)
  endif()
  if(NOT VELMORA_VIEWER OR NOT installed)
    message(STATUS "velmora: building without the HTML viewer (needs node and npm)")
    set(stub ${dir}/ViewerScriptNone.cpp)
    file(WRITE ${stub} "// No viewer in this build.\n#include <string_view>\nnamespace velmora {\n"
                       "extern const std::string_view kViewerScript;\nconst std::string_view kViewerScript{};\n}\n")
    target_sources(${target} PRIVATE ${stub})
    return()
  endif()
  file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/viewer/src/*)
  add_custom_command(
    OUTPUT ${dir}/ViewerScript.cpp ${dir}/viewer.js
    COMMAND ${VELMORA_NODE} ${PROJECT_SOURCE_DIR}/viewer/build.mjs ${dir}/node_modules ${dir}/viewer.js
            ${dir}/ViewerScript.cpp
    DEPENDS ${PROJECT_SOURCE_DIR}/viewer/build.mjs ${PROJECT_SOURCE_DIR}/viewer/package-lock.json ${sources}
    COMMENT "Bundling the HTML viewer"
    VERBATIM)
  target_sources(${target} PRIVATE ${dir}/ViewerScript.cpp)
  set(VELMORA_VIEWER_BUILT TRUE CACHE INTERNAL "")
endfunction()
