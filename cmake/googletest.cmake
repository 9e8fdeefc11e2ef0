# GTest::gtest, GTest::gmock, GTest::gtest_main: Debian's library, or its source package built for the target.
if(CMAKE_CROSSCOMPILING)
  set(INSTALL_GTEST OFF)
  add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
  foreach(library gtest gmock gtest_main gmock_main)
    if(NOT TARGET GTest::${library})
      add_library(GTest::${library} ALIAS ${library})
    endif()
    target_compile_options(${library} PRIVATE -w)  # its warnings are not ours to mend
  endforeach()
else()
  find_package(GTest REQUIRED)
endif()
include(GoogleTest)
