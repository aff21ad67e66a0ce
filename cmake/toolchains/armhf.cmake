# 32-bit ARM with hard floating point, by Debian's cross compiler; what is built runs under qemu-user.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(OV_TARGET_TRIPLET arm-linux-gnueabihf)
set(OV_DEBIAN_ARCHITECTURE armhf)
include("${CMAKE_CURRENT_LIST_DIR}/debian-cross.cmake")
