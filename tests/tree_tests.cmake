# What the documents show, what is installed, the demo, and what the stock blocks are made of.
add_test(NAME reference COMMAND ${PROJECT_SOURCE_DIR}/scripts/docs ${CMAKE_CURRENT_BINARY_DIR}/docs)
set_tests_properties(reference PROPERTIES SKIP_RETURN_CODE 77)
add_test(NAME readme COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/readme_test.sh ${PROJECT_SOURCE_DIR})
if(TARGET filesrc AND TARGET gain AND TARGET filesink)
  add_test(NAME installed COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/support/isolated
    ${CMAKE_CURRENT_SOURCE_DIR}/installed_test.sh ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}
    ${CMAKE_CXX_COMPILER} "${CMAKE_CXX_FLAGS}")
  set_tests_properties(installed PROPERTIES TIMEOUT 300)
  set(documents docs/tutorial.md)
  find_program(SOX sox)
  if(SOX)
    list(APPEND documents docs/dumps.md)
  endif()
  # As a reader would: with the machine's compiler and none of this build's flags.
  if(NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize|--coverage")
    add_test(NAME documents COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/support/isolated
      ${CMAKE_CURRENT_SOURCE_DIR}/documents_test.sh ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}
      ${documents})
    set_tests_properties(documents PROPERTIES TIMEOUT 300)
  endif()
endif()

# Ten routes at once, and each sample of theirs looked at.
file(GLOB voices /usr/share/sounds/alsa/*.wav)
if(TARGET demo-files AND TARGET filesrc AND voices)
  add_test(NAME demo COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/support/isolated
    ${PROJECT_SOURCE_DIR}/examples/demo.bash ${PROJECT_BINARY_DIR} ${CMAKE_CURRENT_BINARY_DIR}/demo-out)
  add_test(NAME readme_session COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/support/isolated
    ${CMAKE_CURRENT_SOURCE_DIR}/readme_session_test.sh ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
  set_tests_properties(demo readme_session PROPERTIES TIMEOUT 300)
endif()

get_property(targets DIRECTORY "${PROJECT_SOURCE_DIR}/blocks" PROPERTY BUILDSYSTEM_TARGETS)
list(APPEND targets invert)
foreach(target IN LISTS targets)
  get_target_property(type ${target} TYPE)
  if(type STREQUAL "MODULE_LIBRARY")
    add_test(NAME validate_${target} COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/support/isolated
      ${CMAKE_CURRENT_SOURCE_DIR}/validate_stock_test.sh $<TARGET_FILE:zelk-validate> $<TARGET_FILE:${target}>)
    set_tests_properties(validate_${target} PROPERTIES TIMEOUT 300 SKIP_RETURN_CODE 77)
  endif()
endforeach()

# What is shipped: the exported names, and the packages; with the stand-in, and no sanitizer's names.
get_target_property(imported vantrel IMPORTED)
if(UNIX AND NOT APPLE AND NOT imported AND NOT CMAKE_CXX_FLAGS MATCHES "-fsanitize|--coverage")
  add_test(NAME exported_symbols COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/exported_symbols_test.sh
    ${CMAKE_CURRENT_SOURCE_DIR}/exported-symbols.txt
    $<TARGET_LINKER_FILE:zelk> $<TARGET_LINKER_FILE:vantrel>)
  add_test(NAME packages COMMAND ${PROJECT_SOURCE_DIR}/scripts/package
    ${PROJECT_BINARY_DIR} ${CMAKE_CURRENT_BINARY_DIR}/packages)
  set_tests_properties(packages PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 600)
endif()
