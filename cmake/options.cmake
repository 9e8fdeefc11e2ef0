# What every room is compiled with: warnings, sanitizers, hardening.
find_program(VEX_CCACHE ccache)
if(VEX_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # What it must be told to look through a precompiled header.
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${VEX_CCACHE})
endif()
# Read once per library instead of once per source. Sources include what they use all the same: clang-tidy sees them
# without this.
set(VEX_COMMON_HEADERS <fmt/format.h> <algorithm> <functional> <map> <string> <vector>)

add_library(vex_options INTERFACE)
target_include_directories(vex_options INTERFACE ${CMAKE_SOURCE_DIR})
target_compile_options(vex_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(VEX_WERROR)
  target_compile_options(vex_options INTERFACE -Werror)
endif()
if(VEX_SANITIZE)
  add_compile_options(-fsanitize=${VEX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${VEX_SANITIZE})
  if(VEX_SANITIZE MATCHES thread AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-tsan)  # g++ warns of every fence, because its sanitizer does not model them
  endif()
else()
  add_compile_options(-fstack-protector-strong)
  if(CMAKE_BUILD_TYPE STREQUAL "Release" OR CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
    add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  endif()
endif()
# Programs are position independent at link time too, not only in their objects.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)
add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
