# Tool chain of the target: Debian's cross compiler, arm64 libraries beside the native ones, programs run by qemu.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
# The cross compiler's own run-time first: with an arm64 libc6 installed beside it, the loader would otherwise mix
# that one's libraries with these and every program with threads would hang.
set(CMAKE_CROSSCOMPILING_EMULATOR
  "qemu-aarch64;-L;/usr/aarch64-linux-gnu;-E;LD_LIBRARY_PATH=/usr/aarch64-linux-gnu/lib")
# pkg-config answers for the native machine unless it is told where the target's files are.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/aarch64-linux-gnu/pkgconfig:/usr/share/pkgconfig)
