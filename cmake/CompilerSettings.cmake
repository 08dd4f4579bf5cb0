# Language level, hardening and sanitizers, the same for every target of ours.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
include(CheckPIESupported)
check_pie_supported()

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()

set(CMAKE_CXX_FLAGS_RELEASE "-O2 -g1 -DNDEBUG")

option(MNEMORA_COVERAGE "Count which lines run" OFF)
if(MNEMORA_COVERAGE)
  add_compile_options(--coverage -fprofile-update=atomic)
  add_link_options(--coverage)
endif()

add_compile_options(-fstack-protector-strong -fcf-protection)
add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
if(CMAKE_BUILD_TYPE STREQUAL "Release")
  add_compile_definitions(_FORTIFY_SOURCE=2)
endif()

set(MNEMORA_SANITIZE "" CACHE STRING "Sanitizers to build with, as -fsanitize names them")
if(MNEMORA_SANITIZE)
  add_compile_options(-fsanitize=${MNEMORA_SANITIZE} -fno-omit-frame-pointer -O1)
  add_link_options(-fsanitize=${MNEMORA_SANITIZE})
  if(MNEMORA_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()

add_library(mnemora-warnings INTERFACE)
target_compile_options(
  mnemora-warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
