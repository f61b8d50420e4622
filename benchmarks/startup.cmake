if(TARGET brokertestsupport)
    sm_add_benchmark(NAME startup_benchmark
                     SOURCES ${CMAKE_CURRENT_LIST_DIR}/startup_benchmark.cpp
                     LIBS brokertestsupport)
endif()
if(TARGET startup_benchmark)
    add_executable(signalparent ${CMAKE_CURRENT_LIST_DIR}/signalparent.cpp)
    target_compile_definitions(startup_benchmark PRIVATE
        SERVICE_PROGRAM="$<TARGET_FILE:settings-manager>"
        FLOOR_PROGRAM="$<TARGET_FILE:signalparent>")
    add_dependencies(startup_benchmark settings-manager signalparent)
endif()
