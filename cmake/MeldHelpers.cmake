# Build helpers shared by every layer folder.
#
# Each layer folder is one library. Its sources are the *.cpp files of the folder
# (and of the sub-folders named with SUBDIRS); its tests live in tests/ beside them
# and build into one GoogleTest executable per folder.

# Compiler warnings for our own code. Third-party headers come in as SYSTEM
# includes so that their warnings do not drown ours.
function(meld_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
endfunction()

# meld_library(<name> [SUBDIRS dir...] [DEPS lib...] [PRIVATE_DEPS lib...]
#              [PUBLIC_INCLUDE dir...])
function(meld_library name)
  cmake_parse_arguments(ML "" "" "SUBDIRS;DEPS;PRIVATE_DEPS;PUBLIC_INCLUDE" ${ARGN})
  set(globs ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  foreach(sub ${ML_SUBDIRS})
    list(APPEND globs ${CMAKE_CURRENT_SOURCE_DIR}/${sub}/*.cpp)
  endforeach()
  file(GLOB sources CONFIGURE_DEPENDS ${globs})
  if(sources)
    add_library(${name} STATIC ${sources})
    meld_warnings(${name})
    target_include_directories(${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR} ${ML_PUBLIC_INCLUDE})
    target_link_libraries(${name} PUBLIC ${ML_DEPS} PRIVATE ${ML_PRIVATE_DEPS})
  else()
    # A layer that has no code yet still exists, so that its users can link to it.
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${CMAKE_CURRENT_SOURCE_DIR} ${ML_PUBLIC_INCLUDE})
    target_link_libraries(${name} INTERFACE ${ML_DEPS})
  endif()
endfunction()

# meld_tests(<name> [DIR dir] [DEPS lib...])
# One test executable from <DIR>/*.cpp (default: tests/), registered with CTest
# case by case. Tests run in their own scratch directory under the build tree,
# because several of the system's files are written to the working directory.
function(meld_tests name)
  cmake_parse_arguments(MT "" "DIR" "DEPS" ${ARGN})
  if(NOT MT_DIR)
    set(MT_DIR tests)
  endif()
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${MT_DIR}/*.cpp)
  if(NOT sources)
    return()
  endif()
  add_executable(${name} ${sources})
  meld_warnings(${name})
  target_link_libraries(${name} PRIVATE ${MT_DEPS} GTest::gtest GTest::gtest_main meld_testsupport)
  set(workdir ${CMAKE_BINARY_DIR}/testrun/${name})
  file(MAKE_DIRECTORY ${workdir})
  gtest_discover_tests(${name}
    WORKING_DIRECTORY ${workdir}
    TEST_LIST ${name}_TESTS
    DISCOVERY_TIMEOUT 60)
  meld_test_environment(${name}_TESTS)
endfunction()

# The environment every test runs with: where the sources and the real-file
# corpus are.
function(meld_test_environment_value out)
  set(${out} "MELD_SOURCE_DIR=${PROJECT_SOURCE_DIR};MELD_CORPUS_DIR=${MELD_CORPUS_DIR}" PARENT_SCOPE)
endfunction()

# Gives the tests that gtest_discover_tests found (listed in the variable named
# <list_var>) the test environment. gtest_discover_tests hands its PROPERTIES
# on as one flat list, so an ENVIRONMENT of two entries reaches CTest as one
# entry and a stray word; a script of our own, which CTest reads after the
# discovered tests, sets the whole list instead.
function(meld_test_environment list_var)
  meld_test_environment_value(environment)
  set(script ${CMAKE_CURRENT_BINARY_DIR}/${list_var}_environment.cmake)
  file(WRITE ${script}
    "if(${list_var})\n"
    "  set_tests_properties(\${${list_var}} PROPERTIES ENVIRONMENT [==[${environment}]==])\n"
    "endif()\n")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${script})
endfunction()
