# Tests that are shell scripts: what the documents show, and what is installed.
add_test(NAME readme COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/readme_test.sh ${PROJECT_SOURCE_DIR})
if(TARGET filesrc AND TARGET gain AND TARGET filesink)
  add_test(NAME installed COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/support/isolated
    ${CMAKE_CURRENT_SOURCE_DIR}/installed_test.sh ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}
    ${CMAKE_CXX_COMPILER} "${CMAKE_CXX_FLAGS}")
  set_tests_properties(installed PROPERTIES TIMEOUT 300)
endif()
