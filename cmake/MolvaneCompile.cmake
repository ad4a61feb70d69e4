# How every target of the project is compiled. One interface target, so that no package repeats a flag.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)

add_library(MolvaneCompile INTERFACE)
target_include_directories(MolvaneCompile INTERFACE "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/Packages>")
target_compile_options(MolvaneCompile INTERFACE -Wall -Wextra -ffunction-sections -fdata-sections)
target_link_libraries(MolvaneCompile INTERFACE Threads::Threads)
target_link_options(MolvaneCompile INTERFACE -Wl,--as-needed)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(MolvaneCompile INTERFACE -Wthread-safety)
elseif(CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # g++ 12 sees overlapping copies in the library's own string concatenation when it optimizes (its bug 105651).
  target_compile_options(MolvaneCompile INTERFACE -Wno-restrict)
endif()
if(MOLVANE_SANITIZE)
  target_compile_options(MolvaneCompile INTERFACE -fsanitize=${MOLVANE_SANITIZE} -fno-omit-frame-pointer
                                                  -fno-sanitize-recover=all)
  target_link_options(MolvaneCompile INTERFACE -fsanitize=${MOLVANE_SANITIZE})
elseif(CMAKE_BUILD_TYPE STREQUAL "Release")
  target_compile_options(MolvaneCompile INTERFACE -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
  # No function of ours is replaced when a program is loaded, so those that are called may be inlined.
  if(NOT APPLE)
    target_compile_options(MolvaneCompile INTERFACE -fno-semantic-interposition)
  endif()
  target_link_options(MolvaneCompile INTERFACE -Wl,-z,relro,-z,now -Wl,--gc-sections)
endif()

# What differs between hosts is a folder of sources in each package, picked here and nowhere else. A package's Sources.cmake
# in that folder lists them.
if(APPLE)
  set(MOLVANE_HOST macos)
else()
  set(MOLVANE_HOST linux)
endif()
