# Per-generator package settings, read by CPack. The .deb installs under /opt/kel: the
# runtimes kel bundles must sit beside libkel.so, and they do not belong in the system's
# library directory. The archive holds the same tree at its top.
if(CPACK_GENERATOR STREQUAL "DEB")
  set(CPACK_PACKAGING_INSTALL_PREFIX /opt/kel)
endif()
