# Writes one systemd unit from its template while installing.  Runs inside the
# install script, where CMAKE_INSTALL_PREFIX is the prefix of this install
# (cmake --install --prefix, or cpack's), so @SBINDIR@ becomes the folder the
# programs are installed to.  Like every installed file, the unit goes below
# DESTDIR when it is set.
#   SM_UNIT_TEMPLATE   the unit's template, <name>.service.in
#   SM_UNIT_DIR        the units' folder, relative to the prefix
#   SM_SBINDIR         the programs' folder, relative to the prefix
#   SM_GROUP           the daemons' group
get_filename_component(name "${SM_UNIT_TEMPLATE}" NAME_WLE)
set(SBINDIR "${CMAKE_INSTALL_PREFIX}/${SM_SBINDIR}")
set(GROUP "${SM_GROUP}")
set(unit "${CMAKE_INSTALL_PREFIX}/${SM_UNIT_DIR}/${name}")
message(STATUS "Installing: $ENV{DESTDIR}${unit}")
configure_file("${SM_UNIT_TEMPLATE}" "$ENV{DESTDIR}${unit}" @ONLY)
list(APPEND CMAKE_INSTALL_MANIFEST_FILES "${unit}")
