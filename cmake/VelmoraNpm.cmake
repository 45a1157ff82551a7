# Installing a folder's npm packages into the build tree at configure time:
# `npm ci` against its package-lock.json, with npm's download cache in the
# build folder, repeated only when the lockfile changes.
find_program(VELMORA_NODE node)
find_program(VELMORA_NPM npm)
set(VELMORA_NPM_CACHE ${PROJECT_BINARY_DIR}/npm-cache CACHE PATH "npm's download cache for the viewer's packages")

# Sets `result` to TRUE when `binary_dir`/node_modules holds the packages of
# `source_dir`'s lockfile.
function(velmora_npm_ci source_dir binary_dir result)
  set(${result} FALSE PARENT_SCOPE)
  if(NOT VELMORA_NODE OR NOT VELMORA_NPM)
    return()
  endif()
  file(SHA256 ${source_dir}/package-lock.json lock_hash)
  set(stamp ${binary_dir}/node_modules/.velmora-lock-sha256)
  if(EXISTS ${stamp})
    file(READ ${stamp} installed_hash)
    if(installed_hash STREQUAL lock_hash)
      set(${result} TRUE PARENT_SCOPE)
      return()
    endif()
  endif()
  file(MAKE_DIRECTORY ${binary_dir})
  configure_file(${source_dir}/package.json ${binary_dir}/package.json COPYONLY)
  configure_file(${source_dir}/package-lock.json ${binary_dir}/package-lock.json COPYONLY)
  message(STATUS "npm ci in ${binary_dir}")
  execute_process(
    COMMAND ${CMAKE_COMMAND} -E env npm_config_cache=${VELMORA_NPM_CACHE}
            ${VELMORA_NPM} ci --no-audit --no-fund --loglevel=error
    WORKING_DIRECTORY ${binary_dir}
    RESULT_VARIABLE status
    TIMEOUT 600)
  if(NOT status EQUAL 0)
    message(WARNING "npm ci failed in ${binary_dir} (${status})")
    return()
  endif()
  file(WRITE ${stamp} ${lock_hash})
  set(${result} TRUE PARENT_SCOPE)
endfunction()
