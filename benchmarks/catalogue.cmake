sm_add_benchmark(NAME catalogue_benchmark
                 SOURCES ${CMAKE_CURRENT_LIST_DIR}/catalogue_benchmark.cpp
                 LIBS introspection_gen introspection)
