# Warnings, sanitizers and visibility: the same for the library, the tools and the tests.

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
endif()

function(vellcore_link_options target)
  if(VELLCORE_SANITIZE)
    target_link_options(${target} PRIVATE -fsanitize=${VELLCORE_SANITIZE})
  endif()
  if(VELLCORE_COVERAGE)
    target_link_options(${target} PRIVATE --coverage)
  endif()
endfunction()

function(vellcore_configure target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES
    CXX_EXTENSIONS OFF CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  target_compile_options(${target} PRIVATE
    -Wall -Wextra -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Wold-style-cast -Wcast-qual
    -Wformat=2 -Wundef -Wimplicit-fallthrough -fstack-protector-strong)
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(${target} PRIVATE -Wthread-safety -Werror=thread-safety)
  endif()
  if(VELLCORE_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(VELLCORE_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${VELLCORE_SANITIZE} -fno-omit-frame-pointer)
    if(VELLCORE_SANITIZE MATCHES "undefined")
      target_compile_options(${target} PRIVATE -fno-sanitize-recover=undefined)
    endif()
  endif()
  if(VELLCORE_COVERAGE)
    target_compile_options(${target} PRIVATE --coverage)
  endif()
  target_compile_definitions(${target} PRIVATE
    _FILE_OFFSET_BITS=64 $<$<CONFIG:Debug>:VELLCORE_CHECKED=1>)
  vellcore_link_options(${target})
endfunction()
