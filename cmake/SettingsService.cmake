# Build conventions shared by every folder of the tree.

add_compile_options(-Wall -Wextra -Wno-psabi)
# 64-bit file offsets and inode numbers on 32-bit ARM too: without them
# directory reads fail on file systems with large inode numbers (tmpfs).
add_compile_definitions(_FILE_OFFSET_BITS=64)

# The group the daemons run as, which owns the memories, the broker's socket
# and semaphore and the settings folder (systemd units, sysusers.d,
# tmpfiles.d, the device root of the tests).
set(SM_DAEMON_GROUP settings CACHE STRING "The daemons' group: owner of their shared objects")

if(SM_WERROR)
    add_compile_options(-Werror)
endif()

# Every function and object in a section of its own, and the linker drops the
# sections that nothing uses: the programs carry only the code of the
# libraries that they call (the settings service's 512 KB budget on the
# device).
add_compile_options(-ffunction-sections -fdata-sections)
add_link_options(-Wl,--gc-sections)
# The device's optimised build is optimised for size (the settings service's
# 512 KB); the host's keeps -O2, which its benchmarks measure.
if(CMAKE_CROSSCOMPILING)
    add_compile_options($<$<OR:$<CONFIG:RelWithDebInfo>,$<CONFIG:Release>>:-Os>)
endif()

# Hardening, for the host and for ARM alike: stack protector, fortified C
# library calls (optimised builds: the fortified checks need optimisation, and
# the sanitizers bring checks of their own), the C++ library's cheap
# assertions (bounds of operator[] and friends), position-independent
# programs and a relocation table made read-only before main (full RELRO,
# immediate binding).  SM_HARDEN=OFF leaves them out (to measure their cost).
option(SM_HARDEN "Build with stack protector, fortified calls, library assertions, PIE and full RELRO" ON)
if(SM_HARDEN)
    add_compile_options(-fstack-protector-strong)
    add_compile_definitions(_GLIBCXX_ASSERTIONS)
    if(NOT SM_SANITIZE AND NOT SM_FUZZ)
        # The fortified declarations mark read() and write() warn_unused_result,
        # which a cast to void does not silence: a result that is ignored on
        # purpose (a test's pipe) is negated first, "(void)!write(...)".
        add_compile_options($<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE>
                            $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
    endif()
    set(CMAKE_POSITION_INDEPENDENT_CODE ON)
    include(CheckPIESupported)
    check_pie_supported(LANGUAGES CXX)
    add_link_options(-Wl,-z,relro,-z,now)
endif()

if(SM_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
endif()
if(SM_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer
                        -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
endif()

# Scripts and the catalogue generator run on Debian's python3 (standard
# library only), whatever other interpreter the PATH offers first.
if(EXISTS /usr/bin/python3)
    set(Python3_EXECUTABLE /usr/bin/python3 CACHE FILEPATH "Debian's python3")
endif()
find_package(Python3 3.11 REQUIRED COMPONENTS Interpreter)

# GoogleTest: the distribution's prebuilt library natively, built from its
# sources with the cross compiler for ARM.
if(CMAKE_CROSSCOMPILING)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
    # GoogleTest 1.11 and later define the GTest:: aliases themselves.
    if(NOT TARGET GTest::gtest)
        add_library(GTest::gtest ALIAS gtest)
        add_library(GTest::gtest_main ALIAS gtest_main)
        add_library(GTest::gmock ALIAS gmock)
    endif()
else()
    find_package(GTest REQUIRED)
endif()

# nlohmann JSON is header-only. A private include folder holding only its
# headers serves the cross build too, without putting the host's /usr/include
# on the ARM include path.
set(SM_NLOHMANN_INCLUDE ${CMAKE_BINARY_DIR}/third-party-include)
file(MAKE_DIRECTORY ${SM_NLOHMANN_INCLUDE})
if(NOT EXISTS ${SM_NLOHMANN_INCLUDE}/nlohmann)
    file(CREATE_LINK /usr/include/nlohmann ${SM_NLOHMANN_INCLUDE}/nlohmann SYMBOLIC)
endif()
add_library(nlohmann_json_headers INTERFACE)
target_include_directories(nlohmann_json_headers SYSTEM INTERFACE ${SM_NLOHMANN_INCLUDE})

# Every test program runs inside a throw-away device root (private /dev/shm,
# /var, /dev/kmsg, /dev/mmcblk1, /dev/mem, /product.info), so no test touches
# the host's.  ARM test programs run through the emulator inside it.
# SM_EMULATOR runs this build's programs (empty natively, qemu for ARM);
# SM_EMULATOR_COMMAND is the same as one text, for scripts that take it as an
# option.
set(SM_EMULATOR "")
if(CMAKE_CROSSCOMPILING)
    set(SM_EMULATOR ${CMAKE_CROSSCOMPILING_EMULATOR})
endif()
list(JOIN SM_EMULATOR " " SM_EMULATOR_COMMAND)
set(SM_DEVROOT ${CMAKE_SOURCE_DIR}/tools/devroot/devroot)
set(SM_TEST_PREFIX ${SM_DEVROOT} exec --group ${SM_DAEMON_GROUP} --bind-ro ${CMAKE_BINARY_DIR}
                   --bind-ro ${CMAKE_SOURCE_DIR} -- ${SM_EMULATOR})

# sm_add_gtest(NAME name SOURCES ... LIBS ... [NO_DEVROOT] [TIMEOUT s])
# A GoogleTest program registered as one CTest test.
function(sm_add_gtest)
    cmake_parse_arguments(T "NO_DEVROOT" "NAME;TIMEOUT" "SOURCES;LIBS" ${ARGN})
    add_executable(${T_NAME} ${T_SOURCES})
    target_link_libraries(${T_NAME} PRIVATE ${T_LIBS} GTest::gtest_main GTest::gmock)
    if(T_NO_DEVROOT)
        set(prefix ${SM_EMULATOR})
    else()
        set(prefix ${SM_TEST_PREFIX})
    endif()
    add_test(NAME ${T_NAME} COMMAND ${prefix} $<TARGET_FILE:${T_NAME}>)
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 300)
    endif()
    set_tests_properties(${T_NAME} PROPERTIES TIMEOUT ${T_TIMEOUT})
endfunction()

# sm_add_fuzzer(NAME name ENTRY file CORPUS folder MINIMUM n LIBS ... [NO_DEVROOT])
# A libFuzzer entry (ENTRY defines LLVMFuzzerTestOneInput, linked with LIBS)
# and its corpus.  The corpus runs as the ordinary test <name>_fuzz_corpus_test
# with every compiler.  The libFuzzer program <name>_fuzzer exists in a build
# configured with clang and SM_FUZZ=ON; a native build makes that build on
# request, in its folder "fuzz":
#   cmake --build build/native --target <name>_fuzz
#   -> build/native/fuzz/<folder of the entry>/<name>_fuzzer
find_program(SM_CLANGXX NAMES clang++ clang++-14)
find_program(SM_CLANG NAMES clang clang-14)
function(sm_add_fuzzer)
    cmake_parse_arguments(F "NO_DEVROOT" "NAME;ENTRY;CORPUS;MINIMUM" "LIBS" ${ARGN})
    set(test ${F_NAME}_fuzz_corpus_test)
    set(devroot "")
    if(F_NO_DEVROOT)
        set(devroot NO_DEVROOT)
    endif()
    sm_add_gtest(NAME ${test} SOURCES ${CMAKE_SOURCE_DIR}/tests/support/fuzzcorpus_test.cpp
                 ${F_ENTRY} LIBS ${F_LIBS} ${devroot})
    target_compile_definitions(${test} PRIVATE FUZZ_CORPUS="${F_CORPUS}"
                                               FUZZ_CORPUS_MINIMUM=${F_MINIMUM})
    if(SM_FUZZ)
        add_executable(${F_NAME}_fuzzer ${F_ENTRY})
        target_link_libraries(${F_NAME}_fuzzer PRIVATE ${F_LIBS})
        target_link_options(${F_NAME}_fuzzer PRIVATE -fsanitize=fuzzer)
    elseif(SM_CLANGXX AND SM_CLANG AND NOT CMAKE_CROSSCOMPILING)
        add_custom_target(${F_NAME}_fuzz
            COMMAND ${CMAKE_COMMAND} -S ${CMAKE_SOURCE_DIR} -B ${CMAKE_BINARY_DIR}/fuzz -G Ninja
                    -DCMAKE_CXX_COMPILER=${SM_CLANGXX} -DCMAKE_C_COMPILER=${SM_CLANG}
                    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSM_FUZZ=ON -DSM_BENCHMARKS=OFF
            COMMAND ${CMAKE_COMMAND} --build ${CMAKE_BINARY_DIR}/fuzz --target ${F_NAME}_fuzzer
            VERBATIM USES_TERMINAL)
    endif()
endfunction()

# sm_add_benchmark(NAME name SOURCES ... LIBS ...)
# A Google Benchmark program; built natively, run on request only.
function(sm_add_benchmark)
    cmake_parse_arguments(B "" "NAME" "SOURCES;LIBS" ${ARGN})
    if(CMAKE_CROSSCOMPILING OR NOT SM_BENCHMARKS)
        return()
    endif()
    find_package(benchmark QUIET)
    if(NOT benchmark_FOUND)
        message(STATUS "Google Benchmark not found: ${B_NAME} is not built")
        return()
    endif()
    add_executable(${B_NAME} ${B_SOURCES})
    target_link_libraries(${B_NAME} PRIVATE ${B_LIBS} benchmark::benchmark)
endfunction()
