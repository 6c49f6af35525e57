# qva_library(NAME SOURCES ... [DEPENDS ...]): a static library of the project, named qva_NAME, whose
# headers are included as "<layer>/<module>/Header.h" from src/.
function(qva_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_library(qva_${name} STATIC ${ARG_SOURCES})
  target_include_directories(qva_${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(qva_${name} PUBLIC ${ARG_DEPENDS})
  qva_target_warnings(qva_${name})
endfunction()

# qva_test(NAME SOURCES ... DEPENDS ...): a GoogleTest executable registered with CTest. Tests find the
# shared corpus through QVA_CORPUS_DIR and their own fixtures through QVA_TEST_DATA_DIR.
function(qva_test name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_DEPENDS} GTest::gtest GTest::gmock GTest::gtest_main)
  target_compile_definitions(${name} PRIVATE
    QVA_CORPUS_DIR="${PROJECT_SOURCE_DIR}/../shared/corpus"
    QVA_TEST_DATA_DIR="${PROJECT_SOURCE_DIR}/tests/data"
    QVA_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
    QVA_BINARY_DIR="${PROJECT_BINARY_DIR}")
  qva_target_warnings(${name})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES ENVIRONMENT "FONTCONFIG_FILE=${PROJECT_SOURCE_DIR}/data/fonts/fonts.conf")
endfunction()

# qva_benchmark(NAME SOURCES ... DEPENDS ...): a Google Benchmark executable under bench/.
function(qva_benchmark name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPENDS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_DEPENDS} benchmark::benchmark benchmark::benchmark_main)
  qva_target_warnings(${name})
endfunction()
