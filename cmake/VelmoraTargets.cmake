# Compile settings shared by every target of ours.
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
# Shared libraries for the installed package; the Python wheel links them
# statically into its extension module so it is self-contained.
if(SKBUILD)
  set(VELMORA_LIBRARY_TYPE STATIC)
else()
  set(VELMORA_LIBRARY_TYPE SHARED)
endif()

function(velmora_target_defaults target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
  if(CMAKE_CXX_COMPILER_ID MATCHES "GNU|Clang")
    # No silent fused multiply-adds: results stay bit-identical between
    # vectorised and scalar code and across compilers.
    target_compile_options(${target} PRIVATE -Wall -Wextra -ffp-contract=off)
    if(VELMORA_WARNINGS_AS_ERRORS)
      target_compile_options(${target} PRIVATE -Werror)
    endif()
  endif()
endfunction()

# Shared libraries carry a versioned soname and find the libraries they need
# beside them once installed; executables find them in ../lib.
function(velmora_shared_library target)
  set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
    INSTALL_RPATH "$ORIGIN")
endfunction()

function(velmora_installed_executable target)
  file(RELATIVE_PATH libdir ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${libdir}")
endfunction()
