# Debian packages: cpack -G DEB in the build folder. libovmediacontrol<soname>, libovmediacontrol-dev, ovrtspd.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ovmediacontrol)
set(CPACK_PACKAGE_VENDOR "")
set(CPACK_PACKAGE_CONTACT "The maintainers of OVMediaControl <maintainers@ovmediacontrol.invalid>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_RESOURCE_FILE_LICENSE "${PROJECT_SOURCE_DIR}/LICENSE")
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_SOURCE_DIR}/debian/Stage.cmake")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library development)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS OFF)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_BINARY_DIR}")
if(CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${OV_DEBIAN_ARCHITECTURE})
endif()
if(CMAKE_CROSSCOMPILING AND OV_SYSROOT)
    # What the packages need is looked up in the sysroot's package database.
    list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
        "${OV_SYSROOT}/usr/lib/${OV_TARGET_TRIPLET}" "${OV_SYSROOT}/lib/${OV_TARGET_TRIPLET}")
    set(CPACK_PROJECT_CONFIG_FILE "${CMAKE_CURRENT_BINARY_DIR}/DebianCross.cmake")
    file(CONFIGURE OUTPUT "${CPACK_PROJECT_CONFIG_FILE}" @ONLY CONTENT [=[
set(ENV{DPKG_ADMINDIR} "@OV_SYSROOT@/var/lib/dpkg")
set(ENV{DEB_HOST_ARCH} @OV_DEBIAN_ARCHITECTURE@)
]=])
elseif(CMAKE_CROSSCOMPILING)
    # The files of a foreign architecture's packages are not known to this machine's package tools.
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS OFF)
    set(CPACK_DEBIAN_LIBRARY_PACKAGE_DEPENDS "libc6, libgcc-s1, libstdc++6 (>= 12)")
endif()

set(library_package libovmediacontrol${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${library_package})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA "${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers")
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "Media control for RTSP servers of surveillance devices
The library reads the device's media URLs and carries the verbs of RTSP
sessions to the host's RTP dispatchers.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libovmediacontrol-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${library_package} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "Media control for RTSP servers, development files
Headers, a CMake package and a pkg-config file for building a host: an RTSP
server that loads the library and sends the RTP.")

if(OV_BUILD_REFHOST)
    list(APPEND CPACK_COMPONENTS_ALL server)
    set(CPACK_DEBIAN_SERVER_PACKAGE_NAME ovrtspd)
    set(CPACK_DEBIAN_SERVER_PACKAGE_SECTION video)
    set(CPACK_DEBIAN_SERVER_PACKAGE_DEPENDS
        "${library_package} (= ${PROJECT_VERSION}), adduser, gstreamer1.0-plugins-base, gstreamer1.0-plugins-good, gstreamer1.0-plugins-bad, gstreamer1.0-plugins-ugly, gstreamer1.0-libav, gstreamer1.0-x, fonts-dejavu-core")
    foreach(file conffiles postinst prerm postrm)
        list(APPEND server_control "${CMAKE_CURRENT_SOURCE_DIR}/debian/${file}")
    endforeach()
    set(CPACK_DEBIAN_SERVER_PACKAGE_CONTROL_EXTRA "${server_control}")
    set(CPACK_DEBIAN_SERVER_PACKAGE_CONTROL_STRICT_PERMISSION ON)
    set(CPACK_COMPONENT_SERVER_DESCRIPTION "RTSP server for cameras and their recordings
Streams cameras, files and other servers' streams to RTSP players, live and
recorded, unicast and multicast, and plays the sound that they send back.")
endif()
include(CPack)
