if(TARGET brokertestsupport)
    sm_add_benchmark(NAME broker_benchmark
                     SOURCES ${CMAKE_CURRENT_LIST_DIR}/broker_benchmark.cpp
                     LIBS brokertestsupport event log)
endif()
