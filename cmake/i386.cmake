# SPDX-License-Identifier: MIT
# The ABI of record on a 64-bit machine: 4-byte pointers, floats that round as written (no x87), 64-bit file offsets and
# times.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i386)
set(CMAKE_CXX_FLAGS_INIT "-m32 -msse2 -mfpmath=sse -D_FILE_OFFSET_BITS=64 -D_TIME_BITS=64")
