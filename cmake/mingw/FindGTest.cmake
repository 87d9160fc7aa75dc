# GoogleTest, compiled from the sources that Debian packages (googletest): there is no library of it for Windows.
set(BUILD_GMOCK OFF)
set(INSTALL_GTEST OFF)
set(CMAKE_POLICY_DEFAULT_CMP0077 NEW)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
set(GTest_FOUND TRUE)
