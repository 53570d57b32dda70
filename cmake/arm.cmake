# Cross compiler for the board. Another one: cmake --preset arm -DQ7_CROSS=arm-linux-gnueabi-
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(Q7_CROSS "arm-linux-gnueabihf-" CACHE STRING "Prefix of the cross compiler's commands")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES Q7_CROSS)
set(CMAKE_CXX_COMPILER "${Q7_CROSS}g++")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
