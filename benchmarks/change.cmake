# The service's CPU time per change of a persistent variable.
if(TARGET brokertestsupport)
    sm_add_benchmark(NAME change_benchmark
                     SOURCES ${CMAKE_CURRENT_LIST_DIR}/change_benchmark.cpp
                             ${CMAKE_CURRENT_LIST_DIR}/servicelaunch.cpp
                     LIBS brokertestsupport introspection_gen introspection)
endif()
if(TARGET change_benchmark)
    target_compile_definitions(change_benchmark PRIVATE
        SERVICE_PROGRAM="$<TARGET_FILE:settings-manager>")
    add_dependencies(change_benchmark settings-manager)
endif()
