# Fault group "broker clients": hostile clients against the real broker and
# service in a device root while faultpeer's subscriber counts every event.
# A short run is part of the suite; the long one (300 s of hostile clients)
# runs only when asked for:
#   ctest --preset native -C long -R faults_broker_clients_long
if(NOT TARGET settings-manager OR NOT TARGET message-broker OR NOT TARGET memtool)
    return()
endif()

add_executable(faultpeer ${CMAKE_CURRENT_SOURCE_DIR}/faultpeer.cpp)
target_link_libraries(faultpeer PRIVATE event log)

set(broker_clients_command
    ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/group_broker_clients.py
    --devroot ${SM_DEVROOT}
    --service $<TARGET_FILE:settings-manager>
    --broker $<TARGET_FILE:message-broker>
    --memtool $<TARGET_FILE:memtool>
    --faultpeer $<TARGET_FILE:faultpeer>
    --catalogue $<TARGET_FILE_DIR:introspection_gen>/generated/catalogue.json
    --build ${CMAKE_BINARY_DIR}
    "--emulator=${SM_EMULATOR_COMMAND}")
add_test(NAME faults_broker_clients COMMAND ${broker_clients_command})
set_tests_properties(faults_broker_clients PROPERTIES TIMEOUT 600)
add_test(NAME faults_broker_clients_long CONFIGURATIONS long
         COMMAND ${broker_clients_command} --long)
set_tests_properties(faults_broker_clients_long PROPERTIES TIMEOUT 1800)
