# Compiler settings that every target of the project shares.
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

find_program(ZN_CCACHE ccache)
if(ZN_CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${ZN_CCACHE})
  set(CMAKE_C_COMPILER_LAUNCHER ${ZN_CCACHE})
endif()

set(ZN_SANITIZE "" CACHE STRING "Sanitizers to build with: address,undefined or thread")
if(ZN_SANITIZE)
  add_compile_options(-fsanitize=${ZN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ZN_SANITIZE})
endif()
if(ZN_BUILD_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)  # the coverage that guides libFuzzer
endif()

add_library(zn_warnings INTERFACE)
target_compile_options(zn_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<BOOL:$<TARGET_PROPERTY:ZN_LAYER>>:-Wmissing-declarations>
  $<$<COMPILE_LANGUAGE:CXX>:-Wold-style-cast> -Werror
  $<$<CXX_COMPILER_ID:Clang>:-Wthread-safety>)
