sm_add_benchmark(NAME foundation_benchmark
                 SOURCES ${CMAKE_CURRENT_LIST_DIR}/foundation_benchmark.cpp
                 LIBS event log)
