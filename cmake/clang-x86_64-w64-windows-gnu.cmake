# Cross-compiles for 64-bit Windows with clang 16 and lld, against the mingw-w64 headers and
# GCC's libstdc++ (posix thread model), the same runtime as the GCC build.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(ZEL_MINGW_TRIPLE x86_64-w64-mingw32)
set(ZEL_CLANG_TARGET x86_64-w64-windows-gnu)
set(CMAKE_C_COMPILER clang-16)
set(CMAKE_CXX_COMPILER clang++-16)
set(CMAKE_C_COMPILER_TARGET ${ZEL_CLANG_TARGET})
set(CMAKE_CXX_COMPILER_TARGET ${ZEL_CLANG_TARGET})
set(CMAKE_RC_COMPILER ${ZEL_MINGW_TRIPLE}-windres)
# The debug information is split off with GNU binutils, as in the GCC build.
set(CMAKE_OBJCOPY /usr/bin/${ZEL_MINGW_TRIPLE}-objcopy CACHE FILEPATH "objcopy for PE files")
set(CMAKE_STRIP /usr/bin/${ZEL_MINGW_TRIPLE}-strip CACHE FILEPATH "strip for PE files")

# clang does not find GCC's 12-posix folder by itself: name libstdc++'s headers (-nostdinc++ keeps
# clang from adding others; a compile option only, since clang calls it unused on a link line) and
# the folder of libstdc++, libgcc and libwinpthread.
set(ZEL_MINGW_GCC_DIR /usr/lib/gcc/${ZEL_MINGW_TRIPLE}/12-posix)
string(JOIN " " CMAKE_CXX_FLAGS_INIT
       -isystem ${ZEL_MINGW_GCC_DIR}/include/c++
       -isystem ${ZEL_MINGW_GCC_DIR}/include/c++/${ZEL_MINGW_TRIPLE}
       -isystem ${ZEL_MINGW_GCC_DIR}/include/c++/backward)
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-nostdinc++>)
# lld 16 by its path: an ld.lld of an older LLVM on the PATH does not read what clang 16 writes.
set(ZEL_CLANG_LINK_FLAGS
    "-fuse-ld=lld --ld-path=/usr/lib/llvm-16/bin/ld.lld -L${ZEL_MINGW_GCC_DIR} -pthread")
set(CMAKE_EXE_LINKER_FLAGS_INIT ${ZEL_CLANG_LINK_FLAGS})
set(CMAKE_SHARED_LINKER_FLAGS_INIT ${ZEL_CLANG_LINK_FLAGS})
set(CMAKE_MODULE_LINKER_FLAGS_INIT ${ZEL_CLANG_LINK_FLAGS})

set(CMAKE_FIND_ROOT_PATH /usr/${ZEL_MINGW_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
