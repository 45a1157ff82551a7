# Compile settings shared by every target of ours.
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

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
