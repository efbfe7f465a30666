# Debian's cross compiler. The programs run under user-mode emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR mips)
set(CMAKE_C_COMPILER mipsel-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER mipsel-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-mipsel -L /usr/mipsel-linux-gnu)
