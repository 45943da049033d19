# Builds the Windows program on another system: mingw-w64 for x86_64 with POSIX threads, which std::thread wants.

set (CMAKE_SYSTEM_NAME Windows)
set (CMAKE_SYSTEM_PROCESSOR x86_64)

set (mingw x86_64-w64-mingw32)
set (CMAKE_C_COMPILER ${mingw}-gcc-posix)
set (CMAKE_CXX_COMPILER ${mingw}-g++-posix)
set (CMAKE_RC_COMPILER ${mingw}-windres)

# The image libraries that scripts/build-windows makes stand beside what the distribution has for mingw.
cmake_path (SET quendelDependencies NORMALIZE "${CMAKE_CURRENT_LIST_DIR}/../build/windows-deps")
set (CMAKE_FIND_ROOT_PATH "${quendelDependencies}" /usr/${mingw})
set (CMAKE_PREFIX_PATH "${quendelDependencies}")

set (CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set (CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set (CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

# The toolkit's CMake package is for every system, and stands with the building machine's own.
set (CMAKE_FIND_ROOT_PATH_MODE_PACKAGE BOTH)
file (GLOB juceFolders /usr/lib/*/cmake/JUCE-7.0.5)

if (juceFolders AND NOT JUCE_DIR)
    list (GET juceFolders 0 juceFolder)
    set (JUCE_DIR "${juceFolder}" CACHE PATH "Where the toolkit's CMake package is")
endif()
