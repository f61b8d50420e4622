sm_add_benchmark(NAME values_benchmark
                 SOURCES ${CMAKE_CURRENT_LIST_DIR}/values_benchmark.cpp
                 LIBS introspection_gen introspection json event nlohmann_json_headers testsupport)
