# How everything in this tree is built: one layout for build and install trees, one set of warnings.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

# The build tree mirrors an install tree, so that bare block names load from both.
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bin")
set(ZELK_BLOCK_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib/zelk")

if(APPLE)
  set(ZELK_ORIGIN "@loader_path")
else()
  set(ZELK_ORIGIN "$ORIGIN")
endif()

find_package(Threads REQUIRED)

# Warnings of our own targets; they never reach a dependent's build.
function(zelk_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
endfunction()
