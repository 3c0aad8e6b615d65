# Build helpers shared by every folder of the tree.

option(VX_WERROR "Treat compiler warnings as errors" ON)

# Flags for Vantrel's own code (not for GoogleTest).
function(vx_code_flags target)
  target_compile_options(${target} PRIVATE -Wall -Wextra $<$<BOOL:${VX_WERROR}>:-Werror>)
endfunction()

# One static library per subsystem folder: every .cpp of the folder.
function(vx_add_library name)
  file(GLOB srcs CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(NOT srcs)
    # A subsystem whose code is still to come: an interface target keeps its dependents linking.
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${PROJECT_SOURCE_DIR})
    if(ARGN)
      target_link_libraries(${name} INTERFACE ${ARGN})
    endif()
    return()
  endif()
  add_library(${name} STATIC ${srcs})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  vx_code_flags(${name})
  if(ARGN)
    target_link_libraries(${name} PUBLIC ${ARGN})
  endif()
endfunction()

# One test executable per tests/ folder, registered as one CTest test (each Wine launch costs time).
function(vx_add_test name)
  file(GLOB srcs CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(NOT srcs)
    return()
  endif()
  add_executable(${name} ${srcs})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/tests)
  vx_code_flags(${name})
  target_link_libraries(${name} PRIVATE ${ARGN} vx_testsupport GTest::gmock GTest::gtest_main)
  add_test(NAME ${name} COMMAND ${name} --gtest_brief=1)
  set_tests_properties(${name} PROPERTIES TIMEOUT 600)
endfunction()
