# zelk_add_block(NAME sources...): a block plug-in, built as NAME.so and loaded by that name.
#
# No "lib" prefix, so that blocks are called NAME_0, NAME_1, ...; only CreateBlock is exported; a
# missing symbol fails the build, not the route. Unique symbols would keep a plug-in loaded for ever.
function(zelk_add_block name)
  add_library(${name} MODULE ${ARGN})
  target_link_libraries(${name} PRIVATE zelk::zelk)
  target_compile_features(${name} PRIVATE cxx_std_20)
  set_target_properties(${name} PROPERTIES
    PREFIX ""
    SUFFIX ".so"
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${name} PRIVATE -fno-gnu-unique)
  endif()
  if(UNIX AND NOT APPLE AND NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize")
    target_link_options(${name} PRIVATE -Wl,--no-undefined)
  endif()
  if(DEFINED ZELK_BLOCK_OUTPUT_DIRECTORY)
    set_target_properties(${name} PROPERTIES
      LIBRARY_OUTPUT_DIRECTORY "${ZELK_BLOCK_OUTPUT_DIRECTORY}")
  endif()
endfunction()
