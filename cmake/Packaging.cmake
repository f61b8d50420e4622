# Debian packages of a build: `cpack -G DEB` in the build folder (or
# `cpack -G DEB --config BUILD/CPackConfig.cmake -B OUT`).  One package per
# install component, so that an image can leave the tools out:
#   settings-service        runtime: the two daemons, the catalogue JSON, the
#                           systemd units and their manual pages
#   settings-service-tools  tools: memtool and hwinfo, their manual pages and
#                           bash completions
#   settings-service-dev    dev: the client library for the device's other
#                           programs (headers, static libraries, the CMake
#                           package SettingsService, settings-service-client.pc)
# The architecture is the build's target (armhf for the ARM build, amd64 for
# the host build): dpkg-architecture names it from the compiler's target
# triplet.  The dependencies on the C and C++ runtime: see below.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "Settings service developers <settings-service@example.invalid>")
# The install scripts run with the prefix /usr and DESTDIR, as
# `cmake --install --prefix /usr` does, so that the systemd units name the
# programs' installed paths.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX /usr)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime tools dev)
# Each description's first line is the package's synopsis.
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "settings service and message broker of a camera remote controller
The settings service keeps the settings of a hand-held camera and lens-motor
remote controller in shared memory and in settings documents; the message
broker forwards change notifications between the device's processes.  Both
come with systemd units.")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION
    "tools for the memories and the hardware record of the settings service
memtool reads and changes the shared memories of a running settings service
and posts broker events; hwinfo is the factory and service tool of the
hardware record.")
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "client library of the settings service of a camera remote controller
Headers, static libraries, the CMake package SettingsService and the
pkg-config file settings-service-client.pc for the device's programs that
read and set the settings service's memories and talk to its message broker.")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${PROJECT_NAME}-tools)
set(CPACK_DEBIAN_DEV_PACKAGE_NAME ${PROJECT_NAME}-dev)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
# The development package holds no program: it needs nothing to be installed (its static
# libraries are linked with the C and C++ runtime of the program's own toolchain).
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "")
set(CPACK_DEBIAN_DEV_PACKAGE_SHLIBDEPS OFF)
# The dependencies on the C and C++ runtime.  dpkg-shlibdeps finds them for
# the host build.  For the cross build it would need the target's libraries
# known to dpkg as packages of that architecture (multiarch: libc6:armhf,
# libstdc++6:armhf), which the build machines do not have (they carry the
# cross toolchain's copies), so they are stated here: the versions whose
# libraries provide the newest symbol versions the ARM programs use
# (GLIBC_2.34, GCC_3.5, GLIBCXX_3.4.30 of GCC 12: the handler of the C++
# library's assertions that the hardened build calls).  The install test
# checks the stated versions against the programs' symbol versions.
if(CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= 12)")
else()
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()

find_program(SM_DPKG_ARCHITECTURE dpkg-architecture)
if(SM_DPKG_ARCHITECTURE AND CMAKE_LIBRARY_ARCHITECTURE)
    execute_process(COMMAND ${SM_DPKG_ARCHITECTURE} -t ${CMAKE_LIBRARY_ARCHITECTURE}
                            -qDEB_HOST_ARCH
                    OUTPUT_VARIABLE SM_DEB_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE
                    ERROR_QUIET)
    if(SM_DEB_ARCHITECTURE)
        set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${SM_DEB_ARCHITECTURE})
    endif()
endif()

include(CPack)
