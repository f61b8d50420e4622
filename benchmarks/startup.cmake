if(TARGET brokertestsupport)
    sm_add_benchmark(NAME startup_benchmark
                     SOURCES ${CMAKE_CURRENT_LIST_DIR}/startup_benchmark.cpp
                             ${CMAKE_CURRENT_LIST_DIR}/servicelaunch.cpp
                     LIBS brokertestsupport)
endif()
if(TARGET startup_benchmark)
    # The floor, and the same program with the C++ runtime loaded as the
    # service loads it (the linker would otherwise drop the unused libraries).
    add_executable(signalparent ${CMAKE_CURRENT_LIST_DIR}/signalparent.cpp)
    add_executable(signalparent-cxx ${CMAKE_CURRENT_LIST_DIR}/signalparent.cpp)
    target_link_options(signalparent-cxx PRIVATE LINKER:--no-as-needed)
    target_link_libraries(signalparent-cxx PRIVATE stdc++ m gcc_s)
    target_compile_definitions(startup_benchmark PRIVATE
        SERVICE_PROGRAM="$<TARGET_FILE:settings-manager>"
        FLOOR_PROGRAM="$<TARGET_FILE:signalparent>"
        FLOOR_CXX_PROGRAM="$<TARGET_FILE:signalparent-cxx>")
    add_dependencies(startup_benchmark settings-manager signalparent signalparent-cxx)
endif()
