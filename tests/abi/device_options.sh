#!/usr/bin/env bash
# usage: device_options.sh <root of the sources> <scratch folder> [<toolchain file>]
# Builds the library with the options for devices, and looks whether each does what it is for.
set -euo pipefail
root="$1"
scratch="$2"
toolchain=()
if [ -n "${3:-}" ]; then
    toolchain=(--toolchain "$3")
fi
export CMAKE_CXX_COMPILER_LAUNCHER=ccache CMAKE_C_COMPILER_LAUNCHER=ccache

# has <file> <text> <words of a failure>; lacks <file> <pattern> <words of a failure>
fail() {
    echo "$1"
    exit 1
}
has() {
    grep -qF -- "$2" "$1" || { cat "$1" && fail "missing: $2 ($3)"; }
}
lacks() {
    ! grep -E -- "$2" "$1" || fail "$3"
}

# configure <name> <option>...
configure() {
    local name="$1"
    shift
    rm -rf "${scratch:?}/$name"
    cmake -S "$root" -B "$scratch/$name" -G Ninja "${toolchain[@]}" -DCMAKE_BUILD_TYPE=None "$@" >"$scratch/$name.log" 2>&1
}

# build <name>
build() {
    cmake --build "$scratch/$1" -j 2 >>"$scratch/$1.log" 2>&1
}

# look <name>: what the library that was built exports, imports and needs
look() {
    nm -D --defined-only "$scratch/$1/libovmediacontrol.so" >"$scratch/$1.exported"
    nm -D --undefined-only "$scratch/$1/libovmediacontrol.so" >"$scratch/$1.asked"
    c++filt <"$scratch/$1.asked" >"$scratch/$1.asked.plain"
    readelf -dW "$scratch/$1/libovmediacontrol.so" >"$scratch/$1.dynamic"
}

mkdir -p "$scratch"

# --- an SDK with headers of its own, of which one operation differs, and with the strings of old ---

rm -rf "$scratch/sdk" "$scratch/installed"
cp -r "$root/hostapi" "$scratch/sdk"
sed -i 's/void Lock(const char\* file, int line);/void Lock(const char* file, int line, bool sdk = true);/' "$scratch/sdk/base/OVMutex.h"
has "$scratch/sdk/base/OVMutex.h" "bool sdk = true" "OVMutex.h is not what this test takes it for"
if ! configure sdk-old -DOV_HOSTAPI_DIR="$scratch/sdk" -DOV_OLD_STRING_ABI=ON || ! build sdk-old; then
    cat "$scratch/sdk-old.log"
    fail "building with an SDK's headers failed"
fi
look sdk-old
has "$scratch/sdk-old.asked.plain" "OVMutex::Lock(char const*, int, bool)" "OV_HOSTAPI_DIR: the SDK's header was not taken"
lacks "$scratch/sdk-old.asked.plain" "OVMutex::Lock\(char const\*, int\)" "OV_HOSTAPI_DIR: this project's header was taken"
find "$scratch/sdk-old" -maxdepth 1 -type f \( -name '*.so*' -o -perm -u+x \) >"$scratch/sdk-old.built"
[ "$(wc -l <"$scratch/sdk-old.built")" = 1 ] || { cat "$scratch/sdk-old.built" && fail "OV_HOSTAPI_DIR: more than the library was built"; }
cmake --install "$scratch/sdk-old" --prefix "$scratch/installed" >"$scratch/installed.log"
has "$scratch/installed.log" "support/SafePointer.h" "the library's own headers were not installed"
lacks "$scratch/installed.log" "/hostapi/" "OV_HOSTAPI_DIR: the SDK's headers were installed once more"

has "$scratch/sdk-old.exported" _ZN14OrvaneMediaUrl13parseMediaUrlERKSs "OV_OLD_STRING_ABI: no name of the std::string of old"
lacks "$scratch/sdk-old.exported" "__cxx11|B5cxx11" "OV_OLD_STRING_ABI: names of the new std::string are exported"
lacks "$scratch/sdk-old.asked" "__cxx11|B5cxx11" "OV_OLD_STRING_ABI: names of the new std::string are asked for"

# What the SDK lacks is missed, not taken from this project.
rm "$scratch/sdk/device/MTUParam.h"
! build sdk-old || fail "OV_HOSTAPI_DIR: a header that the SDK lacks came from elsewhere"
has "$scratch/sdk-old.log" "MTUParam.h: No such file" "the build ended for another reason"
! configure mistyped -DOV_HOSTAPI_DIR="$scratch/sdk-mistyped" || fail "OV_HOSTAPI_DIR: a folder that is not there was taken"
has "$scratch/mistyped.log" "OV_HOSTAPI_DIR is no folder" "the cause is not reported"

# --- the C++ library comes along and stays inside; small code ---

if ! configure static-small -DOV_BUILD_REFHOST=OFF -DOV_BUILD_TESTS=OFF -DOV_BUILD_BENCH=OFF -DOV_STATIC_LIBSTDCXX=ON \
    -DOV_SMALL=ON || ! build static-small; then
    cat "$scratch/static-small.log"
    fail "building with the C++ library inside failed"
fi
look static-small
lacks "$scratch/static-small.dynamic" "NEEDED.*libstdc\+\+" "OV_STATIC_LIBSTDCXX: the shared C++ library is needed"
has "$scratch/static-small.dynamic" "libgcc_s.so.1" "OV_STATIC_LIBSTDCXX: with an unwinder of its own no exception reaches the host"
lacks "$scratch/static-small.asked" "GLIBCXX|CXXABI" "OV_STATIC_LIBSTDCXX: the shared C++ library is asked for names"
lacks "$scratch/static-small.exported" " (_ZN?K?S|_ZT[IVS]N?S|_Zn[wa]|_Zd[la]|__cxa|__gxx)" "OV_STATIC_LIBSTDCXX: the C++ library inside is exported"
has "$scratch/static-small.exported" _ZN14OrvaneMediaUrl13parseMediaUrlERKNSt7__cxx1112 "the interface is gone"

has "$scratch/static-small/compile_commands.json" "-Os -ffunction-sections -fdata-sections" "OV_SMALL: not optimised for size"
has "$scratch/static-small/compile_commands.json" "-flto" "OV_SMALL: not optimised at link time"
has "$scratch/static-small/build.ninja" "-Wl,--gc-sections" "OV_SMALL: unused sections are kept"
