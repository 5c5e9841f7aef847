# 32-bit x86 on a PC: the library's own ABI (ILP32, little-endian), run natively.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i386)
set(CMAKE_CROSSCOMPILING_EMULATOR "")
# The multilib compiler has the 32-bit libc; the kernel headers stand under the 64-bit triplet.
set(CMAKE_C_FLAGS_INIT "-m32 -msse2 -mfpmath=sse -isystem /usr/include/x86_64-linux-gnu")
set(CMAKE_CXX_FLAGS_INIT "-m32 -msse2 -mfpmath=sse -isystem /usr/include/x86_64-linux-gnu")
