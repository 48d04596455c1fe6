# Faults of plug-ins, clients and the machine.
zelk_test(route_end ISOLATED SOURCES support/quick_exit.cpp LIBRARIES core_support
          BLOCKS ${TEST_BLOCKS})
zelk_test(stress ISOLATED BLOCKS ${TEST_BLOCKS})
set(STOCK)
foreach(block siggen gain convert resample tee mixer meter pace filesink ladspa lv2)
  if(TARGET ${block})
    list(APPEND STOCK ${block})
  endif()
endforeach()
zelk_test(misbehave ISOLATED SOURCES support/quick_exit.cpp LIBRARIES core_support
          BLOCKS ${TEST_BLOCKS})
zelk_test(misbehave_descriptors ISOLATED SOURCES support/quick_exit.cpp LIBRARIES core_support
          BLOCKS ${TEST_BLOCKS} ${STOCK})
list(JOIN STOCK "," STOCK)
target_compile_definitions(misbehave_descriptors_test PRIVATE "STOCK_BLOCKS=\"${STOCK}\"")
if(TARGET jack AND TARGET audio)
  target_compile_definitions(misbehave_descriptors_test PRIVATE WITH_JACK)
  add_dependencies(misbehave_descriptors_test jack audio)
endif()
zelk_test(fault_machine ISOLATED BLOCKS worker SOURCES support/Allocator.cpp support/Faults.cpp
          support/RecordCounter.cpp support/quick_exit.cpp)
# The library's own run path does not count where the test answers for dlopen.
set_tests_properties(fault_machine PROPERTIES
  ENVIRONMENT "LD_LIBRARY_PATH=${ZELK_BLOCK_OUTPUT_DIRECTORY}")

add_executable(exit_cycle_host exit_cycle_host.cpp support/quick_exit.cpp)
target_link_libraries(exit_cycle_host PRIVATE zelk::zelk vantrel::vantrel GTest::gtest)
target_include_directories(exit_cycle_host PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
set_target_properties(exit_cycle_host PROPERTIES
  RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests")
zelk_warnings(exit_cycle_host)
add_dependencies(exit_cycle_host worker)
add_test(NAME exit_cycles
         COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/support/isolated
                 ${CMAKE_CURRENT_SOURCE_DIR}/exit_cycles.sh $<TARGET_FILE:exit_cycle_host> 100)
set_tests_properties(exit_cycles PROPERTIES TIMEOUT 300)
